#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>

/// While it lives, the process works in a temporary folder with the camera's files: the version file, the restart
/// script, and the identity command. The folder comes first in PATH.
class CameraFolder {
public:
    /// Throws std::runtime_error in a build whose camera paths are absolute: the tests write these files.
    CameraFolder();
    ~CameraFolder();
    CameraFolder(const CameraFolder&) = delete;
    CameraFolder& operator=(const CameraFolder&) = delete;

    /// Sets the identity command: the body of a shell script; "$1" is the option with its dash.
    void Identity(const std::string& body) const;

    /// Sets an identity command that prints these, each with a newline, for the options m, s and w.
    void Identity(const std::string& model, const std::string& serial, const std::string& assembly) const;

    void Version(const std::string& text) const;
    void RestartScript(const std::string& body, mode_t mode = 0755) const;

    /// Reduces PATH to this folder.
    void HideOtherPrograms() const;

    /// Makes popen fail from now on, with a line in the journal: "popen myname -m r".
    void RefuseCommands() const;

    /// From now on the `piece`th read (1 and up) of a command's output throws an int or a std::runtime_error; for 0,
    /// the command's start throws.
    void ThrowInCommands(int piece, bool throwsInt) const;

    /// The content of a file in the folder; empty when there is none.
    std::string Read(const std::string& file) const;

private:
    std::filesystem::path _workingFolder;
    std::string _searchPath;
    std::filesystem::path _folder;
};
