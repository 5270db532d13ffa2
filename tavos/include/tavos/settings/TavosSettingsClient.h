#pragma once

#include <memory>
#include <string>

#include "tavos/Api.h"

namespace tavos::core {
class IniFile;
}

namespace tavos::settings {

/// Access to the camera's settings store: text values under "[Section/Name]Key". The store is one SQLite file, shared
/// by all processes of the camera. The environment variable TAVOS_SETTINGS_STORE names the file; the default is
/// /var/lib/tavos/settings.db. Each operation opens the file (see kKill for one that leaves it open), so construction
/// never fails. An operation throws tavos::osa::Exception with the file's name and the reason if the store is missing,
/// damaged, not a regular file (a link to one works; a FIFO is not opened) or busy for more than a second. After
/// SetValue the value survives a kill and a loss of power; that takes a disk some milliseconds. Values can be read even
/// if the disk is full or read-only. One thread at a time may use a client.
class TAVOS_API TavosSettingsClient {
public:
    enum OperationMode : int {
        kReadOnly = 0,
        kReadWrite = 1,  ///< the store must exist
        kCreate = 2,     ///< creates an empty store if there is none
    };

    /// Which failures a stored value survives.
    enum class Survives {
        kPowerLoss,
        /// A kill, but not a loss of power before the next write with kPowerLoss. Rarely waits for the disk. Waits up
        /// to a tenth of a second for another process that writes. Leaves the file open for the next such write, until
        /// any other operation or Release; a child that is forked meanwhile must not use the store. If the file has
        /// been replaced, removed or changed meanwhile, the next write opens it again.
        kKill,
    };

    explicit TavosSettingsClient(int operationMode);
    ~TavosSettingsClient();
    TavosSettingsClient(const TavosSettingsClient&) = delete;
    TavosSettingsClient& operator=(const TavosSettingsClient&) = delete;

    /// The value of "[Section]Key", or an empty string if there is none. Throws also for an invalid key.
    std::string GetValue(const std::string& key) const;

    void SetValue(const std::string& key, const std::string& value);

    /// Removes the value of "[Section]Key"; false if there is none. Survives what SetValue survives. The SNMP module
    /// does not use it.
    bool DeleteValue(const std::string& key);

    /// Adds the section `path` and every section below it ("path/...") to `ini`. A missing section is not a failure. An
    /// empty path selects the whole store.
    void GetSettings(const std::string& path, core::IniFile& ini) const;

    /// Stores all values of `ini` in one transaction. If it throws, it has stored none.
    void SetSettings(const core::IniFile& ini, Survives what = Survives::kPowerLoss);

    /// Closes the file if a write with kKill has left it open. Never throws.
    void Release();

private:
    struct Store;
    std::unique_ptr<Store> _store;
};

}  // namespace tavos::settings
