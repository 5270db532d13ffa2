#include "Fleet.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <regex>
#include <set>
#include <sstream>

#include "ControlLink.h"
#include "dome/StateFolder.h"
#include "tavos/osa/Exception.h"

namespace dome {

namespace {

using tavos::osa::Exception;

std::set<int> Chosen(const std::string& only, int count) {
    std::set<int> chosen;
    static const std::regex kRange("([1-9][0-9]{0,3})(?:-([1-9][0-9]{0,3}))?");
    std::istringstream parts(only.empty() ? "1-" + std::to_string(count) : only);
    for (std::string part; std::getline(parts, part, ',');) {
        std::smatch match;
        if (!std::regex_match(part, match, kRange))
            throw Exception("--only requires numbers such as 1,4-6, not %s", only.c_str());
        const int first = std::stoi(match[1]);
        const int last = match[2].matched ? std::stoi(match[2]) : first;
        if (first > last || last > count)
            throw Exception("--only %s: the fleet has the cameras 1 to %d", only.c_str(), count);
        for (int number = first; number <= last; ++number) chosen.insert(number);
    }
    return chosen;
}

int CommandOne(const std::string& state, int number, const std::vector<std::string>& words) {
    try {
        const std::vector<std::string> answer = ControlLink(state, "").Ask(words);
        if (answer[0] != "ok") {
            std::fprintf(stderr, "domectl: %d: %s\n", number, answer[1].c_str());
            return answer[0] == "unknown" ? 2 : 1;
        }
        std::istringstream lines(answer[1]);
        for (std::string line; std::getline(lines, line);) std::printf("%d: %s\n", number, line.c_str());
        if (std::fflush(stdout) != 0) throw Exception("standard output cannot be written");
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "domectl: %d: %s\n", number, error.what());
        return 1;
    }
}

}  // namespace

int CommandFleet(const std::string& folder, const std::string& only, const std::vector<std::string>& words) {
    if (words.front() == "play" || words.front() == "trace" || words.front() == "wait") {
        throw Exception("%s is for one camera: choose it with --state", words.front().c_str());
    }
    const int size = FleetSize(folder);
    if (size == 0) throw Exception("there is no fleet in %s", folder.c_str());
    int status = 0;
    for (const int number : Chosen(only, size)) {
        status = std::max(status, CommandOne(folder + '/' + std::to_string(number), number, words));
    }
    return status;
}

}  // namespace dome
