#include "tavos/msgbus/MsgBus.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

#include "tavos/msgbus/Connection.h"

namespace tavos::msgbus {

namespace {

std::string Address() {
    const char* const address = std::getenv("TAVOS_BUS_ADDRESS");
    return address ? address : "";
}

std::chrono::milliseconds Deadline() {
    constexpr long kUsual = 500;
    constexpr long kLongest = 60000;
    const char* const text = std::getenv("TAVOS_CALL_TIMEOUT_MS");
    const long milliseconds = text ? std::strtol(text, nullptr, 10) : kUsual;
    return std::chrono::milliseconds(milliseconds > 0 ? std::min(milliseconds, kLongest) : kUsual);
}

}  // namespace

MsgBus::MsgBus() : _connection(std::make_unique<Connection>(Address(), Deadline())) {}

MsgBus::~MsgBus() = default;

void MsgBus::StartServer() {
    _connection->StartServer();
}

Connection& MsgBus::GetConnection() {
    return *_connection;
}

}  // namespace tavos::msgbus
