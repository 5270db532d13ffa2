#include "support/FakeAgent.h"

#include <dlfcn.h>
#include <fcntl.h>

#include "core/GuardedHandler.h"
#include "support/Journal.h"

namespace {

FakeAgent s_agent;

bool Refused(const char* name) {
    return s_agent.refusing.count(name) != 0;
}

int Register(const char* kind, netsnmp_handler_registration* registration) {
    journal::Add(journal::Join("agent", kind, registration->handlerName,
                               OidText(registration->rootoid, registration->rootoid_len), registration->modes));
    if (!Refused(registration->handlerName)) return MIB_REGISTERED_OK;
    netsnmp_handler_registration_free(registration);
    return MIB_REGISTRATION_FAILED;
}

int PassOn(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration, netsnmp_agent_request_info* info,
           netsnmp_request_info* requests) {
    return netsnmp_call_next_handler(handler, registration, info, requests);
}

}  // namespace

FakeAgent& Agent() {
    return s_agent;
}

void ResetAgent() {
    s_agent = FakeAgent();
}

std::string OidText(const oid* name, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += "." + std::to_string(name[i]);
    return text;
}

// These replace the libraries' functions: the executable's symbols come first.
extern "C" {

int netsnmp_register_instance(netsnmp_handler_registration* registration) {
    const std::string name = registration->handlerName;
    auto* const handler = GuardedHandlerOf(registration->handler);
    const int result = Register("register_instance", registration);
    if (result == MIB_REGISTERED_OK) s_agent.handlers[name] = handler;
    return result;
}

int netsnmp_register_table_data_set(netsnmp_handler_registration* registration, netsnmp_table_data_set* dataSet,
                                    netsnmp_table_registration_info*) {
    const std::string name = registration->handlerName;
    const int result = Register("register_table_data_set", registration);
    if (result != MIB_REGISTERED_OK) return result;
    s_agent.dataSets[name] = dataSet;
    // The agent inserts its table handlers before the module's, and other handlers before them by name.
    netsnmp_inject_handler(registration, netsnmp_create_handler("table", PassOn));
    return result;
}

int netsnmp_unregister_handler(netsnmp_handler_registration* registration) {
    journal::Add(journal::Join("agent unregister", registration->handlerName));
    netsnmp_handler_registration_free(registration);
    return SNMPERR_SUCCESS;
}

/// Records the call, then calls the library's function.
int snmp_set_var_typed_value(netsnmp_variable_list* variable, u_char type, const void* value, std::size_t length) {
    static const auto original =
        reinterpret_cast<decltype(&snmp_set_var_typed_value)>(dlsym(RTLD_NEXT, "snmp_set_var_typed_value"));
    s_agent.answers.push_back({type, length});
    return original(variable, type, value, length);
}

int register_readfd(int descriptor, void (*callback)(int, void*), void* data) {
    journal::Add("agent register_readfd");
    if (Refused("readfd")) return FD_REGISTRATION_FAILED;
    s_agent.readDescriptor = descriptor;
    s_agent.readCallback = callback;
    s_agent.readData = data;
    return FD_REGISTERED_OK;
}

int unregister_readfd(int descriptor) {
    journal::Add("agent unregister_readfd");
    s_agent.unregisteredOpen = fcntl(descriptor, F_GETFD) != -1;
    if (descriptor == s_agent.readDescriptor) s_agent.readDescriptor = -1;
    return FD_UNREGISTERED_OK;
}

unsigned int snmp_alarm_register(unsigned int, unsigned int, SNMPAlarmCallback* callback, void*) {
    if (Refused("alarm")) return 0;
    s_agent.alarms[++s_agent.lastAlarm] = callback;
    return s_agent.lastAlarm;
}

void snmp_alarm_unregister(unsigned int alarm) {
    s_agent.alarms.erase(alarm);
}

void send_v2trap(netsnmp_variable_list* list) {
    journal::Add("agent send_v2trap");
    FakeAgent::SentTrap trap{};
    for (const auto* binding = list; binding != nullptr; binding = binding->next_variable) ++trap.bindings;
    trap.firstName = OidText(list->name, list->name_length);
    trap.firstType = list->type;
    trap.trapOid = OidText(list->val.objid, list->val_len / sizeof(oid));
    if (const auto* second = list->next_variable) {
        trap.name = OidText(second->name, second->name_length);
        trap.type = second->type;
        trap.value = static_cast<unsigned long>(*second->val.integer) & 0xFFFFFFFF;
    }
    s_agent.traps.push_back(trap);
    if (s_agent.whileSending) s_agent.whileSending();
}
}
