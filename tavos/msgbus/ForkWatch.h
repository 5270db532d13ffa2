#pragma once

#include <functional>

namespace tavos::msgbus {

/// What is to be done around a fork, for as long as the object lives. snmpd turns itself into a daemon by forking after
/// the modules are loaded: the child has no threads but its own, and the bus library refuses connections that another
/// process has opened. Declare it as the last member, so that it never outlives what its functions use.
class ForkWatch {
public:
    struct Functions {
        std::function<void()> before;    ///< takes the locks that the child needs free
        std::function<void()> inParent;  ///< gives them back
        std::function<void()> inChild;
    };

    explicit ForkWatch(Functions functions);
    ~ForkWatch();
    ForkWatch(const ForkWatch&) = delete;
    ForkWatch& operator=(const ForkWatch&) = delete;

    const Functions& Actions() const { return _functions; }

private:
    Functions _functions;
};

}  // namespace tavos::msgbus
