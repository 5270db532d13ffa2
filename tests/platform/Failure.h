#pragma once

#include <string>

#include "tavos/osa/Exception.h"

/// The text of the exception, or "" when the work throws none.
template <class Work>
std::string Failure(const Work& work) {
    try {
        work();
    } catch (const tavos::osa::Exception& e) {
        return e.what();
    }
    return "";
}
