#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "trace/reader/Communities.h"
#include "trace/reader/Record.h"

namespace trace {

/// How a motion went, as far as a reason needs it.
struct MotionEnd {
    bool isStill = false;  ///< it has ended where it began
    bool atLimit = false;  ///< it ended at a limit
    bool isHeld = false;   ///< it has not ended, and the camera's clock is paused
};

/// Why a request failed, or why nothing happened although it did not fail.
struct Judgement {
    std::string reason;   ///< empty when there is nothing to say
    bool failed = false;  ///< an error, a refusal, a drop, a call that failed, or a command that can do nothing
};

/// Explains requests. It remembers which services fell silent when. One thread at a time.
class Judge {
public:
    Judge() = default;
    explicit Judge(Communities communities) : _communities(std::move(communities)) {}

    /// Once for each record, in the order of their numbers.
    Judgement Of(const Record& record);

    /// Another agent's records follow.
    void ForgetSilence() { _silent.clear(); }

    /// Who asked: an accepted community by its name in the configuration, a wrong one as it was, or "desk authPriv".
    std::string Who(const Record& record) const;

private:
    struct Silence {
        std::uint64_t number;  // of the record whose call was not answered
        std::int64_t time;     // its time, nanoseconds since 1970
    };

    void Learn(const Record& record);
    Judgement OfDropped(const Record& record) const;
    Judgement OfAnswered(const Record& record) const;
    Judgement OfError(const Record& record) const;
    std::string OfBindingError(const Record& record, const Binding& binding) const;
    Judgement OfExceptions(const Record& record) const;
    std::string OfVerdict(const Record& record) const;
    std::string OfRefusedName(const Record& record, const ObjectId& name) const;
    std::string OfCall(const Record& record, const Call& call) const;
    std::string OfCalls(const Record& record) const;

    Communities _communities;
    std::map<std::string, Silence> _silent;  // by service
};

/// The judgement, and what the motions that the request began add to it.
Judgement WithMotions(Judgement judgement, const std::vector<MotionEnd>& motions);

/// Octets as text, or in hexadecimal when they are none.
std::string ShownText(const std::string& octets);

/// "pan" for "org.tavos.Pan1": the name that domectl and the page use. Others stay as they are.
std::string ShortService(const std::string& service);

}  // namespace trace
