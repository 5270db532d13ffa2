#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace dome {

/// A call is served, answered with an error, or never answered.
enum class Treatment { kServe, kFail, kHang };

// One row for each fault; "ok", no fault, is the first. After the enumerator: its name in commands and answers, what
// the page says of such a service, what happens to the service's calls, and whether it keeps its name on the bus.
#define DOME_FAULTS(ROW)                     \
    ROW(kOk, "ok", "works", kServe, true)    \
    ROW(kFail, "fail", "fails", kFail, true) \
    ROW(kHang, "hang", "hangs", kHang, true) \
    ROW(kGone, "gone", "is gone", kServe, false)
#define DOME_ENUMERATOR(enumerator, name, words, treatment, present) enumerator,
#define DOME_KIND(enumerator, name, words, treatment, present) \
    {Fault::enumerator, name, words, Treatment::treatment, present},

/// How a service behaves.
enum class Fault { DOME_FAULTS(DOME_ENUMERATOR) };

struct FaultKind {
    Fault fault;
    const char* name;
    const char* words;
    Treatment treatment;
    bool present;
};

inline constexpr FaultKind kFaultKinds[] = {DOME_FAULTS(DOME_KIND)};
#undef DOME_FAULTS
#undef DOME_ENUMERATOR
#undef DOME_KIND

constexpr const FaultKind& KindOf(Fault fault) {
    return kFaultKinds[static_cast<std::size_t>(fault)];
}

/// The outcome of a call that is treated so: the name of the first fault that treats calls so.
constexpr const char* Outcome(Treatment treatment) {
    for (const FaultKind& kind : kFaultKinds) {
        if (kind.treatment == treatment) return kind.name;
    }
    return "";
}

/// The names of all faults.
inline std::string FaultNames(const char* separator) {
    std::string names;
    for (const FaultKind& kind : kFaultKinds) names += (names.empty() ? "" : separator) + std::string(kind.name);
    return names;
}

/// The fault of each service. Services are identified by their short names.
class Faults {
public:
    /// Takes or gives up the name of a service; may throw.
    using SetPresent = std::function<void(const std::string& service, bool present)>;

    /// All services are "ok" at first.
    Faults(const std::vector<std::string>& services, SetPresent setPresent);

    /// Sets the fault of that name. Throws WrongWord for an unknown service or fault, and what SetPresent throws; then
    /// nothing changes.
    void Set(const std::string& service, const std::string& name);

    dome::Treatment Treatment(const std::string& service) const { return KindOf(All().at(service)).treatment; }

    const std::map<std::string, Fault>& All() const { return _faults; }

private:
    std::map<std::string, Fault> _faults;
    SetPresent _setPresent;
};

}  // namespace dome
