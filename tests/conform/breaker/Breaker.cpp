// Breaks the module on purpose, for the tests of orvex-conform. The agent loads this beside orvexsnmp.so; a handler
// before those of each of the module's registrations changes what they are given and what they answer. Which break is
// in force stands in the file that ORVEX_BREAKS names, one a line: "KIND OID". It is read again for each request, so
// one agent serves every break. Preloaded into the agent as well, it changes the traps that the module sends.

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

// The agent's headers. They must be included in this order.
#include <net-snmp/net-snmp-config.h>
//
#include <net-snmp/net-snmp-includes.h>
//
#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace {

using Octets = std::vector<unsigned char>;

constexpr useconds_t kSlowMicroseconds = 600'000;
constexpr int kMany = 1000;  // requests for one object at once
constexpr std::size_t kCommandLength = 4;

std::map<std::string, Octets> s_remembered;  // values that were only reserved, or not passed on, by OID
// The agent would refuse SETs of these before any handler sees them, so the breaker refuses them instead.
std::set<const netsnmp_handler_registration*> s_readOnly;

std::string TextOf(const oid* name, std::size_t length) {
    std::ostringstream text;
    for (std::size_t i = 0; i < length; ++i) text << (i == 0 ? "" : ".") << name[i];
    return text.str();
}

std::string NameOf(const netsnmp_request_info* request) {
    return TextOf(request->requestvb->name, request->requestvb->name_length);
}

/// The kind of break of each OID.
std::map<std::string, std::string> Breaks() {
    std::map<std::string, std::string> breaks;
    const char* path = std::getenv("ORVEX_BREAKS");
    std::ifstream file(path == nullptr ? "" : path);
    std::string kind, name;
    while (file >> kind >> name) breaks[name] = kind;
    if (breaks.empty()) s_remembered.clear();
    return breaks;
}

std::string BreakOf(const std::string& name) {
    const auto breaks = Breaks();
    const auto found = breaks.find(name);
    return found == breaks.end() ? "" : found->second;
}

bool IsSet(int mode) {
    return mode == MODE_SET_RESERVE1 || mode == MODE_SET_RESERVE2 || mode == MODE_SET_ACTION ||
           mode == MODE_SET_COMMIT || mode == MODE_SET_FREE || mode == MODE_SET_UNDO;
}

void Answer(netsnmp_variable_list* variable, unsigned char type, const void* value, std::size_t length) {
    snmp_set_var_typed_value(variable, type, static_cast<const unsigned char*>(value), length);
}

Octets OctetsOf(const netsnmp_variable_list* variable) {
    if (variable->val.string == nullptr) return {};
    return {variable->val.string, variable->val.string + variable->val_len};
}

bool HasValue(const netsnmp_variable_list* variable) {
    return variable->type != ASN_NULL && variable->type != SNMP_NOSUCHOBJECT && variable->type != SNMP_NOSUCHINSTANCE &&
           variable->type != ASN_PRIV_RETRY;
}

void BreakNumber(netsnmp_variable_list* variable, const std::string& kind) {
    const long value = *variable->val.integer;
    if (kind == "wrong-type") Answer(variable, ASN_GAUGE, &value, sizeof(value));
    const long other = value == 0 ? 7 : value - 1;
    if (kind == "wrong-value") Answer(variable, ASN_INTEGER, &other, sizeof(other));
    const long beyond = 2;
    if (kind == "out-of-range") Answer(variable, ASN_INTEGER, &beyond, sizeof(beyond));
}

void BreakOctets(netsnmp_variable_list* variable, const std::string& kind) {
    Octets value = OctetsOf(variable);
    if (kind == "wrong-type") Answer(variable, ASN_OPAQUE, value.data(), value.size());
    if (kind == "too-short" && !value.empty()) Answer(variable, ASN_OCTET_STR, value.data(), value.size() - 1);
    if (kind == "wrong-value" && !value.empty()) {
        value[0] ^= 1;
        Answer(variable, ASN_OCTET_STR, value.data(), value.size());
    }
    const Octets zeros(value.size());
    if (kind == "forgets") Answer(variable, ASN_OCTET_STR, zeros.data(), zeros.size());
}

/// Changes what the module has answered to a GET.
void BreakAnswer(netsnmp_request_info* request, bool isNext) {
    auto* const variable = request->requestvb;
    if (!HasValue(variable)) return;
    const std::string name = NameOf(request);
    const std::string kind = BreakOf(name);
    if (kind.empty()) return;
    const auto remembered = s_remembered.find(name);
    if (remembered != s_remembered.end()) {
        Answer(variable, variable->type, remembered->second.data(), remembered->second.size());
    } else if (kind == "not-behind" && isNext) {
        const oid before[] = {1, 3, 6, 1, 4, 1, 1206, 4, 2, 1};
        snmp_set_var_objid(variable, before, OID_LENGTH(before));
    } else if (variable->type == ASN_INTEGER || variable->type == ASN_GAUGE) {
        BreakNumber(variable, kind);
    } else if (variable->type == ASN_OCTET_STR) {
        BreakOctets(variable, kind);
    }
}

int Read(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration, netsnmp_agent_request_info* info,
         netsnmp_request_info* requests) {
    const bool isNext = info->mode != MODE_GET;
    // For scalars: the registration's OID is the instance.
    // The name behind an instance is not the instance's matter.
    const auto* const asked = requests->requestvb;
    const bool isAbout = !isNext || snmp_oid_compare(asked->name, asked->name_length, registration->rootoid,
                                                     registration->rootoid_len) < 0;
    const std::string kind = isAbout ? BreakOf(TextOf(registration->rootoid, registration->rootoid_len)) : "";
    if (kind == "slow") usleep(kSlowMicroseconds);
    if (kind == "error") return SNMP_ERR_GENERR;
    if (kind == "skipped" && isNext) return SNMP_ERR_NOERROR;
    if (kind == "skipped-by-bulk" && info->mode == MODE_GETBULK) return SNMP_ERR_NOERROR;
    if (kind == "missing") {
        if (!isNext) netsnmp_set_request_error(info, requests, SNMP_NOSUCHINSTANCE);
        return SNMP_ERR_NOERROR;
    }
    int count = 0;
    for (auto* request = requests; request != nullptr; request = request->next) ++count;
    if (kind == "dies-of-many" && count > kMany) _exit(0);
    const int result = netsnmp_call_next_handler(handler, registration, info, requests);
    for (auto* request = requests; request != nullptr; request = request->next) BreakAnswer(request, isNext);
    return result;
}

/// A command that moves the axis otherwise than the manager said.
Octets Misunderstood(const std::string& kind, Octets command) {
    if (kind == "still") return {3, 0x80, 0, 0};  // pan and tilt drop this one
    if (kind == "reversed") command[1] = static_cast<unsigned char>(-static_cast<signed char>(command[1]));
    if (kind == "elsewhere" && command[0] == 2) command[2] ^= 2;
    return command;
}

/// Passes another command on than the one received; answers the received one.
int SetOther(const std::string& kind, netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
             netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto* const variable = requests->requestvb;
    const Octets command = OctetsOf(variable);
    if (command.size() != kCommandLength || command[0] == 0) {
        s_remembered.erase(NameOf(requests));
        return netsnmp_call_next_handler(handler, registration, info, requests);
    }
    const Octets other = Misunderstood(kind, command);
    Answer(variable, ASN_OCTET_STR, other.data(), other.size());
    const int result = netsnmp_call_next_handler(handler, registration, info, requests);
    Answer(variable, ASN_OCTET_STR, command.data(), command.size());
    if (info->mode == MODE_SET_COMMIT) s_remembered[NameOf(requests)] = command;
    return result;
}

int Refuse(netsnmp_agent_request_info* info, netsnmp_request_info* requests, int error) {
    if (info->mode == MODE_SET_RESERVE1) netsnmp_set_request_error(info, requests, error);
    return SNMP_ERR_NOERROR;
}

int Write(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration, netsnmp_agent_request_info* info,
          netsnmp_request_info* requests) {
    auto* const variable = requests->requestvb;
    const std::string name = NameOf(requests);
    const std::string kind = BreakOf(name);
    const bool isOctets = variable->type == ASN_OCTET_STR;
    if (kind == "not-writable") return Refuse(info, requests, SNMP_ERR_NOTWRITABLE);
    if (kind == "other-error") return Refuse(info, requests, SNMP_ERR_WRONGLENGTH);
    if (kind == "writable") return SNMP_ERR_NOERROR;
    if (s_readOnly.count(registration) != 0) return Refuse(info, requests, SNMP_ERR_NOTWRITABLE);
    if (kind == "ignores" && info->mode == MODE_SET_COMMIT) return SNMP_ERR_NOERROR;
    if (kind == "any-number" && variable->type == ASN_INTEGER) return SNMP_ERR_NOERROR;
    if (kind == "any-octets" && isOctets) return SNMP_ERR_NOERROR;
    if (kind == "no-deltas" && isOctets && variable->val_len > 0 && variable->val.string[0] == 1) {
        return Refuse(info, requests, SNMP_ERR_GENERR);
    }
    if (kind == "beyond" && isOctets && variable->val_len >= kCommandLength && variable->val.string[0] == 2) {
        const Octets command = OctetsOf(variable);
        if (command[2] * 256 + command[3] > 35999) return SNMP_ERR_NOERROR;
    }
    if (kind == "half-done" && info->mode == MODE_SET_RESERVE1) s_remembered[name] = OctetsOf(variable);
    if (kind == "still" || kind == "reversed" || kind == "elsewhere") {
        return SetOther(kind, handler, registration, info, requests);
    }
    const int result = netsnmp_call_next_handler(handler, registration, info, requests);
    if (kind == "other-answer" && info->mode == MODE_SET_COMMIT && isOctets) {
        const Octets zeros(variable->val_len, 9);
        Answer(variable, ASN_OCTET_STR, zeros.data(), zeros.size());
    }
    return result;
}

int Break(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration, netsnmp_agent_request_info* info,
          netsnmp_request_info* requests) {
    return (IsSet(info->mode) ? Write : Read)(handler, registration, info, requests);
}

bool IsTheModules(const netsnmp_handler_registration* registration) {
    const std::string name = TextOf(registration->rootoid, registration->rootoid_len) + ".";
    return name.rfind("1.3.6.1.4.1.1206.4.2.", 0) == 0 || name.rfind("1.3.6.1.4.1.32473.", 0) == 0;
}

/// Changes the trap's binding, or drops the trap.
bool BreakTrap(netsnmp_variable_list* variables) {
    auto* const about = variables->next_variable;  // behind snmpTrapOID.0
    if (about == nullptr) return true;
    const std::string kind = BreakOf(TextOf(about->name, about->name_length));
    if (kind == "no-trap") return false;
    if (kind == "trap-type") {
        const long value = *about->val.integer;
        Answer(about, ASN_INTEGER, &value, sizeof(value));
    }
    if (kind == "trap-value") ++*about->val.integer;
    if (kind == "trap-name") ++about->name[about->name_length - 1];
    return true;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void init_orvexbreaker() {
    std::set<netsnmp_handler_registration*> met;
    for (auto* context = netsnmp_subtree_find_first(""); context != nullptr; context = context->next) {
        for (auto* tree = context; tree != nullptr; tree = tree->children) {
            auto* const registration = tree->reginfo;
            if (registration == nullptr || !IsTheModules(registration) || !met.insert(registration).second) continue;
            if ((registration->modes & HANDLER_CAN_SET) == 0) s_readOnly.insert(registration);
            registration->modes |= HANDLER_CAN_SET;
            netsnmp_inject_handler(registration, netsnmp_create_handler("breaker", Break));
        }
    }
}

/// Replaces the agent's, for the module.
__attribute__((visibility("default"))) void send_v2trap(netsnmp_variable_list* variables) {
    using Send = void (*)(netsnmp_variable_list*);
    static const auto send = reinterpret_cast<Send>(dlsym(RTLD_NEXT, "send_v2trap"));
    if (BreakTrap(variables)) send(variables);
}
}
