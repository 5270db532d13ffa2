#pragma once

#include <string_view>

namespace dome::console {

/// One file of the page.
struct PageFile {
    std::string_view path;  ///< "/console.js"
    std::string_view type;  ///< its Content-Type
    std::string_view content;
};

/// Null for a path that does not exist; "/" is the page itself.
const PageFile* FindPageFile(std::string_view path);

}  // namespace dome::console
