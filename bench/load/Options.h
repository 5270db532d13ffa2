#pragma once

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

/// A command line of "--name value" pairs, then words.
class Options {
public:
    Options(int argc, char** argv, int first) {
        int i = first;
        for (; i + 1 < argc && std::string(argv[i]).rfind("--", 0) == 0; i += 2) {
            _names.emplace_back(argv[i] + 2);
            _values.emplace_back(argv[i + 1]);
        }
        words.assign(argv + i, argv + argc);
    }

    std::string Text(const std::string& name, const std::string& otherwise = "") const {
        for (std::size_t i = 0; i < _names.size(); ++i) {
            if (_names[i] == name) return _values[i];
        }
        return otherwise;
    }

    /// Throws std::invalid_argument unless the value is a number.
    double Number(const std::string& name, double otherwise) const {
        const std::string text = Text(name);
        return text.empty() ? otherwise : std::stod(text);
    }

    std::vector<std::string> words;

private:
    std::vector<std::string> _names;
    std::vector<std::string> _values;
};

/// The octets of a text of hexadecimal digits.
inline std::string FromHex(const std::string& text) {
    std::string octets;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        octets += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    }
    return octets;
}

}  // namespace bench
