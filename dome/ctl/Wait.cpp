#include "Wait.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "ControlLink.h"
#include "tavos/osa/Exception.h"

namespace dome {

const char* const kWaitUsage = R"(
  wait [AXIS...] [--timeout S]           returns when none of the axes moves; AXIS: pan tilt zoom focus iris, all of
                                         them unless given; fails after S seconds (60 unless given)
      --timeout S                        0 to 86400 seconds; 0 does not wait)";

namespace {

using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;

constexpr auto kPollInterval = std::chrono::milliseconds(50);
constexpr double kMaxTimeout = 86400;  // seconds

struct Options {
    Words axes;
    std::string timeout = "60";  // seconds, as given
};

/// The seconds, or a negative number for a text that is no time.
double Seconds(const std::string& text) {
    double seconds = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, seconds);
    const bool isTime = parsed.ec == std::errc() && parsed.ptr == end && seconds >= 0 && seconds <= kMaxTimeout;
    return isTime ? seconds : -1;
}

/// A paused clock is the one reason that no timeout could be long enough for.
bool IsPaused(ControlLink& camera) {
    const Words answer = camera.Ask({"state"});
    const auto state = nlohmann::json::parse(answer[1], nullptr, false);
    return answer[0] == "ok" && state.is_object() && state["clock"]["mode"] == "pause";
}

int Fail(int status, const std::string& reason) {
    std::fprintf(stderr, "domectl: %s\n", reason.c_str());
    return status;
}

int WaitUntil(ControlLink& camera, const Options& options, Clock::time_point deadline) {
    Words question{"wait"};
    question.insert(question.end(), options.axes.begin(), options.axes.end());
    for (;;) {
        const Words answer = camera.Ask(question);
        const std::string& text = answer[1];
        if (answer[0] != "ok") return Fail(answer[0] == "unknown" ? 2 : 1, text);
        if (text.empty()) return 0;
        if (Clock::now() >= deadline) {
            return Fail(1, "wait: after " + options.timeout + " s these still move: " + text +
                               (IsPaused(camera) ? "; the camera's clock is paused, domectl clock run lets it go on"
                                                 : "; --timeout S waits longer"));
        }
        std::this_thread::sleep_for(kPollInterval);
    }
}

}  // namespace

int Wait(ControlLink& camera, const Words& words) {
    Options options;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] != "--timeout") {
            options.axes.push_back(words[i]);
        } else if (++i < words.size()) {
            options.timeout = words[i];
        } else {
            return Fail(2, "wait --timeout: its value is missing");
        }
    }
    const double seconds = Seconds(options.timeout);
    if (seconds < 0) return Fail(2, "wait --timeout: not a number from 0 to 86400: " + options.timeout);
    const std::chrono::duration<double> time(seconds);
    return WaitUntil(camera, options, Clock::now() + std::chrono::duration_cast<Clock::duration>(time));
}

}  // namespace dome
