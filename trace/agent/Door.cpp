#include "trace/agent/Door.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "trace/agent/NetSnmp.h"

namespace trace {

namespace {

/// Closes what it holds at the end of its block.
class Descriptor {
public:
    explicit Descriptor(int number) : _number(number) {}
    ~Descriptor() {
        if (_number >= 0) close(_number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    operator int() const { return _number; }

private:
    const int _number;
};

int MakeSocket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Makes room for a new socket: only a socket on which nobody listens may go.
bool RemoveDead(const std::string& path, const sockaddr_un& address, std::string& reason) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) return true;
        reason = std::strerror(errno);
        return false;
    }
    if (!S_ISSOCK(status.st_mode)) {
        reason = "there is something else that is no socket; remove it or name another path";
        return false;
    }
    const Descriptor probe(MakeSocket());
    if (probe < 0) {
        reason = std::strerror(errno);
        return false;
    }
    const int result = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (result == 0 || errno == EAGAIN) {
        reason = "another agent listens there; name another path";
        return false;
    }
    if (errno != ECONNREFUSED || unlink(path.c_str()) != 0) {
        reason = std::string("a dead socket there cannot be removed: ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace

Door::~Door() {
    Unwatch();
    Close();
}

void Door::Close() noexcept {
    for (int* descriptor : {&_listener, &_life[0], &_life[1]}) {
        if (*descriptor >= 0) close(*descriptor);
        *descriptor = -1;
    }
}

bool Door::Bind(const std::string& path, std::string& reason) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        reason = "the path is longer than " + std::to_string(sizeof address.sun_path - 1) + " bytes";
        return false;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    // Of two agents that start at once, the second must see the first one's socket.
    const Descriptor folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder >= 0 && flock(folder, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        reason = "the folder is locked by another agent that starts; reload this one";
        return false;
    }
    if (!RemoveDead(path, address, reason)) return false;
    _listener = MakeSocket();
    // The mode that the socket file will have.
    if (_listener < 0 || fchmod(_listener, 0600) != 0 ||
        bind(_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(_listener, 64) != 0) {
        reason = std::strerror(errno);
        return false;
    }
    if (_listener >= FD_SETSIZE) {  // the main loop of agents before 5.5 would write behind its set
        reason = "too many files are open in the agent";
        return false;
    }
    return true;
}

bool Door::Open(const std::string& path, int ring, std::string& reason) {
    if (pipe2(_life, O_CLOEXEC | O_NONBLOCK) != 0) {
        reason = std::strerror(errno);
        return false;
    }
    if (!Bind(path, reason)) {
        Close();
        return false;
    }
    _ring = ring;
    return true;
}

bool Door::Watch() noexcept {
    if (!_watched && IsOpen()) _watched = register_readfd(_listener, &Door::OnReadable, this) == 0;
    return _watched;
}

void Door::Unwatch() noexcept {
    if (_watched) unregister_readfd(_listener);
    if (_alarm != 0) snmp_alarm_unregister(_alarm);
    _watched = false;
    _alarm = 0;
}

void Door::OnReadable(int /*listener*/, void* self) {
    static_cast<Door*>(self)->Serve();
}

void Door::OnAlarm(unsigned int /*alarm*/, void* self) {
    auto& door = *static_cast<Door*>(self);
    door._alarm = 0;
    if (!door.Watch()) door.Rest();
}

void Door::Serve() noexcept {
    constexpr int kMaxAtOnce = 16;  // requests come first
    for (int i = 0; i < kMaxAtOnce; ++i) {
        const int reader = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (reader >= 0) {
            Hand(reader);
            close(reader);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            Rest();
            return;
        }
    }
}

/// A connection that cannot be accepted, for instance for lack of descriptors, keeps the socket readable: the main loop
/// would spin.
void Door::Rest() noexcept {
    Unwatch();
    _alarm = snmp_alarm_register(1, 0, &Door::OnAlarm, this);
}

void Door::Hand(int reader) const noexcept {
    char octet = 'R';
    iovec text{&octet, 1};
    const int descriptors[2] = {_ring, _life[0]};
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof descriptors)] = {};
    msghdr message{};
    message.msg_iov = &text;
    message.msg_iovlen = 1;
    message.msg_control = room;
    message.msg_controllen = sizeof room;
    cmsghdr* const head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(head), descriptors, sizeof descriptors);
    // A reader that gets nothing sees the end of the connection and may connect again.
    static_cast<void>(sendmsg(reader, &message, MSG_NOSIGNAL | MSG_DONTWAIT));
}

}  // namespace trace
