#pragma once

#include <string>
#include <vector>

namespace dome::console {

/// Who may ask the agent, with what only the agent and its user know. The secrets must not leave the process other than
/// in a message to the agent.
struct AgentUser {
    std::string name;             ///< of a community its name in the configuration ("com2sec"), never itself
    bool isV3 = false;            ///< a user of SNMPv3; otherwise a community
    std::string community;        ///< secret
    std::string authentication;   ///< the protocol, "SHA"; empty: none
    std::string authenticator;    ///< secret: the pass phrase
    std::string privacy;          ///< the protocol, "AES"; empty: none
    std::string privacyPassword;  ///< secret: the pass phrase

    /// "authPriv", "authNoPriv", "noAuthNoPriv"; empty for a community.
    std::string Level() const;
};

/// The communities and the SNMPv3 users of an agent with this snmpd.conf, in that order, each by name. A file that
/// cannot be read has none. Skips a user whose keys are given instead of pass phrases.
std::vector<AgentUser> UsersOf(const std::string& configurationFile);

}  // namespace dome::console
