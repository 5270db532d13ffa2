#pragma once

namespace tavos::settings {

struct KnownKey {
    const char* key;      ///< "[Section]Key"
    const char* meaning;  ///< one line
};

/// Every key that this project's programs read or write. `tavos-settings keys` prints the list; docs/settings.md and
/// the completion take it from there. A camera's own software may keep more keys in the same store.
inline constexpr KnownKey kKnownKeys[] = {
    {"[Applications/OrvexSnmp]log.file", "a file to which the module's log is appended"},
    {"[Applications/OrvexSnmp]log.level", "how much the module logs: 0 nothing, 3 errors, 6, 7, 8 everything"},
    {"[Applications/OrvexSnmp]log.stdout", "true: the module logs to the agent's standard output"},
    {"[Device/ReadOnly]AssemblyId", "first half of the hardware version, which myname -w prints"},
    {"[Device/ReadOnly]AssemblyVersion", "second half of the hardware version"},
    {"[Device/ReadOnly]Manufacturer", "moduleMake"},
    {"[Device/ReadOnly]ModelNumber", "the model number, which myname -m prints"},
    {"[Device/ReadOnly]ProductFamily", "modelName"},
    {"[Device/ReadOnly]SerialNumber", "the serial number, which myname -s prints"},
    {"[Dome/State]Positions", "the desk camera's own note of its positions; do not set it"},
    {"[Dome/State]Relays", "the desk camera's own note of its relays; do not set it"},
    {"[Imaging/Focus]Mode", "Manual: the auto focus is off; any other value: on"},
};

}  // namespace tavos::settings
