// The desk camera's process.

#include <malloc.h>
#include <systemd/sd-daemon.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>

#include "Configuration.h"
#include "Dome.h"
#include "StateFolder.h"

namespace {

constexpr const char* kUsage = R"(usage: orvex-dome --state DIR [--bus ADDRESS] [OPTION VALUE]...

  --config FILE         what the camera can do, as dome/desk.toml describes it (default: the same values)
  --console-port N      TCP port of the page that shows the camera (default 0: none)
  --console-address IP  where the page is served (default 127.0.0.1: to this machine only)
  --agent-port N        UDP port of the agent in front of the camera, for commands that the page shows (default 1161);
                        when it is given, the page says whether that agent answers
)";

std::atomic<bool> s_stop{false};

void OnSignal(int /*signal*/) {
    s_stop = true;
}

void CatchSignals() {
    struct sigaction action {};
    action.sa_handler = OnSignal;  // without SA_RESTART: a signal must end the wait for the bus
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

struct Options {
    std::string state;
    std::string bus;
    std::string configuration;       // empty: none
    dome::console::Options console;  // port 0: no console
};

std::optional<std::uint16_t> ParsePort(const std::string& text) {
    std::uint16_t port = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), port);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) return std::nullopt;
    return port;
}

std::optional<Options> ParseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--state") {
            options.state = argv[i + 1];
        } else if (name == "--bus") {
            options.bus = argv[i + 1];
        } else if (name == "--config") {
            options.configuration = argv[i + 1];
        } else if (name == "--console-address") {
            options.console.address = argv[i + 1];
        } else if (name == "--console-port" || name == "--agent-port") {
            const std::optional<std::uint16_t> port = ParsePort(argv[i + 1]);
            if (!port) return std::nullopt;
            (name == "--agent-port" ? options.console.agentPort : options.console.port) = *port;
            if (name == "--agent-port") options.console.watchesAgent = *port != 0;
        } else {
            return std::nullopt;
        }
    }
    if (argc % 2 == 0 || options.state.empty()) return std::nullopt;
    return options;
}

/// The absolute path of the environment's store, or else of the state folder's. Sets it in the environment, where the
/// settings client reads it.
std::string SettingsStore(const std::string& folder) {
    const char* const given = std::getenv("TAVOS_SETTINGS_STORE");
    const std::string store = given && *given ? std::string(given) : folder + "/settings.db";
    setenv("TAVOS_SETTINGS_STORE", std::filesystem::absolute(store).c_str(), 1);
    return std::filesystem::absolute(store).string();
}

}  // namespace

int main(int argc, char** argv) {
    const std::optional<Options> options = ParseOptions(argc, argv);
    if (!options) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    // Without this, malloc never returns the memory of one large answer.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    try {
        const std::string address = dome::BusAddress(options->state);
        const dome::Configuration configuration =
            options->configuration.empty() ? dome::Configuration() : dome::ReadConfiguration(options->configuration);
        const std::string store = SettingsStore(options->state);
        dome::Dome dome(options->bus.empty() ? address : options->bus, configuration, store);
        if (options->console.port != 0) dome.OpenConsole(options->console);
        CatchSignals();
        std::puts("ready");
        std::fflush(stdout);
        sd_notify(0, "READY=1");  // for systemd, where it has started this process
        dome.Run(s_stop);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvex-dome: %s\n", error.what());
        return 1;
    }
}
