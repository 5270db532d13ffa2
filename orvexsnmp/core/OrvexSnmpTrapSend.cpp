#include "core/OrvexSnmpTrapSend.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

using tavos::core::Logger;
using tavos::osa::kWaitForever;

namespace {

/// Traps, one byte each in the pipe; it is a pipe's smallest size. A waiting trap takes about 2.4 kB, which the process
/// does not give back; an event that still waits in the bus takes a quarter of that.
constexpr int kMostWaiting = 4096;

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

    // Close-on-exec: the restart script and other children must not keep the pipe open.
    int descriptors[2] = {-1, -1};
    if (pipe2(descriptors, O_CLOEXEC) != 0) _logger->Error("%s: Could not create pipe!", "OrvexSnmpTrapSend");
    fcntl(descriptors[1], F_SETPIPE_SZ, kMostWaiting);
    _readDescriptor = descriptors[0];
    _writeDescriptor = descriptors[1];
    // The agent's main loop does not survive a descriptor of -1.
    if (_readDescriptor == -1 || register_readfd(_readDescriptor, &OrvexSnmpTrapSend::snmpMainCallback, nullptr) != 0) {
        _logger->Error("%s: Couldn't register the callback function for sending traps!", "OrvexSnmpTrapSend");
    }
    static const int watchesForks = pthread_atfork(nullptr, nullptr, [] {
        if (s_inChild != nullptr) s_inChild->RenewPipe();
    });
    static_cast<void>(watchesForks);
    s_inChild = this;
    _logger->Trace("%s: Done.", "OrvexSnmpTrapSend");
}

OrvexSnmpTrapSend::~OrvexSnmpTrapSend() {
    if (s_inChild == this) s_inChild = nullptr;
    // Unregistered before it is closed: the agent ends when a descriptor that it watches is closed.
    if (_readDescriptor != -1) {
        unregister_readfd(_readDescriptor);
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
    for (std::size_t i = 0; i < _queue.size(); ++i) static_cast<void>(!write(descriptors[1], "1", 1));
    fcntl(descriptors[1], F_SETPIPE_SZ, kMostWaiting);
    // The agent's main loop goes on watching the same number.
    dup3(descriptors[0], _readDescriptor, O_CLOEXEC);
    dup3(descriptors[1], _writeDescriptor, O_CLOEXEC);
    close(descriptors[0]);
    close(descriptors[1]);
}

int OrvexSnmpTrapSend::send_v2trap(netsnmp_variable_list* list) {
    _logger->Trace("%s: enter...", "send_v2trap");
    _mutex.Lock(kWaitForever);
    const bool closed = _closed;
    if (!closed) _queue.push_back(list);
    _mutex.Release();
    if (closed) {
        snmp_free_varbind(list);
        return 0;
    }

    // Without the lock, so that a full pipe never keeps the agent's thread from emptying it.
    const char byte = '1';
    while (write(_writeDescriptor, &byte, 1) == -1 && errno == EINTR) {
    }
    _logger->Trace("%s: Done.", "send_v2trap");
    return 0;
}

void OrvexSnmpTrapSend::snmpMainCallback(int /*descriptor*/, void* /*data*/) {
    auto* trapSend = GetInstance();
    trapSend->_logger->Trace("%s: enter...", "snmpMainCallback");
    trapSend->CallSnmpSendTrap();
    trapSend->_logger->Trace("%s: Done.", "snmpMainCallback");
}

void OrvexSnmpTrapSend::CallSnmpSendTrap() {
    _logger->Trace("%s: enter...", "CallSnmpSendTrap");
    _mutex.Lock(kWaitForever);
    while (!_queue.empty()) {
        // One byte for one trap. It may still be on its way from the thread that queued the trap.
        char byte;
        while (read(_readDescriptor, &byte, 1) == -1 && errno == EINTR) {
        }
        _logger->Information("%s: Calling into snmp code to send trap.", "CallSnmpSendTrap");
        ::send_v2trap(_queue.front());
        snmp_free_varbind(_queue.front());
        _logger->Information("%s: Removing from queue...", "CallSnmpSendTrap");
        _queue.pop_front();
    }
    _mutex.Release();
    _logger->Trace("%s: Done.", "CallSnmpSendTrap");
}

void OrvexSnmpTrapSend::Close() {
    _mutex.Lock(kWaitForever);
    _closed = true;
    _mutex.Release();
    CallSnmpSendTrap();
}
