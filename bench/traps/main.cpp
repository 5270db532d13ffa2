// bench-traps: measures how fast events become traps. Replaces the camera's temperature service on the bus, emits
// changes whose readings count up, receives the traps, and prints the results as JSON.

#include <poll.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "load/Ber.h"
#include "load/Histogram.h"
#include "load/Options.h"
#include "load/Udp.h"
#include "tavos/core/Event.h"
#include "tavos/interfaces/ITemperatureV2Provider.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/ServiceHost.h"

namespace {

using bench::Clock;
using bench::Seconds;

constexpr const char* kUsage = R"(usage: bench-traps --address BUS --port TRAP-PORT [--count N] [--rate EVENTS-A-SECOND]

  Without a rate the events are emitted as fast as the bus takes them.
)";

class Thermometer final : public tavos::interfaces::ITemperatureV2Provider {
public:
    int GetTemperatureDegreesCelsius(int) override { return 0; }
    tavos::core::Event2<int, int>& OnTemperatureChange() override { return _change; }

private:
    tavos::core::Event2<int, int> _change;
};

/// Receives the traps on its own thread, until all have arrived or none arrives before a timeout.
class Sink {
public:
    Sink(std::uint16_t port, std::size_t count) : arrivals(count) {
        _socket.Bind(port);
        _thread = std::thread([this] { Run(); });
    }
    ~Sink() { Join(); }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    void Join() {
        if (_thread.joinable()) _thread.join();
    }

    bool Done() const { return _done; }

    std::vector<Clock::time_point> arrivals;  ///< by the event's number; the clock's origin for a missing one
    std::size_t received = 0;
    std::size_t disordered = 0;  ///< arrived after a later event's trap
    std::size_t strange = 0;     ///< unknown or duplicate traps

private:
    void Run() {
        constexpr int kPatience = 3000;  // milliseconds
        pollfd watched{_socket.Descriptor(), POLLIN, 0};
        while (received < arrivals.size() && poll(&watched, 1, kPatience) > 0) {
            std::array<char, 2048> octets{};
            const ssize_t length = recv(_socket.Descriptor(), octets.data(), octets.size(), 0);
            if (length > 0) Take({octets.data(), static_cast<std::size_t>(length)});
        }
        _done = true;
    }

    void Take(std::string_view datagram) {
        const auto now = Clock::now();
        bench::Message trap;
        std::string_view name;
        bench::Element value;
        bool whole = bench::ParseMessage(datagram, bench::kTrap, trap);
        for (int binding = 0; whole && binding < 3; ++binding) whole = bench::TakeBinding(trap.bindings, name, value);
        const std::size_t number = whole ? bench::Number(value.content) : arrivals.size();
        if (number >= arrivals.size() || arrivals[number] != Clock::time_point()) {
            ++strange;
            return;
        }
        arrivals[number] = now;
        ++received;
        if (number < _last) ++disordered;
        _last = number;
    }

    bench::Udp _socket;
    std::size_t _last = 0;
    std::atomic<bool> _done{false};
    std::thread _thread;
};

void Run(const bench::Options& options) {
    const auto count = static_cast<std::size_t>(options.Number("count", 10000));
    const double rate = options.Number("rate", 0);
    Thermometer thermometer;
    tavos::msgbus::ServiceHost host(options.Text("address"));
    tavos::interfaces::Serve(host, thermometer);
    Sink sink(static_cast<std::uint16_t>(options.Number("port", 0)), count);

    constexpr std::size_t kMaxAtOnce = 100;
    std::vector<Clock::time_point> emitted;
    emitted.reserve(count);
    const auto start = Clock::now();
    while (!sink.Done()) {
        const auto due = rate > 0 ? static_cast<std::size_t>(Seconds(Clock::now() - start) * rate) : count;
        for (std::size_t i = 0; i < kMaxAtOnce && emitted.size() < std::min(due, count); ++i) {
            emitted.push_back(Clock::now());
            thermometer.OnTemperatureChange().Fire(0, static_cast<int>(emitted.size() - 1));
        }
        host.Process(rate > 0 || emitted.size() == count ? 1 : 0);
    }
    sink.Join();

    bench::Histogram times;
    auto last = start;
    for (std::size_t i = 0; i < emitted.size(); ++i) {
        if (sink.arrivals[i] == Clock::time_point()) continue;
        times.Add(static_cast<std::uint64_t>(std::chrono::nanoseconds(sink.arrivals[i] - emitted[i]).count()));
        last = std::max(last, sink.arrivals[i]);
    }
    const double emitting = emitted.empty() ? 0 : Seconds(emitted.back() - start);
    std::printf(
        "{\"events\":%zu,\"traps\":%zu,\"disordered\":%zu,\"strange\":%zu,\"emitting_seconds\":%.6f,\"seconds\":%.6f,"
        "\"histogram\":",
        emitted.size(), sink.received, sink.disordered, sink.strange, emitting, Seconds(last - start));
    times.Print(stdout);
    std::puts("}");
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv, 1);
    if (argc < 5 || !options.words.empty()) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    try {
        Run(options);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-traps: %s\n", error.what());
        return 1;
    }
}
