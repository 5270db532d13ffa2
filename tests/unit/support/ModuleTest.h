#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/FakeAgent.h"
#include "support/FakePlatform.h"
#include "support/Journal.h"
#include "support/SnmpRequest.h"
#include "tavos/msgbus/MsgBus.h"

/// A test with a fresh camera, agent and journal.
class ModuleTest : public testing::Test {
protected:
    ModuleTest() {
        ResetAgent();
        ResetCamera();
    }
};

/// A test of one constructed provider; its construction is not in the journal.
template <class Provider>
class ProviderTest : public ModuleTest {
protected:
    ProviderTest() : _provider(_bus) { journal::Clear(); }

    tavos::msgbus::MsgBus _bus;
    Provider _provider;
};

/// Names typed tests after their types.
struct KindNames {
    template <class Kind>
    static std::string GetName(int) {
        return Kind::kName;
    }
};

using journal::Lines;
inline Lines operator+(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
