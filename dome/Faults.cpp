#include "Faults.h"

#include "WrongWord.h"

namespace dome {

Faults::Faults(const std::vector<std::string>& services, SetPresent setPresent) : _setPresent(std::move(setPresent)) {
    for (const std::string& service : services) _faults[service] = "ok";
}

void Faults::Set(const std::string& service, const std::string& fault) {
    const auto found = _faults.find(service);
    if (found == _faults.end()) throw WrongWord("fault", service, KeysOf(_faults));
    if (fault != "ok" && fault != "fail" && fault != "hang" && fault != "gone") {
        throw WrongWord("fault " + service, fault, "ok, fail, hang, gone");
    }
    const bool present = fault != "gone";
    if (present != (found->second != "gone")) _setPresent(service, present);
    found->second = fault;
}

tavos::msgbus::Treatment Faults::Treatment(const std::string& service) const {
    const std::string& fault = _faults.at(service);
    if (fault == "fail") return tavos::msgbus::Treatment::kFail;
    return fault == "hang" ? tavos::msgbus::Treatment::kHang : tavos::msgbus::Treatment::kServe;
}

}  // namespace dome
