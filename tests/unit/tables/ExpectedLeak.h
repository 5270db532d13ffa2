#pragma once

#ifdef ORVEX_ASAN
#include <sanitizer/lsan_interface.h>

/// Allows the agent to refuse tables while it lives: its library leaks its description of a refused table.
struct ExpectedLeak {
    ExpectedLeak() { __lsan_disable(); }
    ~ExpectedLeak() { __lsan_enable(); }
    ExpectedLeak(const ExpectedLeak&) = delete;
    ExpectedLeak& operator=(const ExpectedLeak&) = delete;
};
#else
struct ExpectedLeak {
    ~ExpectedLeak() {}
};
#endif
