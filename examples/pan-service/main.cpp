// Serves the camera's pan axis on the bus.

#include <tavos/interfaces/Serve.h>
#include <tavos/msgbus/ServiceHost.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "Pan.h"

namespace {

volatile std::sig_atomic_t s_stop = 0;

void OnSignal(int /*signal*/) {
    s_stop = 1;
}

}  // namespace

int main() {
    std::signal(SIGTERM, OnSignal);
    std::signal(SIGINT, OnSignal);
    try {
        const char* const bus = std::getenv("TAVOS_BUS_ADDRESS");
        Pan pan;                                          // must outlive the host
        tavos::msgbus::ServiceHost host(bus ? bus : "");  // empty: the system bus
        tavos::interfaces::Serve(host, pan);
        std::puts("ready");
        std::fflush(stdout);
        // A signal that arrives just before the wait is noticed when the wait ends.
        while (!s_stop) host.Process(500);  // milliseconds
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pan-service: %s\n", error.what());
        return 1;
    }
    return 0;
}
