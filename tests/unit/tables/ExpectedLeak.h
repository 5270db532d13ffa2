#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>

/// While it lives, the agent may refuse tables: its library does not free its own description of such a table.
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
