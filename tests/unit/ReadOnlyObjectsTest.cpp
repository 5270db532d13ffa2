// What all read-only objects share. The objects come from the registration table, so new ones are included.
#include "support/Rows.h"
#include "support/StartedModule.h"

namespace {

std::vector<const char*> ReadOnlyObjects() {
    std::vector<const char*> names;
    for (const auto& row : ScalarTable()) {
        if (row.access == HANDLER_CAN_RONLY) names.push_back(row.name);
    }
    return names;
}

class ReadOnlyObjectsTest : public StartedModuleTest, public testing::WithParamInterface<const char*> {
protected:
    const ScalarRegistration& _row = RowOf(GetParam());
};

TEST_P(ReadOnlyObjectsTest, AnswersAGetOnceAndDrivesNothing) {
    SnmpRequest request(_row.objectId, _row.oidLength);
    EXPECT_EQ(request.Call(_row.handler, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_EQ(Agent().answers.size(), 1U);
    EXPECT_NE(request.Type(), ASN_NULL);
    EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Calls(), Each(HasSubstr(" Get")));
}

TEST_P(ReadOnlyObjectsTest, RefusesEveryModeThatDoesNotRead) {
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT, MODE_SET_FREE,
                           MODE_SET_UNDO, -1, 6, 1000}) {
        SCOPED_TRACE(mode);
        SnmpRequest request(_row.objectId, _row.oidLength);
        request.WithInteger(5);
        journal::Clear();
        EXPECT_EQ(request.Call(_row.handler, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Integer(), 5);
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_THAT(journal::Calls(), IsEmpty());
        EXPECT_THAT(journal::Logged(3), ElementsAre(HasSubstr(": unknown mode (" + std::to_string(mode) + ")")));
    }
}

INSTANTIATE_TEST_SUITE_P(All, ReadOnlyObjectsTest, testing::ValuesIn(ReadOnlyObjects()),
                         [](const auto& name) { return std::string(name.param); });

}  // namespace
