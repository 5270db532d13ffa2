// bench-bus: the time of a call over the message bus without this project's code, and of alternatives: another broker,
// no broker, a reused message.

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bus/Broker.h"
#include "bus/Pair.h"
#include "bus/Sd.h"
#include "bus/Services.h"
#include "load/Histogram.h"
#include "load/Options.h"
#include "load/Udp.h"

namespace {

using bench::Check;
using bench::MessagePtr;
using bench::Options;
using Clock = std::chrono::steady_clock;

constexpr const char* kUsage =
    R"(usage: bench-bus call WAY [--seconds S] [--reuse 1] [--what temperature|input|count|pan]
       bench-bus echo WAY --port N CALL...
       bench-bus serve --address ADDRESS
       bench-bus serve-peers SOCKET
       bench-bus broker PROGRAM SOCKET

  call         calls a service repeatedly and prints the times as JSON; --reuse 1 sends one message repeatedly
  echo         sends every datagram back, after these calls
  WAY          --address ADDRESS: over that bus. --pair 1: over a plain pair of sockets, to a child
  serve        serves a few objects of a camera on that bus
  serve-peers  serves the same to each client of the socket, without a bus
  broker       runs dbus-broker with a bus at that socket
)";

MessagePtr NewCall(sd_bus* bus, const std::string& what) {
    sd_bus_message* made = nullptr;
    const auto begin = [&](const char* name, const char* path, const char* member) {
        const char* const destination = sd_bus_is_bus_client(bus) > 0 ? name : nullptr;
        Check(sd_bus_message_new_method_call(bus, &made, destination, path, name, member), member);
    };
    if (what == "temperature") {
        begin("org.tavos.Temperature2", "/org/tavos/Temperature2", "GetTemperatureDegreesCelsius");
        Check(sd_bus_message_append(made, "i", 0), "arguments");
    } else if (what == "input") {
        begin("org.tavos.Alarm3", "/org/tavos/Alarm3", "GetAlarmState");
        Check(sd_bus_message_append(made, "si", "BNK2", 0), "arguments");
    } else if (what == "count") {
        begin("org.tavos.Alarm3", "/org/tavos/Alarm3", "GetAlarmCount");
    } else if (what == "pan") {
        begin("org.tavos.Pan1", "/org/tavos/Pan1", "SetPositionAtSpeed");
        Check(sd_bus_message_append(made, "idi", 90000, 0.5, 300), "arguments");
    } else {
        throw std::runtime_error("unknown call " + what);
    }
    return MessagePtr(made);
}

void RoundTrip(sd_bus* bus, sd_bus_message* call) {
    sd_bus_message* answer = nullptr;
    Check(sd_bus_call(bus, call, 0, nullptr, &answer), "the call");
    sd_bus_message_unref(answer);
}

/// Makes the named call and waits for its answer.
using Calling = std::function<void(const std::string& what)>;

/// For these calls, on the way that the options name.
Calling CallingFor(const std::vector<std::string>& calls, const Options& options) {
    if (options.Number("pair", 0) != 0) return bench::OverAPair(calls, NewCall);
    const std::shared_ptr<sd_bus> bus = bench::Connected(options.Text("address"));
    const bool reuse = options.Number("reuse", 0) != 0;
    return [bus, reuse, again = std::shared_ptr<sd_bus_message>()](const std::string& what) mutable {
        if (!reuse || !again) again = NewCall(bus.get(), what);
        RoundTrip(bus.get(), again.get());
    };
}

void Call(const Options& options) {
    const std::string what = options.Text("what", "temperature");
    const Calling call = CallingFor({what}, options);
    const auto once = [&] { call(what); };
    constexpr int kWarmUp = 100;
    for (int i = 0; i < kWarmUp; ++i) once();

    bench::Histogram times;
    unsigned long long count = 0;
    const auto start = Clock::now();
    const auto end = start + std::chrono::duration<double>(options.Number("seconds", 1));
    auto now = start;
    while (now < end) {
        const auto begun = now;
        once();
        now = Clock::now();
        times.Add(static_cast<std::uint64_t>(std::chrono::nanoseconds(now - begun).count()));
        ++count;
    }
    std::printf("{\"requests\":%llu,\"seconds\":%.6f,\"lost\":0,\"errors\":0,\"histogram\":", count,
                std::chrono::duration<double>(now - start).count());
    times.Print(stdout);
    std::puts("}");
}

/// A minimal agent: it waits for a request, calls the service, and answers.
[[noreturn]] void Echo(const Options& options) {
    const Calling call = CallingFor(options.words, options);
    bench::Udp socket;
    socket.Bind(static_cast<std::uint16_t>(options.Number("port", 0)));
    for (const std::string& what : options.words) call(what);
    std::puts("ready");
    std::fflush(stdout);
    while (true) {
        std::array<char, 2048> datagram{};
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t length = recvfrom(socket.Descriptor(), datagram.data(), datagram.size(), 0,
                                        reinterpret_cast<sockaddr*>(&from), &size);
        if (length < 0) continue;
        for (const std::string& what : options.words) call(what);
        sendto(socket.Descriptor(), datagram.data(), static_cast<std::size_t>(length), 0,
               reinterpret_cast<const sockaddr*>(&from), size);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    try {
        const Options options(argc, argv, 2);
        const auto& words = options.words;
        if (command == "call") {
            Call(options);
        } else if (command == "echo" && !words.empty()) {
            Echo(options);
        } else if (command == "serve") {
            bench::ServeOnBus(options.Text("address"));
        } else if (command == "serve-peers" && words.size() == 1) {
            bench::ServePeers(words[0]);
        } else if (command == "broker" && words.size() == 2) {
            return bench::RunBroker(words[0], words[1]);
        } else {
            std::fputs(kUsage, stderr);
            return 2;
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-bus: %s\n", error.what());
        return 1;
    }
}
