#pragma once

/// Exports a symbol from the platform's libraries; all other symbols are hidden.
#define TAVOS_API __attribute__((visibility("default")))
