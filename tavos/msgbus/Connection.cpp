#include "tavos/msgbus/Connection.h"

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/CallChannel.h"
#include "tavos/msgbus/EventThread.h"
#include "tavos/msgbus/SilentServices.h"

namespace tavos::msgbus {

Subscription::Subscription(std::shared_ptr<EventThread> thread, std::shared_ptr<EventRecord> record)
    : _thread(std::move(thread)), _record(std::move(record)) {}

Subscription::~Subscription() {
    if (_thread) _thread->Remove(_record);
}

Connection::Connection(const std::string& address, std::chrono::milliseconds deadline, bool useLanes)
    : _reachability(std::make_shared<Reachability>(address)),
      _silent(std::make_shared<SilentServices>()),
      _calls(std::make_unique<CallChannel>(address, deadline, useLanes, _reachability, _silent)),
      _events(std::make_shared<EventThread>(address, deadline, _reachability, _silent)) {}

Connection::~Connection() {
    _events->Stop();
}

void Connection::StartServer() {
    _events->Start();
}

void Connection::BeginWork(std::chrono::milliseconds limit) {
    _calls->BeginWork(limit);
}

void Connection::Call(const ServiceAddress& to, const char* operation, const std::function<void(Writer&)>& arguments,
                      const std::string& resultSignature, const std::function<void(Reader&)>& result) {
    _calls->Call(to, operation, arguments, resultSignature, result);
}

Subscription Connection::Subscribe(const ServiceAddress& from, const char* event, const std::string& signature,
                                   std::function<void(Reader&)> handler) {
    auto record = std::make_shared<EventRecord>();
    record->from = from;
    record->event = event;
    record->signature = signature;
    record->handler = std::move(handler);
    _events->Add(record);
    return {_events, record};
}

}  // namespace tavos::msgbus
