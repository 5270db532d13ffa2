#include "Sender.h"

// net-snmp's headers must be included in this order.
#include <net-snmp/net-snmp-config.h>
//
#include <net-snmp/net-snmp-includes.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "Command.h"
#include "Server.h"
#include "Thread.h"
#include "dome/OneLine.h"
#include "trace/reader/Json.h"
#include "trace/reader/Objects.h"

namespace dome::console {

namespace {

using nlohmann::json;

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kMaxAge = 3s;          // of a command that is still sent
constexpr long kTimeout = 2'000'000;  // microseconds; a service that hangs holds the agent up for half a second

struct VersionName {
    const char* name;
    long number;
    bool isV3;
};

constexpr std::array<VersionName, 3> kVersions = {
    {{"2c", SNMP_VERSION_2c, false}, {"1", SNMP_VERSION_1, false}, {"3", SNMP_VERSION_3, true}}};

/// Reads no configuration of net-snmp's tools, and keeps nothing: the users are the agent's own. The environment keeps
/// it from its MIBs, which are of no use here.
void StartNetSnmp() {
    for (const int option : {NETSNMP_DS_LIB_DONT_READ_CONFIGS, NETSNMP_DS_LIB_DONT_PERSIST_STATE,
                             NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE}) {
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, option, 1);
    }
    snmp_disable_log();
    init_snmp("orvex-dome");
}

int Level(const AgentUser& user) {
    if (user.authentication.empty()) return SNMP_SEC_LEVEL_NOAUTH;
    return user.privacy.empty() ? SNMP_SEC_LEVEL_AUTHNOPRIV : SNMP_SEC_LEVEL_AUTHPRIV;
}

std::string LibraryError(int code) {
    return snmp_api_errstring(code);
}

/// A key from a pass phrase. Throws its reason when it cannot be made.
void MakeKey(const netsnmp_session& session, const std::string& phrase, u_char* key, std::size_t& length) {
    const int made =
        generate_Ku(session.securityAuthProto, static_cast<u_int>(session.securityAuthProtoLen),
                    reinterpret_cast<u_char*>(const_cast<char*>(phrase.data())), phrase.size(), key, &length);
    if (made != SNMPERR_SUCCESS) throw std::runtime_error("the user's pass phrase gives no key: " + LibraryError(made));
}

/// An open session; the library's texts and keys are in it. Throws std::runtime_error when it cannot be opened.
class Session {
public:
    Session(const std::string& peer, const AgentUser& user, long version) {
        netsnmp_session session;
        snmp_sess_init(&session);
        std::string name = peer;
        std::string community = user.community;
        std::string userName = user.name;
        session.version = version;
        session.retries = 0;  // a SET must not arrive twice
        session.timeout = kTimeout;
        session.peername = name.data();
        session.community = reinterpret_cast<u_char*>(community.data());
        session.community_len = community.size();
        if (user.isV3) FillUser(session, user, userName);
        _session = snmp_sess_open(&session);
        if (!_session) throw std::runtime_error(LibraryError(session.s_snmp_errno));
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { snmp_sess_close(_session); }

    void* Handle() const { return _session; }

    /// "127.0.0.1:40123": this end, as the agent sees it.
    std::string Peer() const {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(snmp_sess_transport(_session)->sock, reinterpret_cast<sockaddr*>(&address), &length);
        return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }

    std::string Error() const {
        int code = 0;
        char* text = nullptr;
        snmp_sess_error(_session, nullptr, &code, &text);
        const std::unique_ptr<char, decltype(&std::free)> freed(text, &std::free);
        return LibraryError(code);
    }

private:
    static void FillUser(netsnmp_session& session, const AgentUser& user, std::string& name) {
        session.securityName = name.data();
        session.securityNameLen = name.size();
        session.securityLevel = Level(user);
        if (user.authentication.empty()) return;
        const int authentication = usm_lookup_auth_type(user.authentication.c_str());
        std::size_t length = 0;
        session.securityAuthProto = sc_get_auth_oid(authentication, &length);
        session.securityAuthProtoLen = length;
        if (!session.securityAuthProto) throw std::runtime_error("unknown protocol " + user.authentication);
        session.securityAuthKeyLen = sizeof session.securityAuthKey;
        MakeKey(session, user.authenticator, session.securityAuthKey, session.securityAuthKeyLen);
        if (user.privacy.empty()) return;
        session.securityPrivProto = sc_get_priv_oid(usm_lookup_priv_type(user.privacy.c_str()), &length);
        session.securityPrivProtoLen = length;
        if (!session.securityPrivProto) throw std::runtime_error("unknown protocol " + user.privacy);
        session.securityPrivKeyLen = sizeof session.securityPrivKey;
        MakeKey(session, user.privacyPassword, session.securityPrivKey, session.securityPrivKeyLen);
    }

    void* _session = nullptr;
};

std::vector<oid> NumbersOf(const trace::ObjectId& id) {
    return {id.begin(), id.end()};
}

/// Adds what the command sets. Throws std::runtime_error when the library refuses it.
void Add(netsnmp_pdu& pdu, const trace::Binding& command) {
    const std::vector<oid> name = NumbersOf(command.name);
    const trace::Value& value = command.value;
    const auto add = [&](const void* data, std::size_t size) {
        if (!snmp_pdu_add_variable(&pdu, name.data(), name.size(), value.type, data, size)) {
            throw std::runtime_error("the value cannot be sent");
        }
    };
    const auto bits = static_cast<std::uint64_t>(value.number);
    if (value.type == trace::kObjectId) {
        const std::vector<oid> id = NumbersOf(value.id);
        add(id.data(), id.size() * sizeof(oid));
    } else if (value.type == trace::kCounter64) {
        const counter64 number{static_cast<u_long>(bits >> 32), static_cast<u_long>(bits & 0xffffffff)};
        add(&number, sizeof number);
    } else if (value.type == trace::kOctetString || value.type == trace::kIpAddress) {
        add(value.octets.data(), value.octets.size());
    } else {
        const long number = static_cast<long>(value.number);
        add(&number, sizeof number);
    }
}

/// The library keeps 32-bit numbers in longs, which have 32 or 64 bits.
template <class Long>
std::uint32_t Low32(Long number) {
    return static_cast<std::uint32_t>(number);
}

trace::Value ValueOf(const netsnmp_variable_list& variable) {
    trace::Value value;
    value.type = variable.type;
    switch (variable.type) {
        case ASN_INTEGER:
            value.number = *variable.val.integer;
            break;
        case ASN_COUNTER:
        case ASN_GAUGE:
        case ASN_TIMETICKS:
            value.number = Low32(*variable.val.integer);
            break;
        case ASN_COUNTER64:
            value.number = static_cast<std::int64_t>(std::uint64_t{Low32(variable.val.counter64->high)} << 32 |
                                                     Low32(variable.val.counter64->low));
            break;
        case ASN_OBJECT_ID:
            value.id.assign(variable.val.objid, variable.val.objid + variable.val_len / sizeof(oid));
            break;
        case ASN_OCTET_STR:
        case ASN_IPADDRESS:
        case ASN_OPAQUE:
            value.octets.assign(reinterpret_cast<const char*>(variable.val.string), variable.val_len);
            break;
        default:
            break;  // NULL and the exceptions have no contents
    }
    return value;
}

nlohmann::ordered_json AnswerOf(const netsnmp_pdu& response) {
    std::vector<trace::Binding> bindings;
    for (const netsnmp_variable_list* variable = response.variables; variable; variable = variable->next_variable) {
        bindings.push_back({{variable->name, variable->name + variable->name_length}, ValueOf(*variable)});
    }
    return trace::BindingsJson(bindings, true);
}

using Pdu = std::unique_ptr<netsnmp_pdu, decltype(&snmp_free_pdu)>;

/// Sends it, and adds what came of it to `reply`.
void Exchange(const Session& session, const trace::Binding& command, json& reply) {
    Pdu pdu(snmp_pdu_create(SNMP_MSG_SET), &snmp_free_pdu);
    Add(*pdu, command);
    reply["id"] = pdu->reqid;
    reply["peer"] = session.Peer();
    reply["outcome"] = "failed";
    netsnmp_pdu* received = nullptr;
    const int status = snmp_sess_synch_response(session.Handle(), pdu.release(), &received);
    const Pdu response(received, &snmp_free_pdu);
    if (status == STAT_TIMEOUT) {
        reply["outcome"] = "silent";
    } else if (status != STAT_SUCCESS || !response) {
        reply["reason"] = session.Error();
    } else {
        reply["outcome"] = "answered";
        reply["error"] = trace::ErrorName(response->errstat);
        reply["index"] = response->errindex;
        reply["answer"] = AnswerOf(*response);
    }
}

}  // namespace

Sender::Sender(std::string address, std::uint16_t port, std::string configuration)
    : _address(std::move(address)),
      _port(port),
      _configuration(std::move(configuration)),
      _thread(StartWithoutSignals([this] { Run(); })) {}

Sender::~Sender() {
    Stop();
}

json Sender::Users() const {
    json list = json::array();
    if (_port == 0) return list;
    const std::vector<AgentUser> users = UsersOf(_configuration);
    for (const VersionName& version : kVersions) {
        for (const AgentUser& user : users) {
            if (user.isV3 != version.isV3) continue;
            list.push_back({{"name", user.name},
                            {"version", version.name},
                            {"level", user.Level()},
                            {"authentication", user.authentication},
                            {"privacy", user.privacy}});
        }
    }
    return list;
}

void Sender::Send(const json& body, Page page) {
    const auto is = [&](const char* key, const std::string& text) {
        const auto value = body.find(key);
        return value != body.end() && value->is_string() && *value == text;
    };
    Job job{CommandOf(body), {}, 0, std::move(page), Clock::now()};
    if (_port == 0) throw Refusal{422, "start orvex-dome with --agent-port to send commands"};
    const auto version = std::find_if(kVersions.begin(), kVersions.end(),
                                      [&](const VersionName& known) { return is("version", known.name); });
    if (version == kVersions.end()) throw Refusal{400, "\"version\" must be 1, 2c or 3"};
    const std::vector<AgentUser> users = UsersOf(_configuration);
    const auto user = std::find_if(users.begin(), users.end(), [&](const AgentUser& known) {
        return known.isV3 == version->isV3 && is("user", known.name);
    });
    if (user == users.end()) throw Refusal{422, "the agent has no such user in this version of SNMP"};
    job.user = *user;
    job.version = version->number;
    const std::lock_guard<std::mutex> lock(_mutex);
    if (_isStopped || _jobs.size() >= kMaxWaiting) throw Refusal{503, "too many commands are waiting; try again later"};
    _jobs.push_back(std::move(job));
    _changed.notify_all();
}

void Sender::BeginStop() {
    const std::lock_guard<std::mutex> lock(_mutex);
    _isStopped = true;
    _changed.notify_all();
}

void Sender::Stop() {
    BeginStop();
    if (_thread.joinable()) _thread.join();
}

void Sender::Run() {
    bool isStarted = false;
    for (;;) {
        std::unique_lock<std::mutex> lock(_mutex);
        _changed.wait(lock, [this] { return _isStopped || !_jobs.empty(); });
        if (_isStopped) break;
        const Job job = std::move(_jobs.front());
        _jobs.pop_front();
        lock.unlock();
        if (!std::exchange(isStarted, true)) StartNetSnmp();
        try {
            Reply reply{500, "{}"};
            try {
                reply = CarryOut(job);
            } catch (const std::exception& error) {
                reply.body = OneLine({{"error", error.what()}});
            }
            job.page.finished(std::move(reply));
        } catch (const std::exception&) {
            continue;  // no memory for the answer: it is dropped
        }
    }
    if (isStarted) snmp_shutdown("orvex-dome");
}

Reply Sender::CarryOut(const Job& job) {
    json reply = Explain(job.command);
    reply["outcome"] = "unsent";
    try {
        CheckWanted(job);
        const Session session("udp:" + _address + ':' + std::to_string(_port), job.user, job.version);
        Exchange(session, job.command, reply);
    } catch (const std::exception& error) {
        reply["reason"] = error.what();
    }
    return {200, OneLine(reply)};
}

/// Throws the reason when the job must not be sent any more.
void Sender::CheckWanted(const Job& job) {
    if (!job.page.isThere()) throw std::runtime_error("nobody waits for its answer any more");
    if (Clock::now() - job.asked > kMaxAge) throw std::runtime_error("it waited longer than 3 s for the agent");
    const std::lock_guard<std::mutex> lock(_mutex);
    if (_isStopped) throw std::runtime_error("the camera ends");
}

}  // namespace dome::console
