// Commands that are not sent any more, and what their answers say.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <nlohmann/json.hpp>
#include <string>

#include "dome/console/Sender.h"
#include "tests/platform/TemporaryFolder.h"

namespace {

using dome::console::Reply;
using dome::console::Sender;
using nlohmann::json;

constexpr int kNobodyListens = 9;  // the discard port

class SenderTest : public testing::Test {
protected:
    SenderTest() {
        setenv("MIBS", "", 1);  // no MIB is needed
        std::ofstream(_folder.File("snmpd.conf")) << "com2sec writer 127.0.0.1 private\n";
    }

    /// The answer to a command.
    json Send(std::function<bool()> isThere) {
        std::promise<Reply> finished;
        auto answer = finished.get_future();
        const json command = {{"oid", "1.3.6.1.2.1.1.5.0"},
                              {"type", "OCTET STRING"},
                              {"value", "41"},
                              {"user", "writer"},
                              {"version", "2c"}};
        sender.Send(command, {std::move(isThere), [&](const Reply& reply) { finished.set_value(reply); }});
        if (answer.wait_for(std::chrono::seconds(20)) != std::future_status::ready) return "no answer";
        return json::parse(answer.get().body);
    }

private:
    TemporaryFolder _folder;

protected:
    Sender sender{"127.0.0.1", kNobodyListens, _folder.File("snmpd.conf")};
};

TEST_F(SenderTest, DoesNotSendWhatNobodyWaitsFor) {
    const json answer = Send([] { return false; });
    EXPECT_EQ(answer["outcome"], "unsent");
    EXPECT_EQ(answer["reason"], "nobody waits for its answer any more");
}

TEST_F(SenderTest, SendsNothingOnceTheCameraEnds) {
    const json answer = Send([this] {
        sender.BeginStop();
        return true;
    });
    EXPECT_EQ(answer["outcome"], "unsent");
    EXPECT_EQ(answer["reason"], "the camera ends");
}

}  // namespace
