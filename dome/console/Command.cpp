#include "Command.h"

#include <arpa/inet.h>

#include <array>
#include <cctype>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "Server.h"
#include "trace/reader/Commands.h"
#include "trace/reader/Meaning.h"
#include "trace/reader/Objects.h"

namespace dome::console {

namespace {

using nlohmann::json;

constexpr std::size_t kMaxNumbers = 128;  // of an object identifier, RFC 3416

std::string Text(const json& body, const char* key) {
    const auto value = body.find(key);
    if (value == body.end() || !value->is_string()) throw Refusal{400, '"' + std::string(key) + "\" must be a string"};
    return value->get<std::string>();
}

template <class Number>
std::optional<Number> NumberOf(std::string_view text) {
    Number number{};
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || parsed.ec != std::errc() || parsed.ptr != text.data() + text.size()) return std::nullopt;
    return number;
}

template <class Number>
Number Within(const std::string& type, const std::string& text) {
    using Limits = std::numeric_limits<Number>;
    if (const auto number = NumberOf<Number>(text)) return *number;
    throw Refusal{400, "an " + type + " must be a whole number from " + std::to_string(Limits::min()) + " to " +
                           std::to_string(Limits::max())};
}

trace::ObjectId ObjectIdOf(std::string_view text) {
    trace::ObjectId id;
    if (!text.empty() && text.front() == '.') text.remove_prefix(1);
    while (id.size() <= kMaxNumbers) {
        const std::size_t end = text.find('.');
        const auto number = NumberOf<std::uint32_t>(text.substr(0, end));
        if (!number) break;
        id.push_back(*number);
        if (end != std::string_view::npos) {
            text.remove_prefix(end + 1);
            continue;
        }
        const bool isEncodable = id.size() >= 2 && id[0] <= 2 && (id[0] == 2 || id[1] < 40);
        if (isEncodable && id.size() <= kMaxNumbers) return id;
        break;
    }
    throw Refusal{400, "an object identifier must be 2 to 128 numbers with dots between them, as 1.3.6.1"};
}

/// Pairs of hexadecimal digits, with or without blanks between the pairs.
std::string OctetsOf(const std::string& text) {
    std::string octets;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        unsigned octet = 0;
        const char* const end = text.data() + std::min(i + 2, text.size());
        const auto parsed = std::from_chars(text.data() + i, end, octet, 16);
        if (parsed.ec != std::errc() || parsed.ptr != text.data() + i + 2) {
            throw Refusal{400, "octets must be pairs of hexadecimal digits, such as 02 40 46 50"};
        }
        octets.push_back(static_cast<char>(octet));
        i += 2;
    }
    return octets;
}

std::string AddressOf(const std::string& text) {
    std::array<char, 4> octets{};
    if (inet_pton(AF_INET, text.c_str(), octets.data()) == 1) return {octets.data(), octets.size()};
    throw Refusal{400, "an IpAddress must be four numbers with dots between them, as 127.0.0.1"};
}

trace::Value ValueOf(const std::string& type, const std::string& text) {
    using trace::TypeName;
    trace::Value value;
    for (const std::uint8_t known : {trace::kInteger, trace::kOctetString, trace::kObjectId, trace::kIpAddress,
                                     trace::kCounter32, trace::kGauge32, trace::kTimeTicks, trace::kCounter64}) {
        if (type != TypeName(known)) continue;
        value.type = known;
        if (known == trace::kInteger) {
            value.number = Within<std::int32_t>(type, text);
        } else if (known == trace::kCounter64) {
            value.number = static_cast<std::int64_t>(Within<std::uint64_t>(type, text));
        } else if (known == trace::kOctetString) {
            value.octets = OctetsOf(text);
        } else if (known == trace::kIpAddress) {
            value.octets = AddressOf(text);
        } else if (known == trace::kObjectId) {
            value.id = ObjectIdOf(text);
        } else {
            value.number = Within<std::uint32_t>(type, text);
        }
        return value;
    }
    throw Refusal{400,
                  "\"type\" must be INTEGER, OCTET STRING, OBJECT IDENTIFIER, IpAddress, Counter32, Gauge32, "
                  "TimeTicks or Counter64"};
}

}  // namespace

trace::Binding CommandOf(const json& body) {
    return {ObjectIdOf(Text(body, "oid")), ValueOf(Text(body, "type"), Text(body, "value"))};
}

json Explain(const trace::Binding& command) {
    const trace::ObjectFacts object = trace::FactsOf(command.name);
    return {{"meaning", trace::Meaning(object, command.value, true)},
            {"refused", trace::WhyRefused(object, command.value)},
            {"effect", trace::WhyWithoutEffect(object, command.value)},
            {"oddity", trace::Oddity(object, command.value)}};
}

json ObjectsJson() {
    json objects = json::array();
    for (const trace::CameraObject& object : trace::AllCameraObjects()) {
        objects.push_back({{"name", object.name},
                           {"oid", trace::Dotted(object.id)},
                           {"type", trace::TypeName(object.type)},
                           {"writable", object.isWritable},
                           {"column", object.isColumn}});
    }
    return objects;
}

}  // namespace dome::console
