#pragma once

#include <string>

#include "tavos/osa/Exception.h"

namespace dome {

/// A command's word that the camera does not know, unlike a value that it refuses.
class WrongWord : public tavos::osa::Exception {
public:
    /// `after` is what comes before the word, `expected` lists what may replace it.
    WrongWord(const std::string& after, const std::string& word, const std::string& expected)
        : Exception("unknown word '%s' after %s, expected %s", word.c_str(), after.c_str(), expected.c_str()) {}
};

/// The keys of a map, as WrongWord's `expected`.
template <class Map>
std::string KeysOf(const Map& map) {
    std::string keys;
    for (const auto& [key, value] : map) keys += (keys.empty() ? "" : ", ") + key;
    return keys;
}

}  // namespace dome
