#include "tavos/osa/Exception.h"

#include <cstdarg>
#include <cstdio>

namespace tavos::osa {

Exception::Exception(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    if (length < 0) {
        _text = format;  // formatting failed: show the format itself
    } else {
        _text.resize(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(_text.data(), _text.size(), format, again);
        _text.pop_back();
    }
    va_end(again);
}

}  // namespace tavos::osa
