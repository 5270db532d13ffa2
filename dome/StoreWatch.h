#pragma once

#include <string>

#include "DescriptorSet.h"

namespace dome {

/// Makes a descriptor readable when the settings store may have changed: its file, the log beside it, or the files in
/// its folder. Without it somebody must look repeatedly. One thread uses it.
class StoreWatch {
public:
    /// `store` is the file's absolute path; the file may be missing. Throws tavos::osa::Exception when the system has
    /// no descriptor left.
    explicit StoreWatch(std::string store);
    ~StoreWatch();
    StoreWatch(const StoreWatch&) = delete;
    StoreWatch& operator=(const StoreWatch&) = delete;

    /// Readable after the first change since Arm, until Disarm or the next Arm.
    int Descriptor() const { return _set.Descriptor(); }

    /// Watches for the next change; forgets earlier ones, so look at the files after it. False when it cannot watch: no
    /// folder, a symbolic link (its target may be anywhere), or too many watching processes on this machine.
    bool Arm();

    void Disarm();
    bool IsArmed() const { return _armed; }

private:
    bool Watch(const std::string& path, unsigned events) const;
    void ForgetChanges() const;

    const std::string _store;
    const std::string _folder;
    const int _changes;  // -1: the system has none left
    DescriptorSet _set;  // holds _changes while it is armed
    bool _armed = false;
};

}  // namespace dome
