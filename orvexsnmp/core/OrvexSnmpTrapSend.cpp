#include "core/OrvexSnmpTrapSend.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "core/GuardedHandler.h"

using tavos::core::Logger;
using tavos::osa::kWaitForever;

namespace {

/// Max queued traps: each takes one byte of the pipe, and 4096 is a pipe's min size. A queued trap takes about 2.4 kB,
/// which the process does not return to the system. An event that waits in the bus takes a quarter of that. See
/// docs/contract.md, bounded-traps.
constexpr int kMaxWaiting = 4096;

/// Holds a mutex; releases it also on an exception.
class LockGuard {
public:
    explicit LockGuard(tavos::osa::Mutex& mutex) : _mutex(mutex) { _mutex.Lock(kWaitForever); }
    ~LockGuard() { _mutex.Release(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    tavos::osa::Mutex& _mutex;
};

}  // namespace

OrvexSnmpTrapSend* OrvexSnmpTrapSend::s_instance = nullptr;
OrvexSnmpTrapSend* OrvexSnmpTrapSend::s_inChild = nullptr;

OrvexSnmpTrapSend::OrvexSnmpTrapSend() : _logger(Logger::GetLogger("OrvexSnmp")), _mutex("TrapSend") {
    if (s_instance != nullptr) {
        _logger->Error("%s: Duplicate instance, exiting!", "OrvexSnmpTrapSend");
        std::exit(-1);
    }
    s_instance = this;
    Logger::EnableDebugLogging();
    _logger->Trace("%s: Enter", "OrvexSnmpTrapSend");
    OpenPipe();
    WatchPipe();
    static const int watchesForks = pthread_atfork(nullptr, nullptr, [] {
        // See docs/contract.md, forked-pipe.
        if (s_inChild != nullptr) s_inChild->RenewPipe();
    });
    static_cast<void>(watchesForks);
    s_inChild = this;
    _logger->Trace("%s: Done.", "OrvexSnmpTrapSend");
}

void OrvexSnmpTrapSend::OpenPipe() {
    // Close-on-exec: the restart script and other children must not keep the pipe open.
    int descriptors[2] = {-1, -1};
    if (pipe2(descriptors, O_CLOEXEC) != 0) _logger->Error("%s: Could not create pipe!", "OrvexSnmpTrapSend");
    fcntl(descriptors[1], F_SETPIPE_SZ, kMaxWaiting);
    _readDescriptor = descriptors[0];
    _writeDescriptor = descriptors[1];
}

void OrvexSnmpTrapSend::WatchPipe() {
    // A descriptor of -1 would crash the agent's main loop.
    const bool isWatched =
        _readDescriptor != -1 && register_readfd(_readDescriptor, &OrvexSnmpTrapSend::snmpMainCallback, nullptr) == 0;
    if (!isWatched) {
        _logger->Error("%s: Couldn't register the callback function for sending traps!", "OrvexSnmpTrapSend");
    }
    const LockGuard held(_mutex);
    _isWatched = isWatched;
    for (; _isWatched && _unwritten > 0; --_unwritten) static_cast<void>(!write(_writeDescriptor, "1", 1));
}

OrvexSnmpTrapSend::~OrvexSnmpTrapSend() {
    if (s_inChild == this) s_inChild = nullptr;
    // Unregister before closing: the agent ends when a descriptor that it watches is closed.
    if (_readDescriptor != -1) {
        if (_isWatched) unregister_readfd(_readDescriptor);
        close(_readDescriptor);
        _readDescriptor = -1;
    }
    if (_writeDescriptor != -1) {
        close(_writeDescriptor);
        _writeDescriptor = -1;
    }
    _logger = nullptr;
    while (!_queue.empty()) {
        snmp_free_varbind(_queue.front());
        _queue.pop_front();
    }
}

void OrvexSnmpTrapSend::RenewPipe() {
    int descriptors[2] = {-1, -1};
    if (_readDescriptor == -1 || pipe2(descriptors, O_CLOEXEC) != 0) return;
    const auto written = _queue.size() - static_cast<std::size_t>(_unwritten);
    for (std::size_t i = 0; i < written; ++i) static_cast<void>(!write(descriptors[1], "1", 1));
    fcntl(descriptors[1], F_SETPIPE_SZ, kMaxWaiting);
    // The agent's main loop keeps watching this number.
    dup3(descriptors[0], _readDescriptor, O_CLOEXEC);
    dup3(descriptors[1], _writeDescriptor, O_CLOEXEC);
    close(descriptors[0]);
    close(descriptors[1]);
}

int OrvexSnmpTrapSend::send_v2trap(netsnmp_variable_list* list) {
    _logger->Trace("%s: enter...", "send_v2trap");
    const int descriptor = Keep(list);
    // Write without the lock: the agent's thread needs the lock to empty a full pipe.
    const char byte = '1';
    while (write(descriptor, &byte, 1) == -1 && errno == EINTR) {
    }
    _logger->Trace("%s: Done.", "send_v2trap");
    return 0;
}

int OrvexSnmpTrapSend::Keep(netsnmp_variable_list* list) {
    const LockGuard held(_mutex);
    // Without a pipe that the agent watches nothing wakes its thread, and nothing limits the queue.
    const bool full = !_isWatched && _queue.size() >= std::size_t{kMaxWaiting};
    try {
        if (list != nullptr && !full) {
            _queue.push_back(list);
            if (_isWatched) return _writeDescriptor;
            ++_unwritten;
            return -1;
        }
    } catch (const std::bad_alloc&) {
        // No memory for this trap: drop it.
    }
    snmp_free_varbind(list);
    return -1;
}

void OrvexSnmpTrapSend::snmpMainCallback(int /*descriptor*/, void* /*data*/) {
    constexpr auto kName = "snmpMainCallback";
    try {
        auto* trapSend = GetInstance();
        trapSend->_logger->Trace("%s: enter...", kName);
        trapSend->CallSnmpSendTrap();
        trapSend->_logger->Trace("%s: Done.", kName);
    } catch (...) {
        LogGuardedFailure(kName);
    }
}

/// Waits for the byte: the sending thread may not have written it yet.
void OrvexSnmpTrapSend::TakeByte() const {
    char byte;
    while (read(_readDescriptor, &byte, 1) == -1 && errno == EINTR) {
    }
}

void OrvexSnmpTrapSend::CallSnmpSendTrap() {
    _logger->Trace("%s: enter...", "CallSnmpSendTrap");
    {
        const LockGuard held(_mutex);
        while (!_queue.empty()) {
            if (_unwritten > 0) {
                --_unwritten;
            } else {
                TakeByte();
            }
            _logger->Information("%s: Calling into snmp code to send trap.", "CallSnmpSendTrap");
            ::send_v2trap(_queue.front());
            snmp_free_varbind(_queue.front());
            _logger->Information("%s: Removing from queue...", "CallSnmpSendTrap");
            _queue.pop_front();
        }
    }
    _logger->Trace("%s: Done.", "CallSnmpSendTrap");
}

void OrvexSnmpTrapSend::Suspend() {
    CallSnmpSendTrap();
    if (_isWatched) unregister_readfd(_readDescriptor);
}

void OrvexSnmpTrapSend::Resume() {
    {
        const LockGuard held(_mutex);
        if (_readDescriptor == -1) OpenPipe();
    }
    WatchPipe();
}
