#pragma once

#include <deque>

#include "core/NetSnmp.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Mutex.h"

/// Carries traps from the platform's event threads to the agent's thread, the only one that may send them: a locked
/// queue, and a pipe with one byte for each queued trap whose read end the agent's main loop watches.
class OrvexSnmpTrapSend {
public:
    /// Agent's thread. Ends the process when there is an instance already.
    OrvexSnmpTrapSend();
    /// Agent's thread. Frees the traps that were not sent. Leaves the instance pointer as it is (see ForgetInstance).
    virtual ~OrvexSnmpTrapSend();
    OrvexSnmpTrapSend(const OrvexSnmpTrapSend&) = delete;
    OrvexSnmpTrapSend& operator=(const OrvexSnmpTrapSend&) = delete;

    static OrvexSnmpTrapSend* GetInstance() { return s_instance; }

    /// After the destructor, for whoever makes another one. Nothing in the module destroys it.
    static void ForgetInstance() { s_instance = nullptr; }

    /// Any thread. Takes ownership of a finished variable list, snmpTrapOID.0 first; traps are sent in the order of
    /// these calls. Always returns 0. Blocks while the pipe is full, that is, while 4096 traps wait. Without a pipe, or
    /// without memory, a trap that cannot be kept is dropped.
    int send_v2trap(netsnmp_variable_list* list);

    /// Agent's thread: the main loop's callback for the read descriptor.
    static void snmpMainCallback(int descriptor, void* data);

    /// Agent's thread: sends and frees everything that is queued.
    void CallSnmpSendTrap();

    /// Agent's thread, for the unloading of the module: sends what is queued and leaves the main loop. What comes later
    /// waits for Resume.
    void Suspend();

    /// Agent's thread: joins the main loop again, with a new pipe where there was none.
    void Resume();

private:
    void OpenPipe();
    void WatchPipe();
    /// Queues a trap, or frees it where it cannot be kept. The descriptor to which its byte goes, or -1.
    int Keep(netsnmp_variable_list* list);

    /// In a forked child, which the agent is once it has made itself a daemon: a pipe of its own, with a byte for each
    /// trap that it has inherited. In the one that it shares with its parent it would find, and never get rid of, the
    /// bytes for traps that the parent's event thread queues before the parent ends.
    void RenewPipe();

    static OrvexSnmpTrapSend* s_instance;
    static OrvexSnmpTrapSend* s_inChild;  // whose pipe a forked child renews; null once it is destroyed

    tavos::core::Logger* _logger;
    int _readDescriptor = -1;
    int _writeDescriptor = -1;
    tavos::osa::Mutex _mutex;
    std::deque<netsnmp_variable_list*> _queue;
};
