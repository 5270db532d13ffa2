#include "Faults.h"

#include <algorithm>

#include "WrongWord.h"

namespace dome {

Faults::Faults(const std::vector<std::string>& services, SetPresent setPresent) : _setPresent(std::move(setPresent)) {
    for (const std::string& service : services) _faults[service] = Fault::kOk;
}

void Faults::Set(const std::string& service, const std::string& name) {
    const auto found = _faults.find(service);
    if (found == _faults.end()) throw WrongWord("fault", service, KeysOf(_faults));
    const auto named = [&](const FaultKind& kind) { return name == kind.name; };
    const auto* const kind = std::find_if(std::begin(kFaultKinds), std::end(kFaultKinds), named);
    if (kind == std::end(kFaultKinds)) throw WrongWord("fault " + service, name, FaultNames(", "));
    if (kind->present != KindOf(found->second).present) _setPresent(service, kind->present);
    found->second = kind->fault;
}

}  // namespace dome
