#pragma once

/// Marks what the platform's libraries export; everything else in them is hidden.
#define TAVOS_API __attribute__((visibility("default")))
