#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tavos/Api.h"

struct sd_bus_message;

namespace tavos::msgbus {

/// The bus's code of a C++ type. The bus carries no other types.
template <class T>
struct TypeCode;
template <>
struct TypeCode<std::int32_t> {
    static constexpr const char* kCode = "i";
};
template <>
struct TypeCode<std::uint32_t> {
    static constexpr const char* kCode = "u";
};
template <>
struct TypeCode<double> {
    static constexpr const char* kCode = "d";
};
template <>
struct TypeCode<bool> {
    static constexpr const char* kCode = "b";
};
template <>
struct TypeCode<std::string> {
    static constexpr const char* kCode = "s";
};
template <>
struct TypeCode<std::vector<std::string>> {
    static constexpr const char* kCode = "as";
};

template <class... T>
std::string Signature() {
    return (std::string() + ... + TypeCode<T>::kCode);
}
template <>
inline std::string Signature<void>() {
    return {};
}

/// Appends values to a message. Throws tavos::osa::Exception for a string with a zero octet or not in UTF-8: the bus
/// would close the sender's connection.
class TAVOS_API Writer {
public:
    explicit Writer(sd_bus_message* message) : _message(message) {}
    void Put(std::int32_t value);
    void Put(std::uint32_t value);
    void Put(double value);
    void Put(bool value);
    void Put(const std::string& value);
    void Put(const std::vector<std::string>& value);
    void Put(const char*) = delete;  // would convert to bool

    /// A writer that appends the values to the elements of a JSON array instead. Takes any text: an octet that is no
    /// UTF-8 becomes U+FFFD.
    explicit Writer(std::string& json) : _message(nullptr), _json(&json) {}

    /// The size of the texts in the message, in octets.
    std::size_t TextSize() const { return _textSize; }

private:
    std::string& NextElement();

    sd_bus_message* _message;
    std::string* _json = nullptr;
    std::size_t _textSize = 0;
};

/// Reads a message's values in order. Throws tavos::osa::Exception if the next value has another type.
class TAVOS_API Reader {
public:
    explicit Reader(sd_bus_message* message) : _message(message) {}
    void Get(std::int32_t& value);
    void Get(std::uint32_t& value);
    void Get(double& value);
    void Get(bool& value);
    void Get(std::string& value);
    void Get(std::vector<std::string>& value);

    template <class T>
    T Get() {
        T value{};
        Get(value);
        return value;
    }

private:
    sd_bus_message* _message;
};

/// True for text that the bus accepts: UTF-8 without a zero octet.
bool CanTravel(const std::string& text);

}  // namespace tavos::msgbus
