#include "TraceFeed.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "AgentProbe.h"
#include "Thread.h"
#include "dome/OneLine.h"
#include "tavos/osa/Exception.h"
#include "trace/reader/AgentReader.h"
#include "trace/reader/Ber.h"
#include "trace/reader/Communities.h"
#include "trace/reader/Json.h"
#include "trace/reader/Pcap.h"
#include "trace/reader/Peer.h"
#include "trace/reader/Story.h"
#include "trace/reader/Times.h"

namespace dome::console {

namespace {

using namespace std::chrono_literals;

constexpr auto kReadEvery = 200ms;
constexpr auto kForgetAfter = 30s;
constexpr auto kCameraTime = 2s;

std::int64_t MicrosecondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

/// "024046"
std::string Hexadecimal(const std::string& octets) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * octets.size());
    for (const char octet : octets) {
        text += kDigits[static_cast<unsigned char>(octet) >> 4];
        text += kDigits[static_cast<unsigned char>(octet) & 0xf];
    }
    return text;
}

std::string CaptureHead() {
    std::ostringstream file;
    trace::PcapWriter head(file);
    return file.str();
}

constexpr std::int32_t kNoSuchCommunity = 1;  // VACM_NOSECNAME
constexpr std::uint8_t kSequence = 0x30;

/// Overwrites the community with as many '*'. Leaves a broken message out when its community cannot be found.
void HideCommunity(std::string& octets) {
    try {
        trace::BerReader fields(trace::BerReader(octets).Next("the message", kSequence));
        if (fields.NextInteger("the version") == trace::kVersion3) return;
        const std::string_view community = fields.Next("the community", trace::kOctetString);
        const auto start = static_cast<std::size_t>(community.data() - octets.data());
        octets.replace(start, community.size(), community.size(), '*');
    } catch (const tavos::osa::Exception&) {
        octets.clear();
    }
}

/// Whether the agent refused the community, and its configuration does not have it either.
bool IsWrongCommunity(const trace::Record& record, const trace::Communities& communities) {
    return record.in.community && record.verdict == kNoSuchCommunity && communities.IsWrong(*record.in.community);
}

/// The page has no password: everybody who reaches it could use a right community.
trace::Record WithoutCommunities(trace::Record record) {
    HideCommunity(record.messageIn);
    HideCommunity(record.messageOut);
    for (trace::Receiver& receiver : record.receivers) HideCommunity(receiver.message);
    return record;
}

/// As domectl's capture has them, without the right communities.
std::string PacketsOf(const trace::Entry& entry, const trace::Communities& communities) {
    if (entry.isAgain || !entry.record) return "";
    std::ostringstream file;
    trace::PcapWriter capture(file);
    const auto start = static_cast<std::size_t>(file.tellp());
    const bool isWrong = IsWrongCommunity(*entry.record, communities);
    capture.Write(isWrong ? *entry.record : WithoutCommunities(*entry.record));
    for (const auto& trap : entry.traps) capture.Write(WithoutCommunities(*trap));
    return file.str().substr(start);
}

}  // namespace

/// What other threads use, too.
struct TraceFeed::Shared {
    Shared() : stopping(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        if (stopping < 0) throw tavos::osa::Exception("console: no event descriptor: %s", std::strerror(errno));
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    ~Shared() { close(stopping); }

    const int stopping;  // readable from BeginStop on
    std::mutex mutex;
    std::condition_variable changed;
    bool isStopped = false;
    std::deque<Question> questions;
    std::uint64_t asked = 0;            // the questions to the camera so far
    std::optional<Reply> cameraAnswer;  // to the last of them
};

/// From the first question of a browser until nobody has asked for a while.
struct TraceFeed::Reading {
    /// A record for the browsers.
    struct Kept {
        std::string line;
        std::string packets;  // of a capture, without its head

        std::size_t Size() const { return line.size() + packets.size(); }
    };

    Reading(const TraceSource& source, int stop)
        : communities(trace::Communities::OfFile(source.configuration)),
          story(communities),
          agent(source.socket, 0, stop) {}

    const trace::Communities communities;
    trace::Story story;
    trace::AgentReader agent;
    std::int64_t started = MicrosecondsSince1970();
    Clock::time_point next{};
    std::string agentTrouble;
    std::string cameraTrouble;
    std::deque<Kept> kept;
    std::size_t text = 0;
    std::uint64_t last = 0;  // the number of the last one
    std::uint64_t lost = 0;  // records that are gone; the next one says so
    std::uint64_t own = 0;   // requests that were left out
};

TraceFeed::TraceFeed(TraceSource source, Agent agent, Handover& handover,
                     std::function<std::string(std::uint64_t)> history)
    : _source(std::move(source)),
      _agentAddress(std::move(agent.address)),
      _probes(agent.community),
      _handover(handover),
      _history(std::move(history)),
      _shared(std::make_shared<Shared>()),
      _thread(StartWithoutSignals([this] { Run(); })) {}

TraceFeed::~TraceFeed() {
    Stop();
}

bool TraceFeed::Ask(Question question) {
    const std::lock_guard<std::mutex> lock(_shared->mutex);
    if (_shared->isStopped || _shared->questions.size() >= kMaxWaiting) return false;
    _shared->questions.push_back(std::move(question));
    _shared->changed.notify_all();
    return true;
}

void TraceFeed::BeginStop() {
    const std::lock_guard<std::mutex> lock(_shared->mutex);
    _shared->isStopped = true;
    _shared->changed.notify_all();
    eventfd_write(_shared->stopping, 1);
}

void TraceFeed::Stop() {
    BeginStop();
    if (_thread.joinable()) _thread.join();
}

void TraceFeed::Run() {
    const auto isDue = [this] { return _shared->isStopped || !_shared->questions.empty(); };
    for (;;) {
        std::deque<Question> questions;
        {
            std::unique_lock<std::mutex> lock(_shared->mutex);
            if (!_reading) {
                _shared->changed.wait(lock, isDue);
            } else if (!_shared->changed.wait_for(lock, kForgetAfter, isDue)) {
                _reading.reset();
                continue;
            }
            if (_shared->isStopped) return;
            questions.swap(_shared->questions);
        }
        for (const Question& question : questions) Finish(question);
    }
}

/// Answers once, whatever fails. An answer for which there is no memory is dropped.
void TraceFeed::Finish(const Question& question) noexcept {
    Reply reply{500, "{}"};
    try {
        try {
            Read();
            reply = After(question);
        } catch (const std::exception& error) {
            _reading.reset();
            reply = {500, OneLine({{"error", error.what()}})};
        }
        question.finished(std::move(reply));
    } catch (const std::exception&) {
        _reading.reset();
    }
}

void TraceFeed::Read() {
    if (!_reading) _reading = std::make_unique<Reading>(_source, _shared->stopping);
    Reading& reading = *_reading;
    if (Clock::now() < reading.next) return;
    // The agent before the camera: what the camera noted of these records is then there.
    reading.agentTrouble = reading.agent.Read(reading.story);
    reading.cameraTrouble = ReadCamera();
    for (trace::Entry& entry : reading.story.Take()) Keep(std::move(entry));
    reading.next = Clock::now() + kReadEvery;
}

std::string TraceFeed::ReadCamera() {
    trace::Story& story = _reading->story;
    try {
        do {
            const Reply answer = AskCamera(story.HistoryChange());
            if (answer.status != 200) return answer.body;
            story.AddHistory(answer.body);
        } while (story.HistoryHasMore());
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

/// The status 200 and the history's lines, or another status and why there are none.
Reply TraceFeed::AskCamera(std::uint64_t change) {
    std::unique_lock<std::mutex> lock(_shared->mutex);
    _shared->cameraAnswer.reset();
    const std::uint64_t number = ++_shared->asked;
    lock.unlock();
    const auto work = [history = _history, change] {
        try {
            return Reply{200, history(change)};
        } catch (const std::exception& error) {
            return Reply{422, error.what()};
        }
    };
    const auto finished = [shared = _shared, number](Reply reply) {
        const std::lock_guard<std::mutex> hold(shared->mutex);
        if (shared->asked != number) return;  // too late: the next question has been asked
        shared->cameraAnswer = std::move(reply);
        shared->changed.notify_all();
    };
    if (!_handover.Ask({work, finished})) return {503, "too many requests are waiting for the camera"};
    lock.lock();
    const auto isDone = [this] { return _shared->isStopped || _shared->cameraAnswer; };
    if (!_shared->changed.wait_for(lock, kCameraTime, isDone)) return {503, "the camera is busy"};
    return _shared->cameraAnswer.value_or(Reply{503, "the console ends"});
}

/// What the agent's probe asked from this machine, and the agent answered. The system asks an address outside of
/// loopback from that address.
bool TraceFeed::IsOwn(const trace::Entry& entry) const {
    if (!entry.record || entry.json["failed"].get<bool>()) return false;
    const std::string asker = trace::ParsePeer(entry.record->peer).address;
    return (asker == "127.0.0.1" || asker == _agentAddress) && _probes.Has(entry.record->messageIn);
}

void TraceFeed::Keep(trace::Entry entry) {
    Reading& reading = *_reading;
    if (!entry.isAgain && entry.json.contains("lost")) reading.lost += entry.json["lost"].get<std::uint64_t>();
    if (IsOwn(entry)) {
        ++reading.own;
        return;
    }
    if (reading.lost != 0 && !entry.isAgain) entry.json["lost"] = std::exchange(reading.lost, 0);
    Reading::Kept kept{trace::Line(entry.json), PacketsOf(entry, reading.communities)};
    reading.text += kept.Size();
    reading.kept.push_back(std::move(kept));
    ++reading.last;
    while (reading.kept.size() > kMaxRecords || (reading.text > kMaxText && reading.kept.size() > 1)) {
        reading.text -= reading.kept.front().Size();
        reading.kept.pop_front();
    }
}

Reply TraceFeed::After(const Question& question) const {
    const Reading& reading = *_reading;
    const bool isRecords = question.part == Part::kRecords;
    const std::uint64_t before = reading.last - reading.kept.size();  // the number before the first one
    const std::uint64_t first = std::min(std::max(question.since, before), reading.last);
    std::string list;
    std::uint64_t next = first;
    while (next < reading.last) {
        const Reading::Kept& kept = reading.kept[next - before];
        const std::string text = isRecords ? kept.line : '"' + Hexadecimal(kept.packets) + '"';
        if (!list.empty() && list.size() + text.size() > kMaxAnswer) break;
        list += (list.empty() ? "" : ",") + text;
        ++next;
    }
    nlohmann::ordered_json head = {{"started", reading.started}, {"next", next}, {"more", next < reading.last}};
    if (isRecords) {
        head["time"] = trace::IsoTime(1000 * MicrosecondsSince1970());
        head["lost"] = question.since == 0 ? 0 : first - std::min(first, question.since);
        head["own"] = reading.own;
        head["agent"] = reading.agentTrouble;
        head["camera"] = reading.cameraTrouble;
    } else {
        head["head"] = Hexadecimal(CaptureHead());
    }
    std::string body = OneLine(head);
    body.pop_back();
    return {200, body + (isRecords ? ",\"records\":[" : ",\"packets\":[") + list + "]}"};
}

}  // namespace dome::console
