#include "Dome.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "WrongWord.h"
#include "tavos/osa/Exception.h"

namespace dome {

namespace {

using tavos::msgbus::ReceivedCall;

// Milliseconds. kTickWhileMoving is a tick of the model's clock. While the temperatures drift, a change emits its event
// at most kTickWhileDrifting late. A camera at rest waits for a call or a descriptor.
constexpr int kTickWhileMoving = 20;
constexpr int kTickWhileDrifting = 200;
constexpr int kAtRest = 3'600'000;

// The bus carries about 100000 events a second, in the same queue as the answers. Events emitted faster would delay the
// answers to service calls.
constexpr std::chrono::milliseconds kEventsEvery{2};

Cause FromSettings() {
    return {Cause::Kind::kNamed, "settings"};
}

std::vector<std::string> ShortNames(const std::vector<Services::Name>& names) {
    std::vector<std::string> shortNames;
    for (const Services::Name& name : names) shortNames.push_back(name.shortName);
    return shortNames;
}

}  // namespace

Dome::Dome(const std::string& busAddress, const Configuration& configuration, const std::string& store)
    : _camera(configuration.camera),
      _settings(_camera, store, configuration.keepPosition),
      _host(busAddress),
      _names(_services.Serve(_host)),
      _faults(ShortNames(_names), [this](const std::string& service, bool present) {
          const auto named = [&](const Services::Name& name) { return name.shortName == service; };
          _host.SetPresent(std::find_if(_names.begin(), _names.end(), named)->busName, present);
      }) {
    const History::Because because(_history, FromSettings());
    _settings.Restore();  // before the first call is served
    _camera.relays.OnChange([this] { _settings.KeepRelays(); });
    Serve(_host, static_cast<IControl&>(*this));
    WakeOn(_settings.Descriptor());
    _host.WakeOn(_wakers.Descriptor());
    _host.SetCallFilter([this](const ReceivedCall& call) { return TakesOver(call); });
}

void Dome::OpenConsole(const console::Options& options) {
    console::CameraAccess access;
    access.state = [this](std::size_t maxPoints) { return _control.State(maxPoints); };
    access.execute = [this](const std::vector<std::string>& words) { Execute("page", words); };
    access.call = [this](const std::string& service, const std::vector<std::string>& words,
                         const std::function<void()>& carryOut) { return CallForPage(service, words, carryOut); };
    access.history = [this](std::uint64_t change) {
        return _control.Execute({"history", "--since", std::to_string(change)}).text;
    };
    access.serialNumber = _settings.SerialNumber();
    _console = std::make_unique<console::Console>(options, _services, std::move(access));
    WakeOn(_console->Descriptor());
}

void Dome::WakeOn(int descriptor) {
    if (!_wakers.Add(descriptor)) throw tavos::osa::Exception("cannot wait for a descriptor: %s", std::strerror(errno));
}

void Dome::Run(const std::atomic<bool>& stop) {
    while (!stop) {
        const int timeout = Timeout();
        _host.Process(_console ? _console->Timeout(timeout) : timeout);
        LetTimePass();
        EmitEvents();
        if (_console) _console->Work();
        FollowSettings();  // after whatever may change the camera
        _hungPings.Answer(
            [this](const std::string& service) { return _faults.Treatment(service) == Treatment::kHang; });
    }
}

int Dome::Timeout() const {
    if (_control.HasEvents()) return 1;
    const int tick = !_clock.IsRunning() || _camera.IsAtRest() ? kAtRest
                     : _camera.IsMoving()                      ? kTickWhileMoving
                                                               : kTickWhileDrifting;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(_settings.NextWork() - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, tick));
}

void Dome::EmitEvents() {
    if (_now < _nextEvents) return;
    _control.EmitEvents();
    _nextEvents = _now + kEventsEvery;
}

void Dome::FollowSettings() {
    const History::Because because(_history, FromSettings());
    _settings.Work(_now);
}

Control::Answer Dome::Execute(const char* by, const std::vector<std::string>& words) {
    if (!Control::IsAction(words)) return _control.Execute(words);
    Control::Answer answer;
    _history.Act(by, words, [&] {
        answer = _control.Execute(words);
        return std::string();
    });
    return answer;
}

Fault Dome::CallForPage(const std::string& service, const std::vector<std::string>& words,
                        const std::function<void()>& carryOut) {
    const Fault fault = _faults.All().at(service);
    _history.Act("page", words, [&] {
        if (fault != Fault::kOk) return service + " is set to " + KindOf(fault).name;
        carryOut();
        return std::string();
    });
    return fault;
}

std::vector<std::string> Dome::Execute(const std::vector<std::string>& words) {
    try {
        const Control::Answer answer = Execute("domectl", words);
        if (answer.more != 0) return {"more", std::to_string(answer.more)};
        return {"ok", answer.text};
    } catch (const WrongWord& wrong) {
        return {"unknown", wrong.what()};
    } catch (const std::exception& error) {
        return {"error", error.what()};
    }
}

bool Dome::TakesOver(const ReceivedCall& call) {
    // The call must see the camera as it is now, not as it was when the host began to wait.
    LetTimePass();
    const auto named = [&](const Services::Name& name) { return name.busName == call.service; };
    const auto name = std::find_if(_names.begin(), _names.end(), named);
    if (name == _names.end()) return false;
    const Treatment treatment = _faults.Treatment(name->shortName);
    const bool hangs = treatment == Treatment::kHang;
    if (call.operation == "Ping") {  // not a call of a camera service
        if (hangs) _hungPings.Hold(name->shortName, call);
        return hangs;
    }
    _history.AddCall(name->shortName, call, Outcome(treatment));
    if (_console) _console->Heard(name->shortName, call, Outcome(treatment));
    if (treatment == Treatment::kFail) throw tavos::osa::Exception("the service has failed");
    return hangs;
}

void Dome::LetTimePass() {
    const Clock::time_point now = Clock::now();
    _history.TimePasses();
    _clock.Pass(std::chrono::duration<double>(now - _now).count());
    _now = now;
}

}  // namespace dome
