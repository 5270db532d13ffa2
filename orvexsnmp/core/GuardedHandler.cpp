#include "core/GuardedHandler.h"

#include <utility>

#include "tavos/core/Logger.h"

using tavos::msgbus::Work;

namespace {

using RequestId = std::pair<long, long>;  // transid, reqid

constexpr RequestId kNoRequest{-1, -1};

tavos::msgbus::MsgBus* s_bus = nullptr;
RequestId s_request = kNoRequest;

int CallGuarded(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    return Guarded(registration->handlerName, info,
                   [&] { return GuardedHandlerOf(handler)(handler, registration, info, requests); });
}

}  // namespace

netsnmp_handler_registration* CreateGuardedRegistration(const char* name, Netsnmp_Node_Handler* handler,
                                                        const oid* objectId, std::size_t oidLength, int modes) {
    auto* registration =
        netsnmp_create_handler_registration(name, CallGuarded, const_cast<oid*>(objectId), oidLength, modes);
    if (registration != nullptr) registration->handler->myvoid = reinterpret_cast<void*>(handler);
    return registration;
}

Netsnmp_Node_Handler* GuardedHandlerOf(const netsnmp_mib_handler* handler) {
    return reinterpret_cast<Netsnmp_Node_Handler*>(handler->myvoid);
}

void SetGuardedBus(tavos::msgbus::MsgBus* bus) {
    s_bus = bus;
    s_request = kNoRequest;
}

void BeginGuardedStart() {
    s_request = kNoRequest;
    if (s_bus != nullptr) s_bus->BeginWork(Work::kStart);
}

void BeginGuardedRequest(const netsnmp_agent_request_info* info) {
    if (s_bus == nullptr || info->asp == nullptr || info->asp->pdu == nullptr) return;
    const auto& pdu = *info->asp->pdu;
    if (std::exchange(s_request, RequestId(pdu.transid, pdu.reqid)) == RequestId(pdu.transid, pdu.reqid)) return;
    s_bus->BeginWork(Work::kRequest);
}

void LogGuardedFailure(const char* name) noexcept {
    const auto* logger = tavos::core::Logger::GetLogger("OrvexSnmp");
    try {
        throw;
    } catch (const std::exception& exception) {
        logger->Error("%s: given up after an exception: %s", name, exception.what());
    } catch (...) {
        logger->Error("%s: given up after an exception", name);
    }
}
