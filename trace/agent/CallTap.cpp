#include "trace/agent/CallTap.h"

#include <dlfcn.h>

namespace trace {

bool TapCalls(tavos::msgbus::CallObserver observer) noexcept {
    // Not linked: this module works in agents without the platform, too.
    void* const library = dlopen("libtavos.so.0", RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) return false;
    const auto observe = reinterpret_cast<decltype(&tavos_observe_calls)>(dlsym(library, "tavos_observe_calls"));
    if (observe != nullptr) observe(observer);
    dlclose(library);
    return observe != nullptr;
}

}  // namespace trace
