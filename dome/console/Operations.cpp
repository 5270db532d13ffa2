#include "Operations.h"

#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

#include "tavos/osa/Exception.h"

namespace dome::console {

namespace {

using nlohmann::json;
using tavos::osa::Exception;
using Operation = std::function<void(Services&, const json&)>;

template <class Integer>
Integer ToInteger(const json& value) {
    if (!value.is_number_integer()) throw Exception("not a whole number: %s", value.dump().c_str());
    const bool isHuge = value.is_number_unsigned() &&
                        value.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<Integer>::max());
    const auto number = isHuge ? 0 : value.get<std::int64_t>();
    if (isHuge || number < static_cast<std::int64_t>(std::numeric_limits<Integer>::min())) {
        throw Exception("number out of range: %s", value.dump().c_str());
    }
    return static_cast<Integer>(number);
}

template <class Value>
Value To(const json& value) {
    if constexpr (std::is_same_v<Value, bool>) {
        if (!value.is_boolean()) throw Exception("not true or false: %s", value.dump().c_str());
        return value.get<bool>();
    } else if constexpr (std::is_integral_v<Value>) {
        return ToInteger<Value>(value);
    } else if constexpr (std::is_floating_point_v<Value>) {
        if (!value.is_number()) throw Exception("not a number: %s", value.dump().c_str());
        return value.get<Value>();
    } else {
        if (!value.is_string()) throw Exception("not a text: %s", value.dump().c_str());
        return value.get<Value>();
    }
}

template <class Service, class... Arguments, std::size_t... Indices>
void Apply(Service& service, void (Service::*method)(Arguments...), const json& arguments,
           std::index_sequence<Indices...> /*indices*/) {
    if (arguments.size() != sizeof...(Arguments)) {
        throw Exception("%zu arguments, not %zu", arguments.size(), sizeof...(Arguments));
    }
    (service.*method)(To<std::decay_t<Arguments>>(arguments[Indices])...);
}

template <class Service, class... Arguments>
Operation Of(Service Services::*service, void (Service::*method)(Arguments...)) {
    return [service, method](Services& services, const json& arguments) {
        Apply(services.*service, method, arguments, std::index_sequence_for<Arguments...>());
    };
}

using Name = std::pair<std::string, std::string>;

const std::map<Name, Operation>& Operations() {
    static const std::map<Name, Operation> operations = {
        {{"pan", "SetPosition"}, Of(&Services::pan, &PanService::SetPosition)},
        {{"pan", "SetPositionAtSpeed"}, Of(&Services::pan, &PanService::SetPositionAtSpeed)},
        {{"pan", "SetRelativeVelocity"}, Of(&Services::pan, &PanService::SetRelativeVelocity)},
        {{"tilt", "SetPosition"}, Of(&Services::tilt, &TiltService::SetPosition)},
        {{"tilt", "SetPositionAtSpeed"}, Of(&Services::tilt, &TiltService::SetPositionAtSpeed)},
        {{"tilt", "SetRelativeVelocity"}, Of(&Services::tilt, &TiltService::SetRelativeVelocity)},
        {{"zoom", "SetMagnificationThousandthsX"}, Of(&Services::zoom, &ZoomService::SetMagnificationThousandthsX)},
        {{"zoom", "SetMaxMagnificationThousandthsX"},
         Of(&Services::zoom, &ZoomService::SetMaxMagnificationThousandthsX)},
        {{"zoom", "ZoomRelative"}, Of(&Services::zoom, &ZoomService::ZoomRelative)},
        {{"focus", "SetAutoFocus"}, Of(&Services::focus, &FocusService::SetAutoFocus)},
        {{"focus", "MoveFocus"}, Of(&Services::focus, &FocusService::MoveFocus)},
        {{"focus2", "AutoFocus"}, Of(&Services::focus2, &FocusV2Service::AutoFocus)},
        {{"focus2", "SetPosition"}, Of(&Services::focus2, &FocusV2Service::SetPosition)},
        {{"focus2", "RelativeFocus"}, Of(&Services::focus2, &FocusV2Service::RelativeFocus)},
        {{"iris", "SetAutoIris"}, Of(&Services::iris, &IrisService::SetAutoIris)},
        {{"iris", "MoveIris"}, Of(&Services::iris, &IrisService::MoveIris)},
        {{"relay", "SetRelay"}, Of(&Services::relay, &RelayService::SetRelay)},
        {{"relay", "ClearRelay"}, Of(&Services::relay, &RelayService::ClearRelay)},
    };
    return operations;
}

}  // namespace

bool IsOperation(const std::string& service, const std::string& operation) {
    return Operations().count({service, operation}) != 0;
}

void Call(Services& services, const std::string& service, const std::string& operation, const json& arguments) {
    Operations().at({service, operation})(services, arguments);
}

std::vector<std::string> Texts(const json& arguments) {
    std::vector<std::string> texts;
    for (const json& argument : arguments) {
        const bool isText = argument.is_string();
        texts.push_back(isText ? argument.get<std::string>()
                               : argument.dump(-1, ' ', false, json::error_handler_t::replace));
    }
    return texts;
}

}  // namespace dome::console
