#pragma once

#include "tavos/core/Logger.h"

/// The module itself. The agent's first load creates it, and it creates everything else. Agent's thread only.
class OrvexSnmpMain {
public:
    /// Creates the trap queue and the device; the device creates every provider. Throws tavos::osa::Exception for a
    /// second instance, and passes on what a constructor throws.
    OrvexSnmpMain();
    /// Does not reset the instance pointer (see ForgetInstance), and destroys nothing that the constructor created.
    virtual ~OrvexSnmpMain();
    OrvexSnmpMain(const OrvexSnmpMain&) = delete;
    OrvexSnmpMain& operator=(const OrvexSnmpMain&) = delete;

    static OrvexSnmpMain* GetInstance() { return s_instance; }

    /// Call it after the destructor, before creating another instance. Nothing in the module destroys it.
    static void ForgetInstance() { s_instance = nullptr; }

    /// Requires an instance.
    static tavos::core::Logger* GetLogger() { return s_instance->_logger; }

private:
    static OrvexSnmpMain* s_instance;

    tavos::core::Logger* _logger;
};

extern "C" {

/// The agent calls this after loading the module. 0, or -1 when the agent refuses a registration. The first call starts
/// the module; a constructor's exception leaves it and ends the agent's start. A call after deinit_orvexsnmp reuses the
/// existing objects: it reads identity and configuration again, keeps old values that cannot be read, registers
/// everything again, and throws nothing.
__attribute__((visibility("default"))) int init_orvexsnmp();

/// The agent calls this before it unloads the module, and at each reload of its configuration. Unregisters everything
/// and leaves the agent's main loop. The module's objects with their state, their clients and the event thread stay for
/// the next init_orvexsnmp.
__attribute__((visibility("default"))) int deinit_orvexsnmp();
}
