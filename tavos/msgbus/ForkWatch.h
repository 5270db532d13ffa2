#pragma once

#include <functional>

namespace tavos::msgbus {

/// Runs functions before and after each fork while the object lives. snmpd forks into the background after it has
/// loaded the modules: the child has only the forking thread, and the bus library refuses connections that another
/// process opened. Declare it as the last member, so that it never outlives the members that its functions use.
class ForkWatch {
public:
    struct Functions {
        std::function<void()> before;    ///< locks what must be free in the child
        std::function<void()> inParent;  ///< unlocks it
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
