#include "tables/RealAgent.h"

#include <net-snmp/library/snmpCallbackDomain.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace {

RealAgent* s_agent = nullptr;

std::string OidText(const std::vector<oid>& name) {
    std::string text;
    for (const auto part : name) text += "." + std::to_string(part);
    return text;
}

std::string ValueText(const RealAgent::Value& value) {
    switch (value.type) {
        case ASN_INTEGER:
            return std::to_string(value.integer);
        case ASN_OCTET_STR:
            return value.octets;
        case ASN_NULL:
            return "null";
        case SNMP_NOSUCHOBJECT:
            return "noSuchObject";
        case SNMP_NOSUCHINSTANCE:
            return "noSuchInstance";
        case SNMP_ENDOFMIBVIEW:
            return "endOfMibView";
        default:
            return "type " + std::to_string(value.type);
    }
}

/// The folder of the agent's files: empty, and removed with the process.
struct AgentFolder {
    AgentFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "orvexsnmp-tables-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
        path = name;
        for (const char* variable : {"SNMP_PERSISTENT_DIR", "SNMPCONFPATH"}) setenv(variable, path.c_str(), 1);
        for (const char* variable : {"MIBS", "MIBDIRS"}) setenv(variable, "", 1);
    }
    ~AgentFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::filesystem::path path;
};

}  // namespace

std::string RealAgent::Binding::Text() const {
    return OidText(name) + " = " + ValueText(value);
}

std::vector<std::string> RealAgent::Answer::Text() const {
    std::vector<std::string> lines;
    for (const auto& binding : bindings) lines.push_back(binding.Text());
    return lines;
}

RealAgent& RealAgent::Get() {
    if (s_agent == nullptr) s_agent = new RealAgent();
    return *s_agent;
}

RealAgent::RealAgent() {
    static const AgentFolder folder;
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    snmp_disable_log();
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);
    init_agent("table-tests");
    init_snmp("table-tests");
    // Sessions inside the process.
    const auto* agent = netsnmp_callback_open(0, handle_snmp_packet, nullptr, nullptr);
    if (agent == nullptr) throw std::runtime_error("the agent has no session");
    _session = netsnmp_callback_open(agent->local_port, &RealAgent::Receive, nullptr, nullptr);
    if (_session == nullptr) throw std::runtime_error("no session with the agent");
}

int RealAgent::Receive(int operation, netsnmp_session*, int, netsnmp_pdu* pdu, void*) {
    if (operation != NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) return 1;
    auto& answer = s_agent->_answer;
    answer.error = pdu->errstat;
    answer.index = pdu->errindex;
    for (const auto* variable = pdu->variables; variable != nullptr; variable = variable->next_variable) {
        Binding binding;
        binding.name.assign(variable->name, variable->name + variable->name_length);
        binding.value.type = variable->type;
        if (variable->type == ASN_INTEGER) binding.value.integer = *variable->val.integer;
        if (variable->type == ASN_OCTET_STR) {
            binding.value.octets.assign(reinterpret_cast<const char*>(variable->val.string), variable->val_len);
        }
        answer.bindings.push_back(binding);
    }
    return 1;
}

RealAgent::Answer RealAgent::Send(int command, const std::vector<Binding>& bindings, long maxRepetitions) {
    auto* pdu = snmp_pdu_create(command);
    pdu->version = SNMP_VERSION_2c;
    pdu->flags |= UCD_MSG_FLAG_ALWAYS_IN_VIEW;
    pdu->community = reinterpret_cast<u_char*>(strdup("test"));
    pdu->community_len = strlen("test");
    if (command == SNMP_MSG_GETBULK) {
        pdu->non_repeaters = 0;
        pdu->max_repetitions = maxRepetitions;
    }
    for (const auto& [name, value] : bindings) {
        if (value.type == ASN_INTEGER) {
            snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_INTEGER, &value.integer, sizeof value.integer);
            continue;
        }
        // As octets first: net-snmp would refuse to store a value of some types.
        auto* variable = snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_OCTET_STR, value.octets.data(),
                                               value.octets.size());
        if (variable == nullptr) throw std::runtime_error("no room for a binding");
        variable->type = value.type;
    }
    _answer = Answer();
    if (snmp_send(_session, pdu) == 0) {
        snmp_free_pdu(pdu);
        throw std::runtime_error(snmp_api_errstring(_session->s_snmp_errno));
    }
    constexpr int kMaxRounds = 1000;
    for (int round = 0; round < kMaxRounds && _answer.error == -1; ++round) agent_check_and_process(0);
    return _answer;
}
