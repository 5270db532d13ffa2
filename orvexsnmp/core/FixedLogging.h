#pragma once

/// Resets logging to the module's fixed setup: standard output, level 3. It is in force once the module has started,
/// whatever the settings store says. Throws what the logger throws.
void ApplyFixedLogging();
