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

    /// After the destructor, for whoever makes another one. Nothing in the module destroys it.
    static void ForgetInstance() { s_instance = nullptr; }

    /// Only once there is an instance.
    static tavos::core::Logger* GetLogger() { return s_instance->_logger; }

private:
    static OrvexSnmpMain* s_instance;

    tavos::core::Logger* _logger;
};

extern "C" {

/// What the agent calls after loading. 0, or -1 when the agent refuses a registration.
/// The first call starts the module; an exception of a constructor leaves it and ends the agent's start. A call after
/// deinit_orvexsnmp goes on with what the start has made: it reads identity and configuration again, keeps what cannot
/// be read, registers everything anew, and throws nothing.
__attribute__((visibility("default"))) int init_orvexsnmp();

/// What the agent calls before it unloads the module, as it does when it reads its configuration again: takes back
/// every registration and leaves the agent's main loop. The module's objects, their clients and the event thread stay
/// for the next init_orvexsnmp, and so does what they remember.
__attribute__((visibility("default"))) int deinit_orvexsnmp();
}
