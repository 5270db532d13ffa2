#pragma once

#include <exception>
#include <string>

#include "tavos/Api.h"

namespace tavos::osa {

/// Thrown for every failure of the platform. The text is formatted as printf does.
class TAVOS_API Exception : public std::exception {
public:
    explicit Exception(const char* format, ...) __attribute__((format(printf, 2, 3)));
    const char* what() const noexcept override { return _text.c_str(); }

private:
    std::string _text;
};

}  // namespace tavos::osa
