#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

/// A temporary folder, removed with its contents.
class TemporaryFolder {
public:
    explicit TemporaryFolder(const std::string& parent = "/tmp") : _path(parent + "/tavos-test-XXXXXX") {
        if (mkdtemp(_path.data()) == nullptr) throw std::runtime_error("no temporary folder in " + parent);
    }
    ~TemporaryFolder() {
        std::error_code error;
        std::filesystem::remove_all(_path, error);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string File(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};

inline std::string FileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
}
