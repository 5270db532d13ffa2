#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tavos/Api.h"
#include "tavos/core/Event.h"
#include "tavos/msgbus/Message.h"
#include "tavos/msgbus/ServiceAddress.h"
#include "tavos/msgbus/ServiceHost.h"

namespace tavos::msgbus {

/// What the host needs to serve one operation. `service` points to the interface's class.
struct Operation {
    const char* name;
    const char* arguments;  ///< signature
    const char* result;     ///< signature
    std::vector<Value> (*values)(Reader& arguments);
    void (*serve)(void* service, const std::vector<Value>& arguments,
                  Writer& result);  ///< `arguments`: what `values` returned
};

struct EventDescription {
    const char* name;
    const char* arguments;
};

/// ServiceHost's implementation. Like ServiceHost: one thread.
struct TAVOS_API ServiceHost::Private {
    explicit Private(const std::string& address);
    ~Private();
    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;

    /// Serves `service` on the bus and takes its name. Throws tavos::osa::Exception when the name is taken.
    void Add(const ServiceAddress& address, void* service, const std::vector<Operation>& operations,
             const std::vector<EventDescription>& events);

    /// Keeps `object` while the host lives.
    void Keep(std::shared_ptr<void> object);

    /// Emits an event to its subscribers. Without a bus the event is lost.
    void Emit(const ServiceAddress& from, const char* event, const std::function<void(Writer&)>& arguments);

    /// The number of lanes to clients.
    std::size_t Lanes() const;

    struct State;
    std::unique_ptr<State> state;
};

template <auto Method>
struct MethodOperation;

template <class Class, class Result, class... Arguments, Result (Class::*Method)(Arguments...)>
struct MethodOperation<Method> {
    static std::vector<Value> Read([[maybe_unused]] Reader& reader) {
        std::vector<Value> values;
        values.reserve(sizeof...(Arguments));
        (values.emplace_back(reader.Get<std::decay_t<Arguments>>()), ...);
        return values;
    }

    static void Serve(void* service, const std::vector<Value>& values, Writer& writer) {
        Serve(*static_cast<Class*>(service), values, writer, std::index_sequence_for<Arguments...>());
    }

private:
    template <std::size_t... I>
    static void Serve(Class& service, [[maybe_unused]] const std::vector<Value>& values,
                      [[maybe_unused]] Writer& writer, std::index_sequence<I...>) {
        const auto call = [&]() -> Result {
            return (service.*Method)(std::get<std::decay_t<Arguments>>(values[I])...);
        };
        if constexpr (std::is_void_v<Result>) {
            call();
        } else {
            writer.Put(call());
        }
    }
};

template <auto Method>
constexpr Operation OperationOf(const char* name, const char* arguments, const char* result) {
    return {name, arguments, result, &MethodOperation<Method>::Read, &MethodOperation<Method>::Serve};
}

/// Emits each firing of a service's event on the bus, from construction to destruction.
template <class Event, class... Arguments>
class EventSender {
public:
    EventSender(ServiceHost::Private& host, ServiceAddress from, const char* name, Event& event)
        : _host(host), _from(std::move(from)), _name(name), _event(event) {
        _event.AddHandler(core::CreateDelegate(this, &EventSender::Send));
    }
    ~EventSender() { _event.RemoveHandlers(this); }
    EventSender(const EventSender&) = delete;
    EventSender& operator=(const EventSender&) = delete;

private:
    void Send(Arguments... arguments) {
        _host.Emit(_from, _name, [&](Writer& writer) { (writer.Put(arguments), ...); });
    }

    ServiceHost::Private& _host;
    const ServiceAddress _from;
    const char* const _name;
    Event& _event;
};

template <class A>
void ForwardEvent(ServiceHost::Private& host, const ServiceAddress& from, const char* name, core::Event1<A>& event) {
    host.Keep(std::make_shared<EventSender<core::Event1<A>, A>>(host, from, name, event));
}

template <class A, class B>
void ForwardEvent(ServiceHost::Private& host, const ServiceAddress& from, const char* name, core::Event2<A, B>& event) {
    host.Keep(std::make_shared<EventSender<core::Event2<A, B>, A, B>>(host, from, name, event));
}

}  // namespace tavos::msgbus
