#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>

/// While it lives, the process works in a new, empty folder in which the module finds its camera's files: the version
/// file, the restart script, and the identity command, for which the folder stands first on PATH.
class CameraFolder {
public:
    /// Throws std::runtime_error in a build whose camera paths are absolute: the tests write these files.
    CameraFolder();
    ~CameraFolder();
    CameraFolder(const CameraFolder&) = delete;
    CameraFolder& operator=(const CameraFolder&) = delete;

    /// The identity command, as the body of a shell script; "$1" is the option with its dash.
    void Identity(const std::string& body) const;

    /// An identity command that prints these, each with a newline, for the options m, s and w.
    void Identity(const std::string& model, const std::string& serial, const std::string& assembly) const;

    void Version(const std::string& text) const;
    void RestartScript(const std::string& body, mode_t mode = 0755) const;

    /// Programs are found in this folder only.
    void HideOtherPrograms() const;

    /// From now on popen fails, with a line in the journal: "popen myname -m r".
    void RefuseCommands() const;

    /// From now on the `piece`th reading of a command's output throws, 1 and up, or for 0 the command's start: an
    /// int, or a std::runtime_error.
    void ThrowInCommands(int piece, bool throwsInt) const;

    /// What a file of the folder holds, empty when there is none.
    std::string Read(const std::string& file) const;

private:
    std::filesystem::path _workingFolder;
    std::string _searchPath;
    std::filesystem::path _folder;
};
