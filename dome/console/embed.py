#!/usr/bin/env python3
"""Writes the page's files into a C++ source: embed.py OUTPUT FILE..."""

import pathlib
import sys

TYPES = {
    ".html": "text/html; charset=utf-8",
    ".css": "text/css; charset=utf-8",
    ".js": "text/javascript; charset=utf-8",
    ".svg": "image/svg+xml",
}


def main():
    output, *files = map(pathlib.Path, sys.argv[1:])
    source = ['#include "dome/console/Page.h"', "", "namespace dome::console {", "", "namespace {", ""]
    rows = []
    for number, file in enumerate(sorted(files)):
        content = file.read_bytes()
        octets = ",".join(str(octet - 256 if octet > 127 else octet) for octet in content)
        source.append(f"constexpr signed char kFile{number}[] = {{{octets}}};")
        path = "/" if file.name == "index.html" else f"/{file.name.removesuffix('.html')}"
        rows.append(f'    {{"{path}", "{TYPES[file.suffix]}", '
                    f"{{reinterpret_cast<const char*>(kFile{number}), sizeof kFile{number}}}}},")
    source += ["", "const PageFile kFiles[] = {", *rows, "};", "", "}  // namespace", "",
               "const PageFile* FindPageFile(std::string_view path) {",
               "    for (const PageFile& file : kFiles) {",
               "        if (file.path == path) return &file;",
               "    }",
               "    return nullptr;",
               "}", "", "}  // namespace dome::console", ""]
    output.write_text("\n".join(source))


main()
