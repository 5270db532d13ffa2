#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

/// While it lives, the process works in a new, empty folder in which the module finds its camera's files: the version
/// file, the restart script, and the identity command, for which the folder stands first on PATH.
class CameraFolder {
public:
    CameraFolder() : _workingFolder(std::filesystem::current_path()), _searchPath(std::getenv("PATH")) {
        // The tests write these files: never the ones of the machine that they run on.
        if (std::filesystem::path(ORVEX_VERSION_FILE).is_absolute() ||
            std::filesystem::path(ORVEX_RESTART_SCRIPT).is_absolute()) {
            throw std::runtime_error(
                "these tests need a build with relative ORVEX_VERSION_FILE and "
                "ORVEX_RESTART_SCRIPT, as the preset desk has them");
        }
        std::string name = (std::filesystem::temp_directory_path() / "orvexsnmp-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
        _folder = name;
        std::filesystem::current_path(_folder);
        setenv("PATH", (_folder.string() + ":" + _searchPath).c_str(), 1);
    }
    ~CameraFolder() {
        setenv("PATH", _searchPath.c_str(), 1);
        std::error_code ignored;
        std::filesystem::current_path(_workingFolder, ignored);
        std::filesystem::remove_all(_folder, ignored);
    }
    CameraFolder(const CameraFolder&) = delete;
    CameraFolder& operator=(const CameraFolder&) = delete;

    /// The identity command, as the body of a shell script; "$1" is the option with its dash.
    void Identity(const std::string& body) const { Script(_folder / "myname", body, 0755); }

    /// An identity command that prints these, each with a newline, for the options m, s and w.
    void Identity(const std::string& model, const std::string& serial, const std::string& assembly) const {
        Identity("case $1 in\n-m) echo '" + model + "';;\n-s) echo '" + serial + "';;\n-w) echo '" + assembly +
                 "';;\nesac");
    }

    void Version(const std::string& text) const { Write(_folder / ORVEX_VERSION_FILE, text); }

    void RestartScript(const std::string& body, mode_t mode = 0755) const {
        Script(_folder / ORVEX_RESTART_SCRIPT, body, mode);
    }

    /// Programs are found in this folder only.
    void HideOtherPrograms() const { setenv("PATH", _folder.c_str(), 1); }

    /// What a file of the folder holds, empty when there is none.
    std::string Read(const std::string& file) const {
        std::ostringstream text;
        text << std::ifstream(_folder / file).rdbuf();
        return text.str();
    }

    bool Has(const std::string& file) const { return std::filesystem::exists(_folder / file); }

private:
    static void Write(const std::filesystem::path& file, const std::string& text) {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }

    static void Script(const std::filesystem::path& file, const std::string& body, mode_t mode) {
        Write(file, "#!/bin/sh\n" + body + "\n");
        chmod(file.c_str(), mode);
    }

    std::filesystem::path _workingFolder;
    std::string _searchPath;
    std::filesystem::path _folder;
};
