#include "trace/agent/Companion.h"

// The agent's loader looks for these two names.
extern "C" __attribute__((visibility("default"))) int init_orvextrace() {
    trace::Companion::Instance().Start();
    return 0;
}

extern "C" __attribute__((visibility("default"))) int deinit_orvextrace() {
    trace::Companion::Instance().Stop();
    return 0;
}
