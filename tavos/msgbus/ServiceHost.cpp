#include "tavos/msgbus/ServiceHost.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>

#include "tavos/core/Logger.h"
#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/Lane.h"
#include "tavos/msgbus/ServedLanes.h"
#include "tavos/msgbus/Service.h"
#include "tavos/msgbus/SpinWait.h"
#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

using namespace std::chrono_literals;

namespace {

constexpr auto kConnectTime = 2s;
constexpr auto kRetryDelay = 200ms;
constexpr auto kLookAtAllInterval = 20us;  // shorter than most requests, much longer than a look
constexpr const char* kErrorName = "org.tavos.Error.Failed";

struct Object;

/// One way on which calls reach an object: the bus, or a lane.
struct Way {
    Object& object;
    std::string client{};  ///< of a lane: the unique name of its client; on the bus each message has its sender's
    SlotPtr slot{};
};

/// One service: the bus library's handler and the object that serves the calls.
struct Object {
    ServiceHost::Private::State* host = nullptr;
    ServiceAddress address;
    void* service = nullptr;
    std::vector<Operation> operations;
    std::vector<sd_bus_vtable> table;  // on the bus
    std::vector<sd_bus_vtable> laneTable;
    Way bus{*this};
    bool wanted = true;
    bool owned = false;
};

int OnCall(sd_bus_message* call, void* way, sd_bus_error* error);
int OnOpenLane(sd_bus_message* call, void* way, sd_bus_error* error);
int OnMessage(sd_bus_message* message, void* state, sd_bus_error* error);

// The library's macros for the table's rows are not C++17.
sd_bus_vtable StartRow() {
    sd_bus_vtable row{};
    row.type = _SD_BUS_VTABLE_START;
    row.x.start.element_size = sizeof(sd_bus_vtable);
    row.x.start.features = _SD_BUS_VTABLE_PARAM_NAMES;
    row.x.start.vtable_format_reference = &sd_bus_object_vtable_format;
    return row;
}

sd_bus_vtable MethodRow(const char* name, const char* arguments, const char* result, sd_bus_message_handler_t handler) {
    sd_bus_vtable row{};
    row.type = _SD_BUS_VTABLE_METHOD;
    row.flags = SD_BUS_VTABLE_UNPRIVILEGED;  // the bus's policy decides who may call
    row.x.method.member = name;
    row.x.method.signature = arguments;
    row.x.method.result = result;
    row.x.method.handler = handler;
    row.x.method.names = "";
    return row;
}

sd_bus_vtable SignalRow(const EventDescription& event) {
    sd_bus_vtable row{};
    row.type = _SD_BUS_VTABLE_SIGNAL;
    row.x.signal.member = event.name;
    row.x.signal.signature = event.arguments;
    row.x.signal.names = "";
    return row;
}

sd_bus_vtable EndRow() {
    sd_bus_vtable row{};
    row.type = _SD_BUS_VTABLE_END;
    return row;
}

std::string Travelling(std::string text) {
    if (!CanTravel(text)) {
        std::replace_if(
            text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    }
    return text;
}

struct Render {
    std::string operator()(std::int32_t value) const { return std::to_string(value); }
    std::string operator()(std::uint32_t value) const { return std::to_string(value); }
    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(const std::string& value) const { return value; }
    std::string operator()(double value) const {
        char text[32];
        return {text, std::to_chars(text, text + sizeof text, value).ptr};
    }
    std::string operator()(const std::vector<std::string>& value) const {
        std::string text;
        for (const auto& element : value) text += (text.empty() ? "" : ",") + element;
        return text;
    }
};

}  // namespace

std::string Text(const Value& value) {
    return std::visit(Render(), value);
}

struct ServiceHost::Private::State {
    explicit State(const std::string& busAddress) : address(busAddress), reachability(busAddress) {}

    void Connect() {
        bus = OpenBus(address, Clock::now() + kConnectTime);
        busIsQuiet = false;
        CheckBus(sd_bus_set_method_call_timeout(
            bus.get(), static_cast<std::uint64_t>(std::chrono::microseconds(kConnectTime).count())));
        sd_bus_slot* slot = nullptr;
        CheckBus(sd_bus_add_filter(bus.get(), &slot, OnMessage, this));
        pingSlot.reset(slot);
        for (auto& object : objects) Register(*object);
        reachability.Found();
    }

    void Disconnect(const char* reason) {
        for (auto& object : objects) {
            object->bus.slot.reset();
            object->owned = false;
        }
        lanes.CloseAll();  // without the bus nobody knows who may call
        pingSlot.reset();
        bus.reset();
        nextAttempt = Clock::now();
        reachability.Lost(reason);
    }

    void Register(Object& object) { Register(object.bus, bus.get(), object.table); }

    static void Register(Way& way, sd_bus* connection, const std::vector<sd_bus_vtable>& table) {
        const ServiceAddress& address = way.object.address;
        sd_bus_slot* slot = nullptr;
        CheckBus(sd_bus_add_object_vtable(connection, &slot, address.path.c_str(), address.interface.c_str(),
                                          table.data(), &way));
        way.slot.reset(slot);
    }

    Descriptor OpenLane(Object& object, const std::string& client) {
        return lanes.Open(object.address, client, [&](sd_bus* lane) {
            auto way = std::make_shared<Way>(Way{object, client, nullptr});
            Register(*way, lane, object.laneTable);
            return way;
        });
    }

    /// Reconnects when the next attempt is due; false without a bus.
    bool EnsureConnected() {
        if (bus) return true;
        if (Clock::now() < nextAttempt) return false;
        try {
            Connect();
            return true;
        } catch (const osa::Exception& e) {
            Disconnect(e.what());
            nextAttempt = Clock::now() + kRetryDelay;
            return false;
        }
    }

    void TakeName(Object& object) {
        const SignalsBlocked guard;
        const int result = sd_bus_request_name(bus.get(), object.address.service.c_str(), 0);
        if (result < 0 && result != -EALREADY) {
            throw osa::Exception("%s: cannot take the name: %s", object.address.service.c_str(),
                                 std::strerror(-result));
        }
        object.owned = true;
    }

    /// After a restart of the bus. Retries a name that another process has taken meanwhile.
    void TakeMissingNames() {
        if (Clock::now() < nextAttempt) return;
        for (auto& object : objects) {
            if (!object->wanted || object->owned) continue;
            try {
                TakeName(*object);
            } catch (const osa::Exception& e) {
                core::Logger::GetLogger("tavos")->Error("%s", e.what());
                nextAttempt = Clock::now() + 1s;
            }
        }
    }

    /// One message; false when there is none. While calls take lanes, most turns find none: they must not ask the
    /// system again. The bus's own blocking calls (a name) keep the messages that they meet.
    bool ProcessOne() {
        std::uint64_t queued = 0;
        if (busIsQuiet && sd_bus_get_n_queued_read(bus.get(), &queued) >= 0 && queued == 0) return false;
        const int progress = sd_bus_process(bus.get(), nullptr);
        busIsQuiet = progress == 0;
        if (progress < 0) Disconnect(std::strerror(-progress));
        return progress > 0;
    }

    /// False: something must be tried again at nextAttempt.
    bool IsComplete() const {
        return bus && std::all_of(objects.begin(), objects.end(),
                                  [](const auto& object) { return object->owned || !object->wanted; });
    }

    /// Mostly at the lane that was served last, where the next call is likely.
    bool Look(BusWait& wait) {
        const auto now = Clock::now();
        if (now < nextLookAtAll) return lanes.ReceiveNext();
        nextLookAtAll = now + kLookAtAllInterval;
        return wait.Look();
    }

    void Wait(BusWait& wait) {
        const auto sleep = [&] { wait.Wait(); };
        if (wait.Until() <= Clock::now()) {
            sleep();
        } else if (std::exchange(hasServedLane, false)) {
            nextCall.Wait(
                wait.Until(), [&] { return Look(wait); }, sleep);
        } else {
            nextCall.Sleep(sleep);
        }
    }

    /// True when the descriptor of WakeOn has become readable.
    bool WaitUntil(Clock::time_point until) {
        try {
            BusWait wait(bus.get(), wakeDescriptor, IsComplete() ? until : std::min(until, nextAttempt));
            lanes.AddTo(wait);
            Wait(wait);
            lanes.Note(wait);
            busIsQuiet = busIsQuiet && wait.IsBusQuiet();
            return wait.IsWoken();
        } catch (const osa::Exception&) {
            Disconnect("the connection has ended");
            return false;
        }
    }

    Object& Find(const std::string& service) {
        for (auto& object : objects) {
            if (object->address.service == service) return *object;
        }
        throw osa::Exception("%s: no such service here", service.c_str());
    }

    const std::string address;
    Reachability reachability;
    BusPtr bus;
    std::vector<std::unique_ptr<Object>> objects;  // their slots are released before the bus
    SlotPtr pingSlot;                              // so is this
    ServedLanes lanes;
    std::vector<std::shared_ptr<void>> kept;
    std::function<bool(const ReceivedCall&)> filter;
    Clock::time_point nextAttempt{};
    int wakeDescriptor = -1;
    SpinPause pause;
    SpinWait nextCall{SpinWait::IsWanted() ? &pause : nullptr};  // on a lane
    bool hasServedLane = false;                                  // since the last wait
    Clock::time_point nextLookAtAll{};                           // of a spin
    bool busIsQuiet = false;  // read to its end, and no look since has found anything new
};

namespace {

std::function<void()> AnswerTo(sd_bus_message* call) {
    const std::shared_ptr<sd_bus_message> held(sd_bus_message_ref(call), MessageRelease());
    return [held] { sd_bus_reply_method_return(held.get(), ""); };
}

/// Lends the arguments to the filter.
bool IsTakenOver(const Way& way, const Operation& operation, sd_bus_message* call, std::vector<Value>& arguments) {
    const Object& object = way.object;
    if (!object.host->filter) return false;
    ReceivedCall received{object.address.service, operation.name, std::move(arguments), AnswerTo(call)};
    const char* const sender = sd_bus_message_get_sender(call);
    received.sender = !way.client.empty() ? way.client : sender ? sender : "";
    CheckBus(sd_bus_message_get_cookie(call, &received.serial));
    const bool isTakenOver = object.host->filter(received);
    arguments = std::move(received.arguments);
    return isTakenOver;
}

void Answer(const Object& object, const Operation& operation, sd_bus_message* call,
            const std::vector<Value>& arguments) {
    sd_bus_message* made = nullptr;
    CheckBus(sd_bus_message_new_method_return(call, &made));
    const MessagePtr answer(made);
    Writer writer(made);
    operation.serve(object.service, arguments, writer);
    CheckBus(sd_bus_send(nullptr, made, nullptr));
}

int OnCall(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    const auto& way = *static_cast<Way*>(userdata);
    const Object& object = way.object;
    const char* const member = sd_bus_message_get_member(call);
    try {
        const auto operation = std::find_if(object.operations.begin(), object.operations.end(),
                                            [&](const Operation& o) { return std::strcmp(o.name, member) == 0; });
        if (operation == object.operations.end()) return 0;
        Reader reader(call);
        auto arguments = operation->values(reader);
        if (!IsTakenOver(way, *operation, call, arguments)) Answer(object, *operation, call, arguments);
        return 1;
    } catch (const std::exception& e) {
        return sd_bus_error_set(error, kErrorName, Travelling(e.what()).c_str());
    } catch (...) {
        return sd_bus_error_set(error, kErrorName, "the service has failed");
    }
}

int OnOpenLane(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    Object& object = static_cast<Way*>(userdata)->object;
    const char* const client = sd_bus_message_get_sender(call);
    if (client == nullptr || !object.owned) {
        return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED, "the service is not present");
    }
    try {
        const Descriptor lane = object.host->OpenLane(object, client);
        return sd_bus_reply_method_return(call, "h", lane.Get());
    } catch (const std::exception& e) {
        return sd_bus_error_set(error, SD_BUS_ERROR_LIMITS_EXCEEDED, e.what());
    }
}

/// The bus library answers pings for the whole process, unless the filter takes them over.
int OnMessage(sd_bus_message* message, void* state, sd_bus_error*) {
    const auto& filter = static_cast<ServiceHost::Private::State*>(state)->filter;
    if (!filter || sd_bus_message_is_method_call(message, "org.freedesktop.DBus.Peer", "Ping") <= 0) return 0;
    try {
        return filter({sd_bus_message_get_destination(message), "Ping", {}, AnswerTo(message)}) ? 1 : 0;
    } catch (...) {
        return 0;
    }
}

}  // namespace

std::size_t ServiceHost::Private::Lanes() const {
    return state->lanes.Count();
}

ServiceHost::Private::Private(const std::string& address) : state(std::make_unique<State>(address)) {}

ServiceHost::Private::~Private() = default;

void ServiceHost::Private::Add(const ServiceAddress& address, void* service, const std::vector<Operation>& operations,
                               const std::vector<EventDescription>& events) {
    auto object = std::make_unique<Object>();
    object->host = state.get();
    object->address = address;
    object->service = service;
    object->operations = operations;
    object->table.push_back(StartRow());
    for (const auto& operation : operations) {
        object->table.push_back(MethodRow(operation.name, operation.arguments, operation.result, OnCall));
    }
    object->laneTable = object->table;
    object->laneTable.push_back(EndRow());
    if (address.hasLanes) object->table.push_back(MethodRow(kOpenLane, "", "h", OnOpenLane));
    for (const auto& event : events) object->table.push_back(SignalRow(event));
    object->table.push_back(EndRow());
    if (!state->bus) throw osa::Exception("%s: the message bus is gone", address.service.c_str());
    state->Register(*object);
    state->TakeName(*object);
    state->objects.push_back(std::move(object));
}

void ServiceHost::Private::Keep(std::shared_ptr<void> object) {
    state->kept.push_back(std::move(object));
}

void ServiceHost::Private::Emit(const ServiceAddress& from, const char* event,
                                const std::function<void(Writer&)>& arguments) {
    if (!state->bus) return;
    sd_bus_message* made = nullptr;
    if (sd_bus_message_new_signal(state->bus.get(), &made, from.path.c_str(), from.interface.c_str(), event) < 0) {
        return;  // the connection has just gone; Process notices
    }
    const MessagePtr signal(made);
    Writer writer(made);
    arguments(writer);
    sd_bus_send(nullptr, made, nullptr);
}

ServiceHost::ServiceHost(const std::string& address) : _private(std::make_unique<Private>(address)) {
    try {
        _private->state->Connect();
    } catch (const osa::Exception& e) {
        throw osa::Exception("the message bus%s%s cannot be reached: %s", address.empty() ? "" : " at ",
                             address.c_str(), e.what());
    }
}

ServiceHost::~ServiceHost() = default;

void ServiceHost::SetCallFilter(std::function<bool(const ReceivedCall&)> filter) {
    _private->state->filter = std::move(filter);
}

void ServiceHost::SetPresent(const std::string& service, bool present) {
    auto& state = *_private->state;
    auto& object = state.Find(service);
    if (object.wanted == present && object.owned == present) return;
    if (present) {
        if (state.bus) state.TakeName(object);
    } else if (state.bus && object.owned) {
        state.lanes.Close(service);
        const SignalsBlocked guard;
        const int result = sd_bus_release_name(state.bus.get(), service.c_str());
        if (result < 0)
            throw osa::Exception("%s: cannot release the name: %s", service.c_str(), std::strerror(-result));
        object.owned = false;
    }
    object.wanted = present;
}

void ServiceHost::WakeOn(int descriptor) {
    _private->state->wakeDescriptor = descriptor;
}

void ServiceHost::Process(int timeout) {
    constexpr int kMaxMessages = 1000;  // an endless caller must not block the host's other work
    auto& state = *_private->state;
    if (timeout <= 0) state.busIsQuiet = false;  // there will be no wait that looks
    const auto until = Clock::now() + std::chrono::milliseconds(timeout);
    constexpr int kMessagesBetweenLooks = 16;  // a busy bus must not keep the lanes from being served
    for (int processed = 0; processed < kMaxMessages;) {
        if (processed % kMessagesBetweenLooks == kMessagesBetweenLooks - 1) state.WaitUntil(Clock::now());
        bool progress = false;
        if (state.EnsureConnected()) {
            state.TakeMissingNames();
            progress = state.bus && state.ProcessOne();
        }
        const bool servedLane = state.lanes.Serve();
        state.hasServedLane = state.hasServedLane || servedLane;
        if (servedLane || progress) {
            ++processed;
            continue;
        }
        if (processed > 0) return;
        if (Clock::now() >= until) {
            state.busIsQuiet = false;  // nobody may have looked for a while
            return;
        }
        if (state.WaitUntil(until)) return;
    }
}

}  // namespace tavos::msgbus
