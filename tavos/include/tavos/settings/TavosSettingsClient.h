#pragma once

#include <memory>
#include <string>

#include "tavos/Api.h"

namespace tavos::core {
class IniFile;
}

namespace tavos::settings {

/// A process's view of the camera's settings store: text values under "[Section/Name]Key". The store is one SQLite
/// file, named by the environment's TAVOS_SETTINGS_STORE or else /var/lib/tavos/settings.db, shared by every process
/// of the camera. It is opened for each operation, so that construction never fails; each operation throws
/// tavos::osa::Exception with the file's name and the reason when the store is missing, damaged, no regular file (a
/// link to one is fine; a FIFO is not opened) or busy for more than a second. Once SetValue has
/// returned, the value survives a kill and a loss of power; that takes a disk some milliseconds. Values can still be
/// read when the disk is full or read-only. One thread at a time may use a client.
class TAVOS_API TavosSettingsClient {
public:
    enum OperationMode : int {
        kReadOnly = 0,
        kReadWrite = 1,  ///< the store must exist
        kCreate = 2,     ///< makes an empty store where there is none
    };

    /// What a stored value survives.
    enum class Survives {
        kPowerLoss,
        /// A kill, but no loss of power until the next store with kPowerLoss. Waits for the disk only now and then, and
        /// up to a tenth of a second for another process that is storing.
        kKill,
    };

    explicit TavosSettingsClient(int operationMode);
    ~TavosSettingsClient();
    TavosSettingsClient(const TavosSettingsClient&) = delete;
    TavosSettingsClient& operator=(const TavosSettingsClient&) = delete;

    /// The value of "[Section]Key", or an empty string when there is none. Throws also for a key of another form.
    std::string GetValue(const std::string& key) const;

    void SetValue(const std::string& key, const std::string& value);

    /// Adds to `ini` the section `path` and every section below it ("path/..."); none is no failure. An empty path
    /// stands for the whole store.
    void GetSettings(const std::string& path, core::IniFile& ini) const;

    /// Stores every value of `ini` in one transaction: all of them or, when it throws, none.
    void SetSettings(const core::IniFile& ini, Survives what = Survives::kPowerLoss);

private:
    struct Store;
    std::unique_ptr<Store> _store;
};

}  // namespace tavos::settings
