#include "Console.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "Command.h"
#include "Operations.h"
#include "Server.h"
#include "dome/Control.h"
#include "dome/OneLine.h"
#include "tavos/osa/Exception.h"

namespace dome::console {

namespace {

using nlohmann::json;
using namespace std::chrono_literals;
using Words = std::vector<std::string>;

constexpr auto kShowEvery = 40ms;
constexpr std::size_t kMaxWords = 128;
constexpr std::size_t kMaxCallArguments = 8;

std::int64_t MillisecondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// The page offers these, and says of each service what the second text says.
json FaultWords() {
    json faults = json::array();
    for (const FaultKind& kind : kFaultKinds) faults.push_back({kind.name, kind.words});
    return faults;
}

Reply Answer(const json& body, unsigned status = 200) {
    return {status, OneLine(body)};
}

Reply Refused(const char* reason) {
    return Answer({{"error", reason}}, 422);
}

Words ToWords(const json& body) {
    const auto words = body.find("words");
    if (words == body.end() || !words->is_array() || words->empty() || words->size() > kMaxWords) {
        throw Refusal{400, "\"words\" must be an array of 1 to 128 strings"};
    }
    for (const json& word : *words) {
        if (!word.is_string()) throw Refusal{400, "\"words\" must be an array of strings"};
    }
    return words->get<Words>();
}

std::string Text(const json& body, const char* key) {
    const auto value = body.find(key);
    if (value == body.end() || !value->is_string()) throw Refusal{400, '"' + std::string(key) + "\" must be a string"};
    return value->get<std::string>();
}

json Arguments(const json& body) {
    const auto arguments = body.find("args");
    if (arguments == body.end()) return json::array();
    const auto isPlain = [](const json& value) { return value.is_primitive(); };
    if (!arguments->is_array() || arguments->size() > kMaxCallArguments ||
        !std::all_of(arguments->begin(), arguments->end(), isPlain)) {
        throw Refusal{400, "\"args\" must be an array of at most 8 values that are not arrays or objects"};
    }
    return *arguments;
}

}  // namespace

Console::Console(const Options& options, Services& services, CameraAccess camera)
    : _services(services),
      _camera(std::move(camera)),
      _trace(options.trace, options.agent, _handover, _camera.history),
      _sender(options.agent.address, options.watchesAgent ? options.agent.port : std::uint16_t{0},
              options.trace.configuration) {
    Api api;
    api.hello = OneLine({{"agentAddress", options.agent.address},
                         {"agentPort", options.agent.port},
                         {"agentWatched", options.watchesAgent},
                         {"faults", FaultWords()},
                         {"fleet", !options.fleet.empty()},
                         {"serial", _camera.serialNumber},
                         {"started", MillisecondsSince1970()}});
    if (options.watchesAgent) api.agent = options.agent;
    api.names = options.names;
    api.fleet = options.fleet;
    api.readState = [this] { return Reply{200, _camera.state(kMaxPoints)}; };
    api.summary = [this] { return Summary(); };
    api.prepare = [this](const std::string& path, const json& body) { return Prepare(path, body); };
    api.trace = [this](std::uint64_t since, std::function<void(Reply)> finished) {
        return _trace.Ask({TraceFeed::Part::kRecords, since, std::move(finished)});
    };
    api.packets = [this](std::uint64_t since, std::function<void(Reply)> finished) {
        return _trace.Ask({TraceFeed::Part::kPackets, since, std::move(finished)});
    };
    api.objects = [this] { return Answer({{"objects", ObjectsJson()}, {"users", _sender.Users()}}); };
    api.explain = [](const json& body) { return Answer(Explain(CommandOf(body))); };
    api.send = [this](const json& body, Sender::Page page) { _sender.Send(body, std::move(page)); };
    api.focusReads = [this] { return _focusReads.load(); };
    _server = std::make_unique<Server>(options.address, options.port, _handover, std::move(api));
    _services.temperature.OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(this, &Console::OnTemperature));
    _services.voltage.OnVoltageStatusChange().AddHandler(tavos::core::CreateDelegate(this, &Console::OnVoltage));
    _services.power.OnPowerStatusChange().AddHandler(tavos::core::CreateDelegate(this, &Console::OnPower));
}

Console::~Console() {
    _trace.BeginStop();
    _sender.BeginStop();
    _trace.Stop();  // their threads use the server's
    _sender.Stop();
    _services.temperature.OnTemperatureChange().RemoveHandlers(this);
    _services.voltage.OnVoltageStatusChange().RemoveHandlers(this);
    _services.power.OnPowerStatusChange().RemoveHandlers(this);
}

std::uint16_t Console::Port() const {
    return _server->Port();
}

int Console::Timeout(int timeout) const {
    if (!_handover.IsWatched()) return timeout;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(_nextShow - Clock::now()).count() + 1;
    return std::min(timeout, static_cast<int>(std::clamp<long long>(left, 1, kShowEvery.count())));
}

void Console::Work() {
    for (const Request& request : _handover.TakeRequests()) CarryOut(request);
    Show();
}

void Console::Show() {
    if (!_handover.IsWatched()) {
        if (!_shown.empty()) _handover.ClearState();  // the next watcher must not get an old state first
        _shown.clear();
        return;
    }
    const auto now = Clock::now();
    if (now < _nextShow) return;
    _nextShow = now + kShowEvery;
    std::string state = _camera.state(kMaxPoints);
    if (state != _shown) {
        const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
        _handover.Publish("{\"time\":" + std::to_string(time.count()) + ",\"camera\":" + state + '}');
        _shown = std::move(state);
    } else if (_hasNews) {
        _handover.Announce();
    }
    _hasNews = false;
}

// Runs on the console's thread, so it must use nothing but the body.
std::function<Reply()> Console::Prepare(const std::string& path, const json& body) {
    if (path == "/api/control") {
        Words words = ToWords(body);
        // The answers of the others have no max length; a page has the state and the activities instead.
        if (!dome::Control::IsAction(words))
            throw Refusal{400, "the command must be set, banks, clock, event or fault"};
        return [this, words = std::move(words)] { return Control(words); };
    }
    std::string service = Text(body, "service");
    std::string operation = Text(body, "operation");
    json arguments = Arguments(body);
    if (!IsOperation(service, operation)) throw Refusal{400, "the console cannot call this operation"};
    return [this, service = std::move(service), operation = std::move(operation), arguments = std::move(arguments)] {
        return CallService(service, operation, arguments);
    };
}

Reply Console::Control(const Words& words) {
    try {
        _camera.execute(words);
        return Answer({{"outcome", "ok"}});
    } catch (const std::exception& error) {
        return Refused(error.what());
    }
}

// A fault affects the console's calls like those from the bus, but the caller does not wait: the answer names the
// fault.
Reply Console::CallService(const std::string& service, const std::string& operation, const json& arguments) {
    const Words texts = Texts(arguments);
    const auto note = [&](const char* outcome) { Note("console", service, operation, texts, outcome); };
    Words words{"call", service, operation};
    words.insert(words.end(), texts.begin(), texts.end());
    try {
        const auto carryOut = [&] { Call(_services, service, operation, arguments); };
        const char* const outcome = KindOf(_camera.call(service, words, carryOut)).name;
        note(outcome);
        return Answer({{"outcome", outcome}});
    } catch (const std::exception& error) {
        note("refused");
        return Refused(error.what());
    }
}

Reply Console::Summary() const {
    const json state = json::parse(_camera.state(0));
    json summary = {{"serial", _camera.serialNumber}, {"last", _lastCall}, {"faults", json::object()}};
    for (const char* const axis : {"pan", "tilt", "zoom"}) {
        summary[axis] = state.at(axis).at("position");
        if (state.at(axis).at("moving").get<bool>()) summary["moving"] = true;
    }
    for (const auto& [service, fault] : state.at("faults").items()) {
        if (fault != KindOf(Fault::kOk).name) summary["faults"][service] = fault;
    }
    return Answer(summary);
}

void Console::Heard(const std::string& service, const tavos::msgbus::ReceivedCall& call, const std::string& outcome) {
    if (service == "focus2" && call.operation == "GetPosition") ++_focusReads;
    Words arguments;
    for (const tavos::msgbus::Value& value : call.arguments) arguments.push_back(tavos::msgbus::Text(value));
    _lastCall = {
        {"time", MillisecondsSince1970()}, {"service", service}, {"call", call.operation}, {"outcome", outcome}};
    Note("bus", service, call.operation, std::move(arguments), outcome);
}

void Console::OnTemperature(int sensor, int degrees) {
    Note("event", "temperature", "OnTemperatureChange", {std::to_string(sensor), std::to_string(degrees)}, "");
}

void Console::OnVoltage(int status) {
    Note("event", "voltage", "OnVoltageStatusChange", {std::to_string(status)}, "");
}

void Console::OnPower(int status) {
    Note("event", "power", "OnPowerStatusChange", {std::to_string(status)}, "");
}

void Console::Note(const char* source, const std::string& service, const std::string& call, Words arguments,
                   const std::string& outcome) {
    Activity activity;
    activity.time = MillisecondsSince1970();
    activity.source = source;
    activity.service = service;
    activity.call = call;
    activity.arguments = std::move(arguments);
    activity.outcome = outcome;
    _handover.Add(std::move(activity));
    _hasNews = true;
}

}  // namespace dome::console
