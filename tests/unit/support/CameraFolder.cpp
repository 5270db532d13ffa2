#include "support/CameraFolder.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/Journal.h"

namespace {

bool s_refuseCommands = false;
constexpr int kNever = -1;
int s_throwAt = kNever;
int s_reading = 0;  // of the current command; 0 is its start
bool s_throwsInt = false;

void Write(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
}

void WriteScript(const std::filesystem::path& file, const std::string& body, mode_t mode) {
    Write(file, "#!/bin/sh\n" + body + "\n");
    chmod(file.c_str(), mode);
}

void MayThrow() {
    if (s_reading != s_throwAt) return;
    if (s_throwsInt) throw 42;
    throw std::runtime_error("a reading fails");
}

}  // namespace

extern "C" std::FILE* popen(const char* command, const char* type) {
    static const auto original = reinterpret_cast<decltype(&popen)>(dlsym(RTLD_NEXT, "popen"));
    s_reading = 0;
    MayThrow();
    if (!s_refuseCommands) return original(command, type);
    journal::Add(journal::Join("popen", command, type));
    errno = EMFILE;
    return nullptr;
}

extern "C" char* fgets(char* text, int room, std::FILE* file) {
    static const auto original = reinterpret_cast<decltype(&fgets)>(dlsym(RTLD_NEXT, "fgets"));
    ++s_reading;
    MayThrow();
    return original(text, room, file);
}

CameraFolder::CameraFolder() : _workingFolder(std::filesystem::current_path()), _searchPath(std::getenv("PATH")) {
    if (std::filesystem::path(ORVEX_VERSION_FILE).is_absolute() ||
        std::filesystem::path(ORVEX_RESTART_SCRIPT).is_absolute()) {
        throw std::runtime_error(
            "these tests need relative paths in ORVEX_VERSION_FILE and ORVEX_RESTART_SCRIPT: the preset desk has them");
    }
    std::string name = (std::filesystem::temp_directory_path() / "orvexsnmp-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    _folder = name;
    std::filesystem::current_path(_folder);
    setenv("PATH", (_folder.string() + ":" + _searchPath).c_str(), 1);
}

CameraFolder::~CameraFolder() {
    s_refuseCommands = false;
    s_throwAt = kNever;
    setenv("PATH", _searchPath.c_str(), 1);
    std::error_code ignored;
    std::filesystem::current_path(_workingFolder, ignored);
    std::filesystem::remove_all(_folder, ignored);
}

void CameraFolder::Identity(const std::string& body) const {
    WriteScript(_folder / "myname", body, 0755);
}

void CameraFolder::Identity(const std::string& model, const std::string& serial, const std::string& assembly) const {
    Identity("case $1 in\n-m) echo '" + model + "';;\n-s) echo '" + serial + "';;\n-w) echo '" + assembly +
             "';;\nesac");
}

void CameraFolder::Version(const std::string& text) const {
    Write(_folder / ORVEX_VERSION_FILE, text);
}

void CameraFolder::RestartScript(const std::string& body, mode_t mode) const {
    WriteScript(_folder / ORVEX_RESTART_SCRIPT, body, mode);
}

void CameraFolder::HideOtherPrograms() const {
    setenv("PATH", _folder.c_str(), 1);
}

void CameraFolder::RefuseCommands() const {
    s_refuseCommands = true;
}

void CameraFolder::ThrowInCommands(int piece, bool throwsInt) const {
    s_throwAt = piece;
    s_throwsInt = throwsInt;
}

std::string CameraFolder::Read(const std::string& file) const {
    std::ostringstream text;
    text << std::ifstream(_folder / file).rdbuf();
    return text.str();
}
