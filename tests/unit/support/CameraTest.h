#pragma once

#include <algorithm>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "lens/OrvexSnmpFocus.h"
#include "lens/OrvexSnmpIris.h"
#include "lens/OrvexSnmpWiper.h"
#include "lens/OrvexSnmpZoom.h"
#include "motion/OrvexSnmpPan.h"
#include "motion/OrvexSnmpPresets.h"
#include "motion/OrvexSnmpTilt.h"
#include "support/ModuleTest.h"
#include "support/Rows.h"
#include "tavos/osa/Exception.h"

/// A motion or lens scalar for tests of many objects: the content of its row.
struct CameraObject {
    const char* name;
    Netsnmp_Node_Handler* handler;
    const oid* oidName;
    std::size_t length;

    explicit CameraObject(const char* itsName)
        : name(itsName), handler(RowOf(name).handler), oidName(RowOf(name).objectId), length(RowOf(name).oidLength) {}

    /// The handler's name, which starts its log lines.
    std::string Handler() const { return std::string("handle_") + name; }
};

/// Names a parameterised test after its object.
template <class Parameter>
std::string NameOfObject(const testing::TestParamInfo<Parameter>& info) {
    return info.param.name;
}

/// All providers of motion and lens; their construction is not in the journal.
class CameraTest : public ModuleTest {
protected:
    CameraTest() { journal::Clear(); }

    tavos::msgbus::MsgBus _bus;
    OrvexSnmpPresets _presets{_bus};
    OrvexSnmpFocus _focus{_bus};
    OrvexSnmpIris _iris{_bus};
    OrvexSnmpZoom _zoom{_bus};
    OrvexSnmpPan _pan{_bus};
    OrvexSnmpTilt _tilt{_bus};
    OrvexSnmpWiper _wiper{_bus};
};

/// The exception of a failing service.
enum class Thrown { kException, kRuntimeError, kInt };
constexpr Thrown kEveryThrow[] = {Thrown::kException, Thrown::kRuntimeError, Thrown::kInt};

inline void Fail(const std::string& operation, Thrown thrown) {
    Camera().failing.insert(operation);
    Camera().throwsInt = thrown == Thrown::kInt;
    Camera().throwsRuntimeError = thrown == Thrown::kRuntimeError;
}

using Answer = FakeAgent::Answer;

/// What a handler or wrapper did: its log lines with their levels, and its calls, in order, without the word "log".
inline Lines Done() {
    Lines lines = journal::All();
    for (auto& line : lines) {
        if (line.compare(0, 4, "log ") == 0) line.erase(0, 4);
    }
    return lines;
}

/// The given lines between the first and last lines of a handler's request without a range end.
inline Lines Handled(const std::string& name, const Lines& between) {
    return Lines{"8 " + name + ": Enter.", "7 " + name + ": Received OID "} + between + Lines{"8 " + name + ": Done."};
}

/// A wrapper of one service operation. The lines have the format of Done.
template <class Provider>
struct Wrapper {
    const char* name;
    std::function<int(const Provider&)> call;
    Lines before;              ///< after the entry, before the call
    Lines calls;               ///< in full: "call pan GetPosition"; the last one is tried with a failing service
    std::string success;       ///< without the name: "6 currentPosition=5"
    std::string failing = {};  ///< what the Error line names, where that is not the wrapper
};

/// What FakeCamera::failing calls a line of the journal: "pan.GetPosition" for "call pan GetPosition".
inline std::string OperationOf(const std::string& line) {
    std::istringstream words(line);
    std::string service;
    std::string operation;
    words >> service;
    if (service == "call") words >> service;
    words >> operation;
    return service + "." + operation;
}

/// Calls a getter; expects `value` after a success and an unchanged argument after a failure.
template <class Provider, class Value>
std::function<int(const Provider&)> Reads(int (Provider::*getter)(Value&) const, Value value) {
    return [getter, value](const Provider& provider) {
        const auto untouched = static_cast<Value>(77);
        Value output = untouched;
        const int result = (provider.*getter)(output);
        EXPECT_EQ(output, result == 0 ? value : untouched);
        return result;
    };
}

/// The wrapper of an operation that reads one value; both have one name.
template <class Provider, class Value>
Wrapper<Provider> Getter(const char* name, int (Provider::*getter)(Value&) const, std::common_type_t<Value> value,
                         const std::string& service, const std::string& success) {
    return {name, Reads(getter, value), {}, {"call " + service + " " + name}, success};
}

/// Checks a wrapper's lines, calls and result, in order: with a service that works, with services that throw anything,
/// and with a logger that throws at the success line.
template <class Provider>
void ExpectProtocol(const Provider& provider, const Wrapper<Provider>& wrapper) {
    SCOPED_TRACE(wrapper.name);
    const std::string name = wrapper.name;
    const Lines begun = Lines{"8 " + name + ": Enter."} + wrapper.before + wrapper.calls;
    const std::string success = wrapper.success.substr(0, 2) + name + ": " + wrapper.success.substr(2);
    const Lines failure{"3 Exception while " + (wrapper.failing.empty() ? name : wrapper.failing),
                        "8 " + name + ": Done."};
    journal::Clear();
    EXPECT_EQ(wrapper.call(provider), 0);
    const Lines worked = begun + Lines{success, "8 " + name + ": Done."};
    EXPECT_EQ(Done(), worked);

    for (const auto thrown : kEveryThrow) {
        SCOPED_TRACE(static_cast<int>(thrown));
        Fail(OperationOf(wrapper.calls.back()), thrown);
        journal::Clear();
        EXPECT_EQ(wrapper.call(provider), -1);
        EXPECT_EQ(Done(), begun + failure);
    }

    Camera().failing.clear();
    Fail("log " + success, Thrown::kInt);
    journal::Clear();
    EXPECT_EQ(wrapper.call(provider), -1);
    EXPECT_EQ(Done(), begun + Lines{success} + failure);
    Camera().failing.clear();
}

/// Checks that a provider requires its clients: an exception from CreateClient leaves the constructor, nothing remains,
/// and a later construction succeeds.
template <class Provider>
void ExpectNoProviderWithout(const std::string& service) {
    SCOPED_TRACE(service);
    tavos::msgbus::MsgBus bus;
    Fail(service + ".CreateClient", Thrown::kException);
    EXPECT_THROW(Provider{bus}, tavos::osa::Exception);
    EXPECT_EQ(Provider::GetInstance(), nullptr);
    Fail(service + ".CreateClient", Thrown::kRuntimeError);
    EXPECT_THROW(Provider{bus}, std::runtime_error);
    EXPECT_EQ(Provider::GetInstance(), nullptr);
    Fail(service + ".CreateClient", Thrown::kInt);
    EXPECT_THROW(Provider{bus}, int);
    EXPECT_EQ(Provider::GetInstance(), nullptr);
    Camera().failing.clear();
    const Provider provider{bus};
    EXPECT_EQ(Provider::GetInstance(), &provider);
}

/// The first steps of every provider's constructor.
inline Lines BaseConstruction() {
    return {"logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true"};
}

/// The lines of creating and destroying a provider, without the base's construction.
template <class Provider>
Lines MadeAndUnmade() {
    tavos::msgbus::MsgBus bus;
    journal::Clear();
    { const Provider provider{bus}; }
    EXPECT_EQ(Provider::GetInstance(), nullptr);
    Lines lines = Done();
    const Lines base = BaseConstruction();
    if (lines.size() < base.size() || !std::equal(base.begin(), base.end(), lines.begin())) {
        ADD_FAILURE() << "the base is not constructed first";
        return lines;
    }
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(base.size()));
    return lines;
}

/// One request with four octets, committed.
inline int Commit(const CameraObject& object, const std::vector<u_char>& octets) {
    SnmpRequest request(object.oidName, object.length);
    request.WithOctets(octets);
    return request.Call(object.handler, MODE_SET_COMMIT);
}

/// A test of the provider of one motion object.
template <class Provider>
class MotionTest : public ProviderTest<Provider> {
protected:
    explicit MotionTest(const char* object) : _object(object) {}

    /// Commits a SET; the journal then has only what it did.
    static int Command(const std::vector<u_char>& octets, const CameraObject& object) {
        journal::Clear();
        return Commit(object, octets);
    }
    int Command(const std::vector<u_char>& octets) { return Command(octets, _object); }
    int Command(int mode, int speed, int position) {
        return Command({static_cast<u_char>(mode), static_cast<u_char>(speed & 0xFF),
                        static_cast<u_char>(position / 256), static_cast<u_char>(position % 256)});
    }

    const CameraObject _object;
};

/// Request modes that are neither GET, GETNEXT nor a phase of a SET.
constexpr int kUnknownModes[] = {-1, 6, 100, 159, 162, MODE_GETBULK, 255};
/// The phases of a SET except the commit.
constexpr int kPhasesBeforeAndAfterCommit[] = {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_FREE,
                                               MODE_SET_UNDO};
