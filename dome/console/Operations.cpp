#include "Operations.h"

#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "dome/OneLine.h"
#include "operations/Axis1.h"
#include "operations/Focus1.h"
#include "operations/Focus2.h"
#include "operations/Iris1.h"
#include "operations/Pan1.h"
#include "operations/Relay3.h"
#include "operations/Zoom1.h"
#include "tavos/osa/Exception.h"

namespace dome::console {

namespace {

using nlohmann::json;
using tavos::osa::Exception;
using Operation = std::function<void(Services&, const json&)>;
using Table = std::map<std::pair<std::string, std::string>, Operation>;

template <class Value>
std::string Kind() {
    using Limits = std::numeric_limits<Value>;
    if constexpr (std::is_same_v<Value, bool>) {
        return "true or false";
    } else if constexpr (std::is_integral_v<Value>) {
        return "a whole number from " + std::to_string(Limits::min()) + " to " + std::to_string(Limits::max());
    } else {
        return std::is_floating_point_v<Value> ? "a number" : "a text";
    }
}

/// Nothing when the JSON value is of another kind.
template <class Value>
std::optional<Value> To(const json& value) {
    using Limits = std::numeric_limits<Value>;
    bool fits = false;
    if constexpr (std::is_same_v<Value, bool>) {
        fits = value.is_boolean();
    } else if constexpr (std::is_floating_point_v<Value>) {
        fits = value.is_number();
    } else if constexpr (!std::is_integral_v<Value>) {
        fits = value.is_string();
    } else if (value.is_number_unsigned()) {
        fits = value.get<std::uint64_t>() <= std::uint64_t{Limits::max()};
    } else if (value.is_number_integer()) {
        fits = value.get<std::int64_t>() >= std::int64_t{Limits::min()};  // below 0
    }
    return fits ? std::optional<Value>(value.get<Value>()) : std::nullopt;
}

/// Takes the next argument.
template <class Value>
Value Argument(const std::string& call, const json& values, json::const_iterator& next, const char* name) {
    const std::string what = call + ": argument " + name;
    const std::string kind = Kind<Value>();
    if (next == values.end()) throw Exception("%s (%s) is missing", what.c_str(), kind.c_str());
    const json& given = *next++;
    const std::optional<Value> value = To<Value>(given);
    if (!value) throw Exception("%s must be %s, not %s", what.c_str(), kind.c_str(), given.dump().c_str());
    return *value;
}

/// Refuses arguments beyond those that the operation takes.
template <class... Values, class... Names>
void CheckCount(const std::string& call, const json& values, Names... names) {
    if (values.size() <= sizeof...(Values)) return;
    std::string takes;
    ((takes += std::string(takes.empty() ? "" : ", ") + names + " (" + Kind<Values>() + ")"), ...);
    throw Exception("%s: %zu arguments, but it takes only %s", call.c_str(), values.size(), takes.c_str());
}

template <class Service, class Interface, class... Values, class... Names>
Operation Checked(const std::string& call, Service Services::*service, void (Interface::*method)(Values...),
                  Names... names) {
    return [=](Services& services, const json& values) {
        CheckCount<std::decay_t<Values>...>(call, values, names...);
        auto next = values.begin();
        // Braces: from left to right.
        const std::tuple<std::decay_t<Values>...> typed{Argument<std::decay_t<Values>>(call, values, next, names)...};
        std::apply([&](const auto&... value) { ((services.*service).*method)(value...); }, typed);
    };
}

/// An operation with a result only reads: the console has the state instead.
template <class Service, class Interface, class Result, class... Values, class... Names>
Operation Checked(const std::string&, Service Services::*, Result (Interface::*)(Values...), Names...) {
    return nullptr;
}

template <class Service>
void Add(Table& table, const std::string& name, Service Services::*service) {
    VisitOperations(static_cast<Service*>(nullptr), [&](const char* operation, auto method, auto... arguments) {
        Operation checked = Checked(name + ' ' + operation, service, method, arguments...);
        if (checked) table[{name, operation}] = std::move(checked);
    });
}

const Table& Operations() {
    static const Table operations = [] {
        Table table;
        Add(table, "pan", &Services::pan);
        Add(table, "tilt", &Services::tilt);
        Add(table, "zoom", &Services::zoom);
        Add(table, "focus", &Services::focus);
        Add(table, "focus2", &Services::focus2);
        Add(table, "iris", &Services::iris);
        Add(table, "relay", &Services::relay);
        return table;
    }();
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
        texts.push_back(isText ? argument.get<std::string>() : OneLine(argument));
    }
    return texts;
}

}  // namespace dome::console
