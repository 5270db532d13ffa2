// Loaded into the desk camera by bench/dome_cost (LD_PRELOAD): measures how long the camera itself is busy with a
// message.
//
// A message arrives after the camera's thread last looked and found none. So the thread's processor time from that look
// until it hands the answer to the bus is the max time that its own work delayed the message: the rest of a tick, a
// state for the consoles, and the call. Sleep does not count, nor does time in which the thread could not run.
//
// Each answer appends a double, microseconds, to the file that ORVEX_OWN_TIME names.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

double ThreadMicroseconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

// The first thread handles the bus; another thread handles the consoles' sockets.
bool IsBusThread() {
    return gettid() == getpid();
}

int OpenFile() {
    const char* const name = std::getenv("ORVEX_OWN_TIME");
    return name ? open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600) : -1;
}

double s_lastLook = 0;
bool s_isAsked = false;

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" ssize_t recvmsg(int socket, msghdr* message, int flags) {
    static const auto s_next = Next<decltype(recvmsg)>("recvmsg");
    const ssize_t result = s_next(socket, message, flags);
    const int error = errno;
    if (IsBusThread()) {
        if (result > 0) s_isAsked = true;
        if (result < 0 && error == EAGAIN) s_lastLook = ThreadMicroseconds();
    }
    errno = error;
    return result;
}

extern "C" ssize_t sendmsg(int socket, const msghdr* message, int flags) {
    static const auto s_next = Next<decltype(sendmsg)>("sendmsg");
    static const int s_file = OpenFile();
    const ssize_t result = s_next(socket, message, flags);
    const int error = errno;
    if (IsBusThread() && s_isAsked && s_file >= 0) {
        const double own = ThreadMicroseconds() - s_lastLook;
        s_isAsked = false;
        if (write(s_file, &own, sizeof own) != sizeof own) std::abort();
    }
    errno = error;
    return result;
}
