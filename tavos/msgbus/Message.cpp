#include "tavos/msgbus/Message.h"

#include <systemd/sd-bus.h>

#include <charconv>
#include <cmath>
#include <cstring>

#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

namespace {

void Check(int result) {
    if (result < 0) throw osa::Exception("cannot build a message: %s", std::strerror(-result));
}

template <class T>
void GetBasic(sd_bus_message* message, char type, T* value) {
    if (sd_bus_message_read_basic(message, type, value) <= 0) {
        throw osa::Exception("a message has values of unexpected types");
    }
}

/// The length of the UTF-8 sequence that starts at `at`; 0 if it is invalid.
std::size_t SequenceLength(const std::string& text, std::size_t at) {
    const auto octet = [&](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
    };
    const unsigned first = octet(at);
    if (first < 0x80) return first == 0 ? 0 : 1;
    const std::size_t length = first >= 0xF5 ? 0 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
    for (std::size_t more = 1; more < length; ++more) {
        if ((octet(at + more) & 0xC0) != 0x80) return 0;
    }
    const unsigned second = octet(at + 1);
    const bool tooLong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool surrogate = first == 0xED && second >= 0xA0;
    const bool tooLarge = first == 0xF4 && second >= 0x90;
    return tooLong || surrogate || tooLarge ? 0 : length;
}

}  // namespace

bool CanTravel(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = SequenceLength(text, at);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

namespace {

void AppendQuoted(std::string& json, const std::string& text) {
    static constexpr char kDigits[] = "0123456789abcdef";
    json += '"';
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = SequenceLength(text, at);
        const auto octet = static_cast<unsigned char>(text[at]);
        if (length == 0 && octet != 0) {
            json += "\xEF\xBF\xBD";
        } else if (octet < 0x20) {
            json += {'\\', 'u', '0', '0', kDigits[octet >> 4], kDigits[octet & 0xF]};
        } else {
            if (octet == '"' || octet == '\\') json += '\\';
            json.append(text, at, length);
        }
        at += length == 0 ? 1 : length;
    }
    json += '"';
}

/// Doubles in the shortest form that reads back as the same number.
template <class T>
std::string TextOf(T number) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

}  // namespace

std::string& Writer::NextElement() {
    if (!_json->empty()) *_json += ',';
    return *_json;
}

void Writer::Put(std::int32_t value) {
    if (_json != nullptr) {
        NextElement() += TextOf(value);
        return;
    }
    Check(sd_bus_message_append_basic(_message, SD_BUS_TYPE_INT32, &value));
}

void Writer::Put(std::uint32_t value) {
    if (_json != nullptr) {
        NextElement() += TextOf(value);
        return;
    }
    Check(sd_bus_message_append_basic(_message, SD_BUS_TYPE_UINT32, &value));
}

void Writer::Put(double value) {
    if (_json != nullptr) {
        NextElement() += std::isfinite(value) ? TextOf(value) : "null";  // JSON has no infinite numbers
        return;
    }
    Check(sd_bus_message_append_basic(_message, SD_BUS_TYPE_DOUBLE, &value));
}

void Writer::Put(bool value) {
    if (_json != nullptr) {
        NextElement() += value ? "true" : "false";
        return;
    }
    const int number = value ? 1 : 0;
    Check(sd_bus_message_append_basic(_message, SD_BUS_TYPE_BOOLEAN, &number));
}

void Writer::Put(const std::string& value) {
    if (_json != nullptr) {
        AppendQuoted(NextElement(), value);
        return;
    }
    if (!CanTravel(value)) throw osa::Exception("a text is not UTF-8");
    Check(sd_bus_message_append_basic(_message, SD_BUS_TYPE_STRING, value.c_str()));
    _textSize += value.size() + 8;  // its length, its end and the gap before it
}

void Writer::Put(const std::vector<std::string>& value) {
    if (_json != nullptr) {
        std::string elements;
        Writer writer(elements);
        for (const auto& element : value) writer.Put(element);
        NextElement() += '[' + elements + ']';
        return;
    }
    Check(sd_bus_message_open_container(_message, SD_BUS_TYPE_ARRAY, "s"));
    for (const auto& element : value) Put(element);
    Check(sd_bus_message_close_container(_message));
}

void Reader::Get(std::int32_t& value) {
    GetBasic(_message, SD_BUS_TYPE_INT32, &value);
}

void Reader::Get(std::uint32_t& value) {
    GetBasic(_message, SD_BUS_TYPE_UINT32, &value);
}

void Reader::Get(double& value) {
    GetBasic(_message, SD_BUS_TYPE_DOUBLE, &value);
}

void Reader::Get(bool& value) {
    int number = 0;
    GetBasic(_message, SD_BUS_TYPE_BOOLEAN, &number);
    value = number != 0;
}

void Reader::Get(std::string& value) {
    const char* text = nullptr;
    GetBasic(_message, SD_BUS_TYPE_STRING, &text);
    value = text;
}

void Reader::Get(std::vector<std::string>& value) {
    const auto wrong = [] { return osa::Exception("a message has values of unexpected types"); };
    if (sd_bus_message_enter_container(_message, SD_BUS_TYPE_ARRAY, "s") <= 0) throw wrong();
    value.clear();
    const char* text = nullptr;
    int result = 0;
    while ((result = sd_bus_message_read_basic(_message, SD_BUS_TYPE_STRING, &text)) > 0) value.emplace_back(text);
    if (result < 0 || sd_bus_message_exit_container(_message) < 0) throw wrong();
}

}  // namespace tavos::msgbus
