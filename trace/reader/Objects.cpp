#include "trace/reader/Objects.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

namespace trace {

namespace {

struct Row {
    const char* name;
    ObjectId id;
    std::uint8_t type;
    bool isWritable;
    bool isText;
};

const std::vector<Row>& CameraObjects() {
    static const std::vector<Row> rows = {
#include "Objects.inc"
    };
    return rows;
}

/// Columns; a row's number follows.
const std::vector<Row>& Columns() {
    static const std::vector<Row> rows = {
        {"alarmStatesTable bank name",
         {1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 1, 1, 1},
         kOctetString,
         false,
         true},
        {"alarmStatesTable alarm", {1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 1, 1, 2}, kInteger, false, false},
        {"alarmStatesTable state", {1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 1, 1, 3}, kInteger, false, false},
        {"relayStatesTable bank name",
         {1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 2, 1, 1},
         kOctetString,
         false,
         true},
        {"relayStatesTable relay", {1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 2, 1, 2}, kInteger, false, false},
        {"relayStatesTable state", {1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 2, 1, 3}, kInteger, true, false},
    };
    return rows;
}

/// The agent's objects that managers ask most, and those of reports and notifications.
const std::vector<Row>& WellKnown() {
    static const std::vector<Row> rows = {
        {"sysDescr", {1, 3, 6, 1, 2, 1, 1, 1, 0}, kOctetString, false, true},
        {"sysObjectID", {1, 3, 6, 1, 2, 1, 1, 2, 0}, kObjectId, false, false},
        {"sysUpTime", {1, 3, 6, 1, 2, 1, 1, 3, 0}, kTimeTicks, false, false},
        {"sysContact", {1, 3, 6, 1, 2, 1, 1, 4, 0}, kOctetString, true, true},
        {"sysName", {1, 3, 6, 1, 2, 1, 1, 5, 0}, kOctetString, true, true},
        {"sysLocation", {1, 3, 6, 1, 2, 1, 1, 6, 0}, kOctetString, true, true},
        {"sysServices", {1, 3, 6, 1, 2, 1, 1, 7, 0}, kInteger, false, false},
        {"snmpTrapOID", {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0}, kObjectId, false, false},
        {"snmpTrapEnterprise", {1, 3, 6, 1, 6, 3, 1, 1, 4, 3, 0}, kObjectId, false, false},
        {"coldStart", {1, 3, 6, 1, 6, 3, 1, 1, 5, 1}, 0, false, false},
        {"warmStart", {1, 3, 6, 1, 6, 3, 1, 1, 5, 2}, 0, false, false},
        {"authenticationFailure", {1, 3, 6, 1, 6, 3, 1, 1, 5, 5}, 0, false, false},
        {"nsNotifyShutdown", {1, 3, 6, 1, 4, 1, 8072, 4, 0, 2}, 0, false, false},
        {"nsNotifyRestart", {1, 3, 6, 1, 4, 1, 8072, 4, 0, 3}, 0, false, false},
        {"usmStatsUnsupportedSecLevels", {1, 3, 6, 1, 6, 3, 15, 1, 1, 1, 0}, kCounter32, false, false},
        {"usmStatsNotInTimeWindows", {1, 3, 6, 1, 6, 3, 15, 1, 1, 2, 0}, kCounter32, false, false},
        {"usmStatsUnknownUserNames", {1, 3, 6, 1, 6, 3, 15, 1, 1, 3, 0}, kCounter32, false, false},
        {"usmStatsUnknownEngineIDs", {1, 3, 6, 1, 6, 3, 15, 1, 1, 4, 0}, kCounter32, false, false},
        {"usmStatsWrongDigests", {1, 3, 6, 1, 6, 3, 15, 1, 1, 5, 0}, kCounter32, false, false},
        {"usmStatsDecryptionErrors", {1, 3, 6, 1, 6, 3, 15, 1, 1, 6, 0}, kCounter32, false, false},
        {"snmpUnknownContexts", {1, 3, 6, 1, 6, 3, 12, 1, 5, 0}, kCounter32, false, false},
        {"snmpUnknownPDUHandlers", {1, 3, 6, 1, 6, 3, 11, 2, 1, 3, 0}, kCounter32, false, false},
    };
    return rows;
}

bool BeginsWith(const ObjectId& name, const ObjectId& start) {
    return name.size() >= start.size() && std::equal(start.begin(), start.end(), name.begin());
}

const Row* Exactly(const std::vector<Row>& rows, const ObjectId& name) {
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const Row& row) { return row.id == name; });
    return found == rows.end() ? nullptr : &*found;
}

ObjectFacts Facts(const Row& row, bool isCamera) {
    return {row.name, row.name, row.type, row.isWritable, isCamera, true, row.isText};
}

/// The facts of a name that has `row`'s numbers but for its end, where `rest` stands.
ObjectFacts Near(const Row& row, const std::string& rest) {
    ObjectFacts facts = Facts(row, true);
    facts.name += rest;
    facts.isInstance = false;
    return facts;
}

ObjectFacts CellFacts(const Row& column, const ObjectId& name) {
    const ObjectId index(name.begin() + static_cast<ObjectId::difference_type>(column.id.size()), name.end());
    if (index.empty()) return Near(column, "");
    ObjectFacts facts = Facts(column, true);
    facts.name += " " + Dotted(index);
    facts.isInstance = index.size() == 1;
    return facts;
}

}  // namespace

ObjectFacts FactsOf(const ObjectId& name) {
    if (const Row* row = Exactly(CameraObjects(), name)) return Facts(*row, true);
    if (const Row* row = Exactly(WellKnown(), name)) return Facts(*row, false);
    for (const Row& column : Columns()) {
        if (BeginsWith(name, column.id)) return CellFacts(column, name);
    }
    for (const Row& row : CameraObjects()) {
        const ObjectId object(row.id.begin(), row.id.end() - 1);  // without its instance
        if (!BeginsWith(name, object)) continue;
        const ObjectId rest(name.begin() + static_cast<ObjectId::difference_type>(object.size()), name.end());
        return Near(row, rest.empty() ? "" : "." + Dotted(rest));
    }
    return {};
}

std::vector<CameraObject> AllCameraObjects() {
    std::vector<CameraObject> objects;
    const auto add = [&](const std::vector<Row>& rows, bool isColumn) {
        for (const Row& row : rows) objects.push_back({row.name, row.id, row.type, row.isWritable, isColumn});
    };
    add(CameraObjects(), false);
    add(Columns(), true);
    return objects;
}

std::string NameOf(const ObjectId& name) {
    const ObjectFacts facts = FactsOf(name);
    return facts.name.empty() ? Dotted(name) : facts.name;
}

std::string TypeName(std::uint8_t type) {
    switch (type) {
        case kInteger:
            return "INTEGER";
        case kOctetString:
            return "OCTET STRING";
        case kNull:
            return "NULL";
        case kObjectId:
            return "OBJECT IDENTIFIER";
        case kIpAddress:
            return "IpAddress";
        case kCounter32:
            return "Counter32";
        case kGauge32:
            return "Gauge32";
        case kTimeTicks:
            return "TimeTicks";
        case kOpaque:
            return "Opaque";
        case kCounter64:
            return "Counter64";
        case kNoSuchObject:
            return "noSuchObject";
        case kNoSuchInstance:
            return "noSuchInstance";
        case kEndOfMibView:
            return "endOfMibView";
        default:
            return "type " + std::to_string(type);
    }
}

std::string ErrorName(std::int64_t status) {
    static constexpr std::array<const char*, 19> kNames = {"noError",
                                                           "tooBig",
                                                           "noSuchName",
                                                           "badValue",
                                                           "readOnly",
                                                           "genErr",
                                                           "noAccess",
                                                           "wrongType",
                                                           "wrongLength",
                                                           "wrongEncoding",
                                                           "wrongValue",
                                                           "noCreation",
                                                           "inconsistentValue",
                                                           "resourceUnavailable",
                                                           "commitFailed",
                                                           "undoFailed",
                                                           "authorizationError",
                                                           "notWritable",
                                                           "inconsistentName"};
    if (status < 0 || static_cast<std::size_t>(status) >= kNames.size()) return std::to_string(status);
    return kNames[static_cast<std::size_t>(status)];
}

std::string PduName(std::uint8_t type) {
    static constexpr std::array<const char*, 9> kNames = {"GET",     "GETNEXT", "response", "SET",   "trap",
                                                          "GETBULK", "inform",  "trap",     "report"};
    if (type < kGet || type > kReport) return "PDU " + std::to_string(type);
    return kNames[static_cast<std::size_t>(type - kGet)];
}

}  // namespace trace
