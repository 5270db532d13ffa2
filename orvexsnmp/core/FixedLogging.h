#pragma once

/// Resets logging to the module's fixed setup: standard output, level 3. The setup is in force after the start; the
/// settings store cannot change it. Throws the logger's exceptions.
void ApplyFixedLogging();
