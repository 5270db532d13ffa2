#pragma once

#include <deque>

#include "core/NetSnmp.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Mutex.h"

/// Passes traps from the platform's event threads to the agent's thread, the only thread that may send them. It has a
/// queue with a mutex, and a pipe with one byte for each queued trap. The agent's main loop watches the pipe's read
/// end.
class OrvexSnmpTrapSend {
public:
    /// Agent's thread. Ends the process when an instance already exists.
    OrvexSnmpTrapSend();
    /// Agent's thread. Frees the unsent traps. Does not reset the instance pointer (see ForgetInstance).
    virtual ~OrvexSnmpTrapSend();
    OrvexSnmpTrapSend(const OrvexSnmpTrapSend&) = delete;
    OrvexSnmpTrapSend& operator=(const OrvexSnmpTrapSend&) = delete;

    static OrvexSnmpTrapSend* GetInstance() { return s_instance; }

    /// Call it after the destructor and before the next instance is created. Nothing in the module destroys the queue.
    static void ForgetInstance() { s_instance = nullptr; }

    /// Any thread. Takes ownership of a complete variable list, snmpTrapOID.0 first. Traps are sent in the order of
    /// these calls. Always returns 0. Blocks while the pipe is full: while 4096 traps wait. Drops the trap if memory
    /// runs out, or if 4096 traps wait and no main loop watches a pipe.
    int send_v2trap(netsnmp_variable_list* list);

    /// Agent's thread: the main loop's callback for the read descriptor.
    static void snmpMainCallback(int descriptor, void* data);

    /// Agent's thread: sends and frees everything that is queued.
    void CallSnmpSendTrap();

    /// Agent's thread, when the module is unloaded: sends the queued traps and leaves the main loop. Later traps wait
    /// for Resume in the pipe, as if the main loop watched it.
    void Suspend();

    /// Agent's thread: joins the main loop again; creates the pipe if there is none.
    void Resume();

private:
    void OpenPipe();
    /// Joins the agent's main loop. Writes the bytes that were not written while it was not joined.
    void WatchPipe();
    /// Queues a trap, or frees it when it cannot be queued. Returns the descriptor for the trap's byte, or -1.
    int Keep(netsnmp_variable_list* list);

    /// Takes the byte of one queued trap from the pipe.
    void TakeByte() const;

    /// Runs in a forked child, such as an agent that runs as a daemon. Creates a new pipe with one byte for each
    /// inherited trap. The parent's event thread may still write into the old, shared pipe until the parent ends: the
    /// child could not match those bytes to traps.
    void RenewPipe();

    static OrvexSnmpTrapSend* s_instance;
    static OrvexSnmpTrapSend* s_inChild;  // the instance whose pipe a forked child renews; null once it is destroyed

    tavos::core::Logger* _logger;
    int _readDescriptor = -1;
    int _writeDescriptor = -1;
    tavos::osa::Mutex _mutex;
    std::deque<netsnmp_variable_list*> _queue;
    bool _isWatched = false;  // the agent accepted the pipe: nobody would read the bytes of another one
    int _unwritten = 0;       // queued traps without a byte in the pipe
};
