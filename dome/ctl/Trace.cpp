#include "Trace.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "dome/IControl.h"
#include "tavos/core/Logger.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/osa/Exception.h"
#include "trace/reader/AgentReader.h"
#include "trace/reader/Communities.h"
#include "trace/reader/Json.h"
#include "trace/reader/Pcap.h"
#include "trace/reader/Plain.h"
#include "trace/reader/Story.h"

namespace dome {

const char* const kTraceUsage = R"(
  trace [--follow] [--since N] [--object NAME] [--peer ADDRESS] [--failed] [--details] [--json] [--pcap FILE]
                                         what the agent was asked, what the camera made of it, and why nothing moved
      --follow                           goes on with what comes from now on, also from an agent that is started later
      --since N                          only what came after the record N
      --object NAME                      only requests that name such an object: a part of its name, or an OID's start
      --peer ADDRESS                     only requests from there: 127.0.0.1 or 127.0.0.1:40123
      --failed                           only what failed, was dropped, or could have no effect
      --details                          everything that is known of each, not only of the failed ones
      --json                             one JSON object a line, see docs/trace.md
      --pcap FILE                        writes the messages for Wireshark instead; - is standard output)";

namespace {

using tavos::osa::Exception;
using Words = std::vector<std::string>;
using Json = nlohmann::ordered_json;

constexpr auto kPollInterval = std::chrono::milliseconds(100);

struct Options {
    bool follow = false;
    bool failed = false;
    bool details = false;
    bool json = false;
    std::optional<std::uint64_t> since;
    std::string object;
    std::string peer;
    std::string pcap;
};

std::uint64_t ParseNumber(const std::string& option, const std::string& text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        throw Exception("trace %s: not a record's number: %s", option.c_str(), text.c_str());
    }
    return number;
}

/// Throws for what is no option.
Options Parse(const Words& words) {
    Options options;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        const auto value = [&] {
            if (i + 1 == words.size()) throw Exception("trace %s: its value is missing", word.c_str());
            return words[++i];
        };
        if (word == "--follow") {
            options.follow = true;
        } else if (word == "--failed") {
            options.failed = true;
        } else if (word == "--details") {
            options.details = true;
        } else if (word == "--json") {
            options.json = true;
        } else if (word == "--since") {
            options.since = ParseNumber(word, value());
        } else if (word == "--object") {
            options.object = value();
        } else if (word == "--peer") {
            options.peer = value();
        } else if (word == "--pcap") {
            options.pcap = value();
        } else {
            throw Exception(
                "trace: unknown word '%s', expected --follow, --since, --object, --peer, --failed, --details, --json, "
                "--pcap",
                word.c_str());
        }
    }
    return options;
}

std::int64_t Now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

/// One line on standard error when something starts to fail; further failures are silent until it works again.
class Notes {
public:
    void Failed(const std::string& why) {
        if (!_failing) std::fprintf(stderr, "domectl: %s\n", why.c_str());
        _failing = true;
    }
    void Works() { _failing = false; }
    bool IsFailing() const { return _failing; }

private:
    bool _failing = false;
};

/// The agent's part.
class Agent {
public:
    Agent(std::string socketPath, std::uint64_t since) : _reader(std::move(socketPath), since) {}

    void Read(trace::Story& story) {
        const std::string why = _reader.Read(story);
        why.empty() ? _notes.Works() : _notes.Failed(why);
    }

    bool IsFailing() const { return _notes.IsFailing(); }

private:
    trace::AgentReader _reader;
    Notes _notes;
};

/// The camera's part, over its restarts.
class Camera {
public:
    explicit Camera(std::string bus) : _address(std::move(bus)) {}

    void Read(trace::Story& story) {
        try {
            bool isNew = false;
            do {
                const Words answer = Ask(story.HistoryChange());
                const bool isAnswer = answer.size() == 2 && answer[0] == "ok";
                isNew = !isAnswer && story.HistoryChange() != 0;  // a camera that was started anew has fewer changes
                if (isAnswer) {
                    story.AddHistory(answer[1]);
                } else if (isNew) {
                    story.ForgetCamera();
                } else {
                    throw Exception("%s", answer.empty() ? "" : answer.back().c_str());
                }
            } while (isNew || story.HistoryHasMore());
            _notes.Works();
        } catch (const std::exception& error) {
            _notes.Failed(std::string("no answer from the camera: ") + error.what());
        }
    }

    bool IsFailing() const { return _notes.IsFailing(); }

private:
    Words Ask(std::uint64_t change) {
        if (!_control) {
            setenv("TAVOS_BUS_ADDRESS", _address.c_str(), 1);
            setenv("TAVOS_CALL_TIMEOUT_MS", "2000", 1);
            tavos::core::Logger::ClearAppenders();  // standard output is for the answer
            _bus = std::make_unique<tavos::msgbus::MsgBus>();
            _control.reset(dome::IControl::CreateClient(_bus.get()));
        }
        return _control->Execute({"history", "--since", std::to_string(change)});
    }

    std::string _address;
    std::unique_ptr<tavos::msgbus::MsgBus> _bus;
    std::unique_ptr<dome::IControl> _control;
    Notes _notes;
};

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool NamesObject(const Json& bindings, const std::string& object) {
    if (!bindings.is_array()) return false;
    return std::any_of(bindings.begin(), bindings.end(), [&](const Json& binding) {
        const std::string name = LowerCase(binding["name"]);
        const std::string oid = binding["oid"];
        return name.find(object) != std::string::npos || ("." + oid).rfind(object, 0) == 0 || oid.rfind(object, 0) == 0;
    });
}

class Filter {
public:
    explicit Filter(const Options& options) : _options(options) { _options.object = LowerCase(_options.object); }

    /// Removes what lies before what was asked for. Entries in the order of time; `since` counts in the first ones that
    /// come: a later agent's numbers begin again.
    void DropEarlier(std::vector<trace::Entry>& entries) {
        const std::int64_t from = _isFromNow ? Start() : 0;
        auto first =
            std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.time >= from; });
        const auto isRecord = [](const trace::Entry& entry) { return entry.record != nullptr; };
        if (_options.since && std::any_of(entries.begin(), entries.end(), isRecord)) {
            const auto isUpTo = [&](const trace::Entry& entry) {
                return entry.record && entry.record->number <= *_options.since;
            };
            const auto last = std::find_if(entries.rbegin(), entries.rend(), isUpTo);
            first = std::max(first, last.base());
            _options.since.reset();
        }
        for (auto it = entries.begin(); it != first; ++it) Remember(_dropped, *it);
        entries.erase(entries.begin(), first);
    }

    /// Whether to show the entry. One that was shown comes again, even when it is found that it has not failed; one
    /// that was not shown is then new.
    bool Admits(trace::Entry& entry) {
        const bool wasShown = entry.isAgain && _shown.count(KeyOf(entry)) != 0;
        if (_dropped.count(KeyOf(entry)) != 0 || (!wasShown && !Takes(entry))) return false;
        entry.isAgain = wasShown;
        Remember(_shown, entry);
        return true;
    }

private:
    using Key = std::pair<std::int64_t, std::uint64_t>;  // an entry's time and its number

    static Key KeyOf(const trace::Entry& entry) { return {entry.time, entry.record ? entry.record->number : 0}; }

    /// Those may come again.
    static void Remember(std::set<Key>& keys, const trace::Entry& entry) {
        constexpr std::size_t kMaxKeys = 20000;
        if (entry.json["motions"].empty()) return;
        keys.insert(KeyOf(entry));
        if (keys.size() > kMaxKeys) keys.erase(keys.begin());
    }

    /// When this began, by the clock as it is set now: records that are made after it was set back are not earlier.
    std::int64_t Start() const {
        const std::chrono::nanoseconds passed = std::chrono::steady_clock::now() - _startedSteady;
        return std::min(_started, Now() - passed.count());
    }

    bool Takes(const trace::Entry& entry) const {
        const Json& json = entry.json;
        if (_options.failed && !json["failed"].get<bool>()) return false;
        if (!_options.peer.empty() && !IsFrom(json["peer"], _options.peer)) return false;
        return _options.object.empty() || Names(json);
    }

    static bool IsFrom(const std::string& peer, const std::string& asked) {
        return peer == asked || peer.rfind(asked + ":", 0) == 0 || peer.rfind("[" + asked + "]:", 0) == 0;
    }

    bool Names(const Json& json) const {
        const auto isNamed = [&](const Json& trap) { return NamesObject(trap["bindings"], _options.object); };
        return NamesObject(json["bindings"], _options.object) || NamesObject(json["answer"], _options.object) ||
               std::any_of(json["traps"].begin(), json["traps"].end(), isNamed);
    }

    Options _options;
    const bool _isFromNow = _options.follow && !_options.since;
    const std::int64_t _started = Now();
    const std::chrono::steady_clock::time_point _startedSteady = std::chrono::steady_clock::now();
    std::set<Key> _shown;
    std::set<Key> _dropped;
};

class Output {
public:
    explicit Output(const Options& options) : _options(options) {
        if (options.pcap.empty()) return;
        if (options.pcap != "-") {
            _file.open(options.pcap, std::ios::binary);
            if (!_file) throw Exception("%s cannot be written", options.pcap.c_str());
        }
        _pcap.emplace(options.pcap == "-" ? static_cast<std::ostream&>(std::cout) : _file);
    }

    void Write(const trace::Entry& entry) {
        if (_pcap) {
            WritePackets(entry);
        } else if (_options.json) {
            std::cout << trace::Line(entry.json) << "\n";
        } else if (entry.isAgain) {
            std::cout << trace::PlainEnd(entry.json);
        } else {
            const auto details = _options.details ? trace::Details::kAll : trace::Details::kFailed;
            std::cout << trace::PlainLines(entry.json, details);
        }
    }

    void Flush() {
        if (!std::cout.flush()) throw Exception("standard output cannot be written");
        if (_file.is_open() && !_file.flush()) throw Exception("%s cannot be written", _options.pcap.c_str());
    }

private:
    void WritePackets(const trace::Entry& entry) {
        if (entry.isAgain) return;
        if (entry.record) _pcap->Write(*entry.record);
        for (const auto& trap : entry.traps) _pcap->Write(*trap);
    }

    Options _options;
    std::ofstream _file;
    std::optional<trace::PcapWriter> _pcap;
};

/// Writes those that were asked for. Lost records count for the next one that is written.
void Write(std::vector<trace::Entry> entries, Filter& filter, Output& output, std::uint64_t& lost) {
    filter.DropEarlier(entries);
    for (trace::Entry& entry : entries) {
        if (entry.json.contains("lost") && !entry.isAgain) lost += entry.json["lost"].get<std::uint64_t>();
        if (!filter.Admits(entry)) continue;
        if (lost != 0 && !entry.isAgain) entry.json["lost"] = std::exchange(lost, 0);
        output.Write(entry);
    }
    output.Flush();
}

int Show(const std::string& state, const std::string& bus, const Options& options) {
    trace::Story story(trace::Communities::OfFile(state + "/snmpd.conf"));
    Agent agent(state + "/trace.sock", options.since.value_or(0));
    Camera camera(bus);
    Output output(options);
    Filter filter(options);
    std::uint64_t lost = 0;
    for (;;) {
        agent.Read(story);  // before the camera: what the camera noted of these records is then there
        camera.Read(story);
        if (!options.follow) story.ForgetAgent();  // no request follows to which a trap could belong
        Write(story.Take(), filter, output, lost);
        if (!options.follow) return agent.IsFailing() && camera.IsFailing() ? 1 : 0;
        std::this_thread::sleep_for(kPollInterval);
    }
}

}  // namespace

int Trace(const std::string& state, const std::string& bus, const std::vector<std::string>& words) {
    Options options;
    try {
        options = Parse(words);
    } catch (const Exception& error) {
        std::fprintf(stderr, "domectl: %s\n", error.what());
        return 2;
    }
    return Show(state, bus, options);
}

}  // namespace dome
