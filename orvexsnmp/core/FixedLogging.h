#pragma once

/// Resets logging to the module's fixed setup: standard output, level 3. Applies once the module has started; the
/// settings store cannot change it. Throws what the logger throws.
void ApplyFixedLogging();
