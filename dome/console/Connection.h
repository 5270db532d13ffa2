#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "AgentProbe.h"
#include "Fleet.h"
#include "Guard.h"
#include "Handover.h"
#include "Server.h"

namespace dome::console {

class Connection;

/// What the connections of one server share. Everything here and in Connection runs on the server's thread.
class Hub {
public:
    static constexpr std::size_t kMaxConnections = 512;
    static constexpr std::size_t kMaxStreams = 384;

    Hub(Handover& sharedHandover, Api sharedApi, const std::string& address);
    ~Hub();

    /// Serves the connection, or answers 503 when there are too many.
    void Open(boost::asio::ip::tcp::socket socket);
    void Close(Connection& connection);

    /// False when there are too many streams.
    bool AddStream(Connection& connection);

    /// Appends the activities after number `cursor` as events, about 32 KiB at most, and advances `cursor`.
    void AppendActivities(std::uint64_t& cursor, std::string& events) const;

    /// The cameras of the fleet; 404 for a camera that stands alone.
    Reply FleetReply();

    /// Fetches the new state and activities, and sends them to the streams.
    void Refresh();

    boost::asio::io_context io{1};
    Handover& handover;
    const Api api;
    const Guard guard;
    std::shared_ptr<const std::string> state;
    std::optional<bool> agentAnswers;                  ///< none: unknown, or the agent is not watched
    std::shared_ptr<const std::string> agentCommands;  ///< JSON: the last commands that it answers; null: unknown
    std::uint64_t beats = 0;                           ///< how often the camera's thread has answered a beat
    std::atomic<bool> refreshing{false};               ///< Refresh is queued

private:
    struct Line {
        std::uint64_t number;
        std::string event;
    };

    void FetchActivities();
    void Beat();
    bool AskForBeat();
    void PumpAll(bool keepAlive);
    void NoteAgent(bool answers);
    void NoteCommands(const std::string& commands);

    std::unordered_map<Connection*, std::shared_ptr<Connection>> _connections;
    std::unordered_set<Connection*> _streams;
    std::deque<Line> _lines;
    boost::asio::steady_timer _nextBeat{io};
    bool _isBeatAwaited = false;       // the camera's thread has not answered the last one
    std::optional<AgentProbe> _probe;  // runs while there are streams
    std::optional<Fleet> _fleet;
};

/// One browser's connection: one request after the other, and after a GET of the stream only events. A stream sends one
/// chunk at a time: a slow reader misses states, and is disconnected when a chunk takes too long.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    static constexpr std::size_t kMaxBody = 64 * 1024;

    Connection(Hub& hub, boost::asio::ip::tcp::socket socket);

    /// Waits for a request.
    void Read();

    /// Sends what is new to the stream, unless a chunk is still being sent. With `keepAlive` it sends a comment when
    /// nothing is new.
    void Pump(bool keepAlive);

private:
    using Verb = boost::beast::http::verb;
    using StringResponse = boost::beast::http::response<boost::beast::http::string_body>;

    void OnRead(boost::beast::error_code error);
    void Serve();
    void Dispatch();
    std::optional<Reply> Objection(std::string_view path) const;
    void DispatchApi(const std::string& path);
    void Ask(std::function<Reply()> work);
    using TraceReader = std::function<bool(std::uint64_t, std::function<void(Reply)>)>;
    void AskTrace(const TraceReader& read);
    void Post(const std::string& path);
    std::function<void(Reply)> Finisher();
    void AwaitEndOfAsker();
    void SendActivities();
    void SendJson(const Reply& reply);
    void SendLate(const Reply& reply);
    void SendError(unsigned status, const std::string& reason, const char* allow = nullptr);
    void Send(unsigned status, std::string_view type, std::string body, const char* allow = nullptr);
    void OnSent(boost::beast::error_code error);
    void StartStream();
    void AwaitEnd();
    void WriteEvents();
    void Linger();
    void Drain();
    void Close();

    Hub& _hub;
    boost::beast::tcp_stream _stream;
    boost::beast::flat_buffer _buffer;
    std::optional<boost::beast::http::request_parser<boost::beast::http::string_body>> _parser;
    std::optional<StringResponse> _response;
    std::optional<boost::beast::http::response_serializer<boost::beast::http::string_body>> _serializer;
    bool _keepOpen = false;
    bool _isAnswerAwaited = false;

    bool _isStream = false;
    bool _isWriting = false;
    std::string _events;
    std::shared_ptr<const std::string> _sentState;
    std::optional<bool> _sentAgent;
    std::shared_ptr<const std::string> _sentCommands;
    std::uint64_t _sentBeat = 0;
    std::uint64_t _cursor = 0;
    std::size_t _drained = 0;
    char _scrap[1024];
};

}  // namespace dome::console
