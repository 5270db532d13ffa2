#include "StoreWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace dome {

namespace {

// Only the two files are watched for writes: the folder may hold busy logs of other processes.
constexpr unsigned kInFolder =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr unsigned kInFile = IN_MODIFY | IN_ATTRIB;

}  // namespace

StoreWatch::StoreWatch(std::string store)
    : _store(std::move(store)),
      _folder(std::filesystem::path(_store).parent_path().string()),
      _changes(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

StoreWatch::~StoreWatch() {
    Disarm();
    if (_changes >= 0) close(_changes);
}

bool StoreWatch::Arm() {
    Disarm();
    if (_changes < 0) return false;
    ForgetChanges();
    std::error_code error;
    if (std::filesystem::is_symlink(_store, error) || !Watch(_folder, kInFolder)) return false;
    // The folder comes first: a file that appears later changes the folder. Watching a file again replaces its watch.
    for (const std::string& file : {_store, _store + "-wal"}) {
        if (!Watch(file, kInFile) && errno != ENOENT) return false;
    }
    _armed = _set.Add(_changes);
    return _armed;
}

void StoreWatch::Disarm() {
    if (_armed) _set.Remove(_changes);
    _armed = false;
}

bool StoreWatch::Watch(const std::string& path, unsigned events) const {
    return inotify_add_watch(_changes, path.c_str(), events) >= 0;
}

void StoreWatch::ForgetChanges() const {
    alignas(inotify_event) std::array<char, 4096> changes;
    while (read(_changes, changes.data(), changes.size()) > 0) {
    }
}

}  // namespace dome
