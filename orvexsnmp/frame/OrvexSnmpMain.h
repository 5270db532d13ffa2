#pragma once

#include "tavos/core/Logger.h"

/// The module. The agent's first load creates it; it creates all other objects. Agent's thread only.
class OrvexSnmpMain {
public:
    /// Creates the trap queue and the device; the device creates every provider. Throws tavos::osa::Exception for a
    /// second instance, and any exception of their constructors.
    OrvexSnmpMain();
    /// Does not reset the instance pointer (see ForgetInstance) and does not destroy the objects that the constructor
    /// created.
    virtual ~OrvexSnmpMain();
    OrvexSnmpMain(const OrvexSnmpMain&) = delete;
    OrvexSnmpMain& operator=(const OrvexSnmpMain&) = delete;

    static OrvexSnmpMain* GetInstance() { return s_instance; }

    /// Call it after the destructor and before the next instance is created. Nothing in the module destroys the
    /// instance.
    static void ForgetInstance() { s_instance = nullptr; }

    /// Requires an instance.
    static tavos::core::Logger* GetLogger() { return s_instance->_logger; }

private:
    static OrvexSnmpMain* s_instance;

    tavos::core::Logger* _logger;
};

extern "C" {

/// The agent calls this after loading the module. Returns 0, or -1 if the agent refuses a registration. The first call
/// starts the module; it lets a constructor's exception through, which ends the agent's start. A call after
/// deinit_orvexsnmp reuses the existing objects: it reads identity and configuration again, keeps the old value of
/// anything that it cannot read, registers everything again, and never throws.
__attribute__((visibility("default"))) int init_orvexsnmp();

/// The agent calls this before it unloads the module, and at each reload of its configuration. Unregisters everything
/// and leaves the agent's main loop. The module's objects, their state, their clients and the event thread stay for the
/// next init_orvexsnmp.
__attribute__((visibility("default"))) int deinit_orvexsnmp();
}
