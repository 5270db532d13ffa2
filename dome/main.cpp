// The desk camera's process.

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "Dome.h"
#include "StateFolder.h"

namespace {

std::atomic<bool> s_stop{false};

void OnSignal(int /*signal*/) {
    s_stop = true;
}

void CatchSignals() {
    struct sigaction action {};
    action.sa_handler = OnSignal;  // without SA_RESTART: it is to end the wait for the bus
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

struct Options {
    std::string state;
    std::string bus;
};

std::optional<Options> ParseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--state") {
            options.state = argv[i + 1];
        } else if (name == "--bus") {
            options.bus = argv[i + 1];
        } else {
            return std::nullopt;
        }
    }
    if (argc % 2 == 0 || options.state.empty()) return std::nullopt;
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    const std::optional<Options> options = ParseOptions(argc, argv);
    if (!options) {
        std::fputs("usage: orvex-dome --state DIR [--bus ADDRESS]\n", stderr);
        return 2;
    }
    try {
        const std::string address = dome::BusAddress(options->state);
        dome::Dome dome(options->bus.empty() ? address : options->bus);
        CatchSignals();
        std::puts("ready");
        std::fflush(stdout);
        dome.Run(s_stop);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvex-dome: %s\n", error.what());
        return 1;
    }
}
