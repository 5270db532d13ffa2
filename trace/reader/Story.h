#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "trace/reader/Reason.h"
#include "trace/reader/Record.h"

namespace trace {

/// One object of the trace: a request, a notification that no request caused, or what the page or domectl did.
struct Entry {
    std::int64_t time = 0;                             ///< nanoseconds since 1970
    nlohmann::ordered_json json;                       ///< docs/trace.md describes its members
    std::shared_ptr<const Record> record;              ///< none of an action
    std::vector<std::shared_ptr<const Record>> traps;  ///< those that the request caused
    bool isAgain = false;                              ///< it was there before, without the ends of its motions
};

/// Joins the agent's records with what the camera noted. Reads no socket and no bus itself: feed it records in the
/// order of their numbers, then the camera's lines, then take the entries, over and over. What it keeps for later joins
/// is bounded. One thread at a time.
class Story {
public:
    Story() = default;
    explicit Story(Communities communities) : _judge(std::move(communities)) {}

    /// `lost`: records that were overwritten before this one could be read.
    void AddRecord(Record record, std::uint64_t lost = 0);

    /// What `domectl history` answers: a head line and one JSON object a line. Throws tavos::osa::Exception for lines
    /// that are none.
    void AddHistory(const std::string& lines);

    /// Which change of the camera to ask for next, after AddHistory; 0 at first and after the camera's restart.
    std::uint64_t HistoryChange() const { return _change; }
    /// Whether the camera has more to say: ask again before Take.
    bool HistoryHasMore() const { return _hasMore; }

    /// The camera does not know HistoryChange: it was started anew.
    void ForgetCamera();
    /// Records of another agent follow, with numbers of their own.
    void ForgetAgent();

    /// What has come, in the order of time. Entries whose motions are under way come again when those have ended.
    std::vector<Entry> Take();

private:
    using Json = nlohmann::ordered_json;
    using CallKey = std::pair<std::string, std::uint64_t>;  // sender, serial
    /// With the request's time: a bus that is started anew begins again with both.
    using RequestKey = std::tuple<std::string, std::uint64_t, std::int64_t>;

    struct Open {
        Entry entry;
        Judgement judgement;  // without its motions
        std::vector<CallKey> calls;
        std::uint64_t action = 0;
        bool isShown = false;
        int waited = 0;  // calls of Take, for the request that ended a motion
    };
    struct WaitingTrap {
        Open open;
        bool isOverdue = false;  // the request that caused it has not come with the next records
    };

    void Keep(Open open);
    void AddTrap(Open open);
    void AttachWaitingTraps(Open& request);
    void ReleaseOverdueTraps();
    void ReadHead(const Json& head);
    void AddMotion(const Json& line);
    void AddAction(const Json& line);
    void AddTraps(Open& open);
    Json TrapJson(const Record& record);
    Json EventOf(const Record& record);
    const std::uint64_t* RequestOf(const Json& cause, std::int64_t time) const;
    bool MayBecomeKnown(const Json& motion) const;
    Json CauseJson(const Json& cause, std::int64_t time) const;
    Json MotionJson(const Json& motion, bool isEnderKnown) const;
    std::vector<const Json*> MotionsOf(const Open& open) const;
    bool AddMotions(Open& open) const;
    void Forget();

    Judge _judge;
    std::uint64_t _change = 0;
    std::int64_t _started = 0;
    bool _hasMore = false;
    bool _isPaused = false;       // the camera's clock
    bool _recordsFollow = false;  // from the agent whose records have come
    std::deque<Open> _open;       // not shown yet, or with motions under way
    std::vector<WaitingTrap> _waitingTraps;
    std::map<std::uint64_t, Json> _motions;
    std::multimap<CallKey, std::uint64_t> _motionsOfCalls;
    std::multimap<std::uint64_t, std::uint64_t> _motionsOfActions;
    std::map<RequestKey, std::uint64_t> _requests;  // the numbers of the requests that made calls
    std::deque<RequestKey> _requestOrder;
    std::set<std::string> _agents;  // who made them
    std::deque<Json> _events;       // not joined yet
};

}  // namespace trace
