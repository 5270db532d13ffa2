#pragma once

#include "tavos/core/Logger.h"

/// The module itself: made once when the agent loads it, it makes everything else. Agent's thread only.
class OrvexSnmpMain {
public:
    /// Makes the trap queue and the device, and through the device every provider. Throws tavos::osa::Exception for
    /// a second instance, and whatever one of the constructors throws.
    OrvexSnmpMain();
    /// Leaves the instance pointer as it is (see ForgetInstance), and everything that the constructor made.
    virtual ~OrvexSnmpMain();
    OrvexSnmpMain(const OrvexSnmpMain&) = delete;
    OrvexSnmpMain& operator=(const OrvexSnmpMain&) = delete;

    static OrvexSnmpMain* GetInstance() { return s_instance; }

    /// For the unloading of the module, after the destructor.
    static void ForgetInstance() { s_instance = nullptr; }

    /// Only once there is an instance.
    static tavos::core::Logger* GetLogger() { return s_instance->_logger; }

private:
    static OrvexSnmpMain* s_instance;

    tavos::core::Logger* _logger;
};

extern "C" {

/// What the agent calls after loading. 0, or -1 when the agent refuses a registration; an exception of a constructor
/// leaves it and ends the agent's start.
__attribute__((visibility("default"))) int init_orvexsnmp();

/// What the agent calls before it unloads the module, as it does when it reads its configuration again: takes back
/// every registration, descriptor and thread, so that the module can be loaded anew in the same process.
__attribute__((visibility("default"))) int deinit_orvexsnmp();
}
