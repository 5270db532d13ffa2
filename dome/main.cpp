// The desk camera's process.

#include <malloc.h>
#include <sys/eventfd.h>
#include <systemd/sd-daemon.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>

#include "Configuration.h"
#include "Dome.h"
#include "StateFolder.h"
#include "tavos/core/CommandLine.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"

namespace {

std::atomic<bool> s_stop{false};
int s_stopping = -1;  // readable when s_stop is set

void OnSignal(int /*signal*/) {
    const int before = errno;
    s_stop = true;
    eventfd_write(s_stopping, 1);
    errno = before;
}

void CatchSignals() {
    s_stopping = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (s_stopping < 0) throw tavos::osa::Exception("no descriptor for signals: %s", std::strerror(errno));
    struct sigaction action {};
    action.sa_handler = OnSignal;
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

/// The exit status when the program must end now.
std::optional<int> ParseOptions(int argc, char** argv, Options& options) {
    tavos::core::CommandLine line("orvex-dome", "Desk camera: a camera's services on a bus, with a model behind them.");
    const auto add = [&line](const char* name, const char* type, auto& value, const char* help) {
        return line.add_option(name, value, help)->type_name(type);
    };
    const CLI::Validator port = CLI::Range(0, 65535).description("");
    const CLI::Validator hostName(
        [](const std::string& name) {
            const bool isName = !name.empty() && name.find_first_of(":/") == std::string::npos;
            return isName ? "" : "requires a host name without port and path, not '" + name + '\'';
        },
        "");
    add("--state", "DIR", options.state, "the camera's folder")->required();
    add("--bus", "ADDRESS", options.bus, "the bus (default: the one in DIR)");
    add("--config", "FILE", options.configuration, "what the camera can do; dome/desk.toml describes it");
    add("--console-port", "N", options.console.port, "TCP port of the page (default 0: none)")->check(port);
    add("--console-address", "IP", options.console.address, "where the page is served (default 127.0.0.1)");
    add("--trace", "SOCKET", options.console.trace.socket,
        "where the agent's companion offers the trace, for the page (default: trace.sock in DIR)");
    add("--console-name", "NAME", options.console.names, "a further host name under which the page is reached")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(hostName);
    add("--agent-address", "IP", options.console.agent.address, "IPv4 address of that agent (default 127.0.0.1)")
        ->check(CLI::ValidIPV4.description(""));
    add("--agent-community", "NAME", options.console.agent.community, "a community that it lets read (default public)");
    const CLI::Option* const agent =
        add("--agent-port", "N", options.console.agent.port,
            "UDP port of the agent in front of it, for commands that the page shows (default 1161);\n"
            "when it is given, the page says whether that agent answers")
            ->check(port);
    const std::optional<int> status = line.Parse(argc, argv);
    options.console.watchesAgent = agent->count() > 0 && options.console.agent.port != 0;
    if (options.console.trace.socket.empty()) options.console.trace.socket = options.state + "/trace.sock";
    if (!options.state.empty()) options.console.fleet = dome::FleetOf(options.state);
    options.console.trace.configuration = options.state + "/snmpd.conf";
    return status;
}

/// The absolute path of the environment's store, or else of the state folder's. Sets it in the environment, where the
/// settings client reads it.
std::string SettingsStore(const std::string& folder) {
    const char* const given = std::getenv("TAVOS_SETTINGS_STORE");
    const std::string store = given && *given ? std::string(given) : folder + "/settings.db";
    setenv("TAVOS_SETTINGS_STORE", std::filesystem::absolute(store).c_str(), 1);
    return std::filesystem::absolute(store).string();
}

/// When the console sends a command, net-snmp must read no MIB and no configuration, and make no folder. It reads these
/// at its start; no other thread may run yet.
void KeepNetSnmpFromFiles() {
    setenv("MIBS", "", 1);
    setenv("MIBDIRS", "", 1);
    setenv("SNMPCONFPATH", "/dev/null", 1);
    setenv("SNMP_PERSISTENT_DIR", "/dev/null", 1);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (const std::optional<int> status = ParseOptions(argc, argv, options)) return *status;
    // Without this, malloc never returns the memory of one large answer.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    tavos::core::Logger::EnableDebugLogging();
    tavos::core::Logger::GetLogger("orvex-dome")->Information("version " ORVEX_VERSION);
    try {
        const std::string address = dome::BusAddress(options.state);
        const dome::Configuration configuration =
            options.configuration.empty() ? dome::Configuration() : dome::ReadConfiguration(options.configuration);
        const std::string store = SettingsStore(options.state);
        KeepNetSnmpFromFiles();
        dome::Dome dome(options.bus.empty() ? address : options.bus, configuration, store);
        if (options.console.port != 0) dome.OpenConsole(options.console);
        CatchSignals();
        dome.WakeOn(s_stopping);
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
