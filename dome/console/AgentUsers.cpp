#include "AgentUsers.h"

#include <algorithm>
#include <optional>

#include "trace/reader/AgentConfiguration.h"
#include "trace/reader/Communities.h"

namespace dome::console {

namespace {

/// The user of "createUser [-e ENGINE] NAME [PROTOCOL PHRASE [PROTOCOL [PHRASE]]]".
std::optional<AgentUser> UserOf(std::vector<std::string> words) {
    if (words[0] != "createuser") return std::nullopt;
    const std::size_t first = words.size() > 1 && words[1] == "-e" ? 3 : 1;
    const auto isKey = [](const std::string& word) { return word == "-m" || word == "-l"; };
    if (words.size() <= first || std::any_of(words.begin(), words.end(), isKey)) return std::nullopt;
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(first));
    AgentUser user;
    user.isV3 = true;
    user.name = words[0];
    if (words.size() < 3) return user;
    user.authentication = words[1];
    user.authenticator = words[2];
    if (words.size() < 4) return user;
    user.privacy = words[3];
    user.privacyPassword = words.size() < 5 ? words[2] : words[4];
    return user;
}

}  // namespace

std::string AgentUser::Level() const {
    if (!isV3) return "";
    if (authentication.empty()) return "noAuthNoPriv";
    return privacy.empty() ? "authNoPriv" : "authPriv";
}

std::vector<AgentUser> UsersOf(const std::string& configurationFile) {
    const auto configuration = trace::AgentConfiguration::OfFile(configurationFile);
    const trace::Communities communities(configuration);
    std::vector<AgentUser> users;
    for (const auto& [community, name] : communities.All()) {
        AgentUser user;
        user.name = name;
        user.community = community;
        users.push_back(std::move(user));
    }
    for (const trace::Directive& directive : configuration.directives) {
        if (auto user = UserOf(directive.words)) users.push_back(std::move(*user));
    }
    const auto isEarlier = [](const AgentUser& left, const AgentUser& right) {
        return left.isV3 != right.isV3 ? right.isV3 : left.name < right.name;
    };
    std::stable_sort(users.begin(), users.end(), isEarlier);
    return users;
}

}  // namespace dome::console
