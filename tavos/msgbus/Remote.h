#pragma once

#include <string>
#include <type_traits>

#include "tavos/core/Event.h"
#include "tavos/msgbus/Connection.h"
#include "tavos/msgbus/IMsgBus.h"
#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

/// A service on the bus, for the generated clients.
class Remote {
public:
    using Subscription = msgbus::Subscription;

    Remote(IMsgBus* bus, ServiceAddress address) : _connection(Checked(bus)), _address(std::move(address)) {}

    template <class Result, class... Arguments>
    Result Call(const char* operation, const Arguments&... arguments) {
        const auto put = [&](Writer& writer) { (writer.Put(arguments), ...); };
        if constexpr (std::is_void_v<Result>) {
            _connection.Call(_address, operation, put, "", [](Reader&) {});
        } else {
            Result result{};
            _connection.Call(_address, operation, put, Signature<Result>(),
                             [&](Reader& reader) { reader.Get(result); });
            return result;
        }
    }

    /// `event` must outlive the subscription.
    template <class A>
    Subscription Subscribe(const char* name, core::Event1<A>& event) {
        return _connection.Subscribe(_address, name, Signature<A>(),
                                     [&event](Reader& reader) { event.Fire(reader.Get<A>()); });
    }

    template <class A, class B>
    Subscription Subscribe(const char* name, core::Event2<A, B>& event) {
        return _connection.Subscribe(_address, name, Signature<A, B>(), [&event](Reader& reader) {
            const A a = reader.Get<A>();
            event.Fire(a, reader.Get<B>());
        });
    }

private:
    static Connection& Checked(IMsgBus* bus) {
        if (bus == nullptr) throw osa::Exception("a service client without a bus");
        return bus->GetConnection();
    }

    Connection& _connection;
    const ServiceAddress _address;
};

}  // namespace tavos::msgbus
