#include "tavos/msgbus/MsgBus.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

#include "tavos/msgbus/Connection.h"
#include "tavos/msgbus/Switch.h"

namespace tavos::msgbus {

namespace {

std::string Address() {
    const char* const address = std::getenv("TAVOS_BUS_ADDRESS");
    return address ? address : "";
}

std::chrono::milliseconds Milliseconds(const char* variable, long byDefault) {
    constexpr long kMax = 60000;
    const char* const text = std::getenv(variable);
    const long milliseconds = text ? std::strtol(text, nullptr, 10) : byDefault;
    return std::chrono::milliseconds(milliseconds > 0 ? std::min(milliseconds, kMax) : byDefault);
}

std::chrono::milliseconds CallTime() {
    return Milliseconds("TAVOS_CALL_TIMEOUT_MS", 500);
}

std::chrono::milliseconds RequestTime() {
    return Milliseconds("TAVOS_REQUEST_TIMEOUT_MS", 2 * CallTime().count());
}

}  // namespace

MsgBus::MsgBus()
    : _connection(std::make_unique<Connection>(Address(), CallTime(), IsOn("TAVOS_BUS_LANES"))),
      _requestTime(RequestTime()) {}

MsgBus::~MsgBus() = default;

void MsgBus::StartServer() {
    _connection->StartServer();
}

Connection& MsgBus::GetConnection() {
    return *_connection;
}

void MsgBus::BeginWork(Work work) {
    // The start reads three sensors and every input and relay once.
    constexpr int kRequestsOfAStart = 5;
    _connection->BeginWork(work == Work::kStart ? kRequestsOfAStart * _requestTime : _requestTime);
}

}  // namespace tavos::msgbus
