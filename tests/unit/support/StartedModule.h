#pragma once

#include "core/OrvexSnmpTrapSend.h"
#include "frame/OrvexSnmpDevice.h"
#include "frame/OrvexSnmpMain.h"
#include "frame/ScalarRegistration.h"
#include "support/CameraFolder.h"
#include "support/ModuleTest.h"
#include "support/Providers.h"

/// Removes the module, even after a failed start: deletes the objects that the start created and no exception
/// destroyed.
inline void ForgetModule(bool startFailed) {
    if (startFailed) {
        OrvexSnmpMain::ForgetInstance();
        OrvexSnmpDevice::ForgetInstance();
    }
    UnregisterInstances();
    DeleteProviders();
    delete OrvexSnmpDevice::GetInstance();
    OrvexSnmpDevice::ForgetInstance();
    delete OrvexSnmpTrapSend::GetInstance();
    OrvexSnmpTrapSend::ForgetInstance();
    delete OrvexSnmpMain::GetInstance();
    OrvexSnmpMain::ForgetInstance();
}

/// A test of the whole module on a fresh camera: a folder with an identity command and a version file, and the
/// settings. The test starts the module, the fixture removes it.
class StartTest : public ModuleTest {
protected:
    StartTest() {
        _folder.Identity("MODEL-1", "SERIAL-1", "1234-05");
        _folder.Version("02.01.00-20120531b\n");
        Camera().settings["[Device/ReadOnly]ProductFamily"] = "Family";
        Camera().settings["[Device/ReadOnly]Manufacturer"] = "Maker";
    }
    ~StartTest() override {
        ForgetModule(_startFailed);
        ScalarTable() = _table;
    }

    /// Runs `start`, which must fail; returns the text of its exception.
    template <class Start>
    std::string FailureOf(Start&& start) {
        try {
            start();
        } catch (const std::exception& exception) {
            _startFailed = true;
            return exception.what();
        } catch (int) {
            _startFailed = true;
            return "an int";
        }
        return "no exception";
    }

    CameraFolder _folder;
    const std::array<ScalarRegistration, kScalarCount> _table = ScalarTable();
    bool _startFailed = false;
};

/// The same with every object created but nothing registered, and an empty journal.
class StartedModuleTest : public StartTest {
protected:
    void SetUp() override {
        new OrvexSnmpMain();
        journal::Clear();
    }
};
