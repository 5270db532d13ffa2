#include "Connection.h"

#include <sys/socket.h>

#include <array>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>
#include <charconv>
#include <nlohmann/json.hpp>
#include <utility>

#include "Page.h"
#include "dome/OneLine.h"
#include "tavos/core/Logger.h"

namespace dome::console {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using nlohmann::json;
using namespace std::chrono_literals;

constexpr auto kRequestTime = 30s;  // from the end of one answer to the end of the next request
constexpr auto kWriteTime = 15s;
constexpr auto kLingerTime = 2s;
constexpr auto kBeatEvery = 2s;  // docs/console.md; the page waits for two
constexpr std::uint32_t kMaxHeader = 8 * 1024;
constexpr std::size_t kMaxBuffer = Connection::kMaxBody + 2 * kMaxHeader;
constexpr std::size_t kMaxDrained = 1024 * 1024;
constexpr std::size_t kChunk = 32 * 1024;  // octets of activities in one chunk
constexpr int kSendBuffer = 32 * 1024;     // octets; the max that the system buffers for a reader that has stopped
constexpr std::string_view kJsonType = "application/json";
constexpr std::string_view kStreamType = "text/event-stream";
// The page may load only its own files, and no other page may frame it.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

enum class Method { kGet, kPost };

struct Route {
    std::string_view path;
    Method method;
};

constexpr std::array<Route, 12> kRoutes = {{
    {"/api/state", Method::kGet},
    {"/api/activities", Method::kGet},
    {"/api/stream", Method::kGet},
    {"/api/trace", Method::kGet},
    {"/api/trace/packets", Method::kGet},
    {"/api/objects", Method::kGet},
    {"/api/summary", Method::kGet},
    {"/api/fleet", Method::kGet},
    {"/api/words", Method::kPost},
    {"/api/command", Method::kPost},
    {"/api/control", Method::kPost},
    {"/api/call", Method::kPost},
}};

const Route* FindRoute(std::string_view path) {
    for (const Route& route : kRoutes) {
        if (route.path == path) return &route;
    }
    return nullptr;
}

std::string_view View(beast::string_view text) {
    return {text.data(), text.size()};
}

beast::string_view View(std::string_view text) {
    return {text.data(), text.size()};
}

/// The number N of a target "...?since=N"; 0 for one without a query.
std::optional<std::uint64_t> Since(std::string_view target) {
    constexpr std::string_view kName = "since=";
    const std::size_t mark = target.find('?');
    if (mark == std::string_view::npos) return 0;
    const std::string_view query = target.substr(mark + 1);
    if (query.substr(0, kName.size()) != kName) return std::nullopt;
    std::uint64_t number = 0;
    const char* const end = query.data() + query.size();
    const auto parsed = std::from_chars(query.data() + kName.size(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
    return number;
}

json ToJson(const Activity& activity) {
    return {{"number", activity.number},   {"time", activity.time}, {"source", activity.source},
            {"service", activity.service}, {"call", activity.call}, {"args", activity.arguments},
            {"outcome", activity.outcome}};
}

std::string Event(const char* name, const std::string& data) {
    return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

template <class Message>
void SetCommonFields(Message& message, std::string_view type) {
    message.set(http::field::content_type, View(type));
    message.set(http::field::cache_control, type == kJsonType || type == kStreamType ? "no-store" : "no-cache");
    message.set("Content-Security-Policy", kPolicy);
    message.set("X-Content-Type-Options", "nosniff");
    message.set("Referrer-Policy", "no-referrer");
    message.set("Cross-Origin-Resource-Policy", "same-origin");
}

bool IsHttpError(beast::error_code error) {
    return error.category() == make_error_code(http::error::end_of_stream).category();
}

}  // namespace

Hub::Hub(Handover& sharedHandover, Api sharedApi, const std::string& address)
    : handover(sharedHandover), api(std::move(sharedApi)), guard(address, api.names) {
    if (!api.fleet.empty()) _fleet.emplace(io, api.fleet);
    if (!api.agent) return;
    AgentProbe::Reports reports;
    reports.answers = [this](bool answers) { NoteAgent(answers); };
    reports.commands = [this](const std::string& commands) { NoteCommands(commands); };
    _probe.emplace(io, *api.agent, api.focusReads, std::move(reports));
}

Hub::~Hub() {
    _streams.clear();
    _connections.clear();
}

void Hub::Open(asio::ip::tcp::socket socket) {
    beast::error_code ignored;
    if (_connections.size() >= kMaxConnections) {
        constexpr std::string_view kBusy = "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\n\r\n";
        socket.non_blocking(true, ignored);
        socket.write_some(asio::buffer(kBusy), ignored);
        return;
    }
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    socket.set_option(asio::socket_base::send_buffer_size(kSendBuffer), ignored);
    auto connection = std::make_shared<Connection>(*this, std::move(socket));
    _connections.emplace(connection.get(), connection);
    connection->Read();
}

void Hub::Close(Connection& connection) {
    if (_streams.erase(&connection) != 0) {
        handover.SetWatchers(static_cast<int>(_streams.size()));
        if (_streams.empty() && _probe) _probe->Stop();
    }
    _connections.erase(&connection);
}

bool Hub::AddStream(Connection& connection) {
    if (_streams.size() >= kMaxStreams) return false;
    if (_streams.empty()) {
        state = handover.State();
        FetchActivities();
    }
    _streams.insert(&connection);
    handover.SetWatchers(static_cast<int>(_streams.size()));
    if (_streams.size() == 1) {
        Beat();
        agentAnswers.reset();
        agentCommands.reset();
        if (_probe) _probe->Start();
    }
    return true;
}

void Hub::AppendActivities(std::uint64_t& cursor, std::string& events) const {
    if (_lines.empty() || cursor >= _lines.back().number) return;
    // The lines' numbers are consecutive.
    const std::uint64_t first = _lines.front().number;
    for (std::size_t i = cursor < first ? 0 : cursor - first + 1; i < _lines.size(); ++i) {
        if (events.size() > kChunk) return;
        events += _lines[i].event;
        cursor = _lines[i].number;
    }
}

Reply Hub::FleetReply() {
    if (!_fleet) return {404, OneLine({{"error", "this camera is not in a fleet"}})};
    return {200, _fleet->Answer()};
}

void Hub::Refresh() {
    refreshing = false;
    if (_streams.empty()) return;
    state = handover.State();
    FetchActivities();
    PumpAll(false);
}

void Hub::PumpAll(bool keepAlive) {
    const std::unordered_set<Connection*> streams = _streams;  // a stream that fails removes itself from the set
    for (Connection* stream : streams) stream->Pump(keepAlive);
}

void Hub::NoteAgent(bool answers) {
    if (agentAnswers == answers) return;
    agentAnswers = answers;
    PumpAll(false);
}

void Hub::NoteCommands(const std::string& commands) {
    if (agentCommands && *agentCommands == commands) return;
    agentCommands = std::make_shared<const std::string>(commands);
    PumpAll(false);
}

void Hub::FetchActivities() {
    for (const Activity& activity : handover.ActivitiesAfter(_lines.empty() ? 0 : _lines.back().number)) {
        // The lines' numbers must stay consecutive, so after a gap the older lines are dropped.
        if (!_lines.empty() && activity.number != _lines.back().number + 1) _lines.clear();
        _lines.push_back({activity.number, Event("activity", OneLine(ToJson(activity)))});
    }
    while (_lines.size() > Handover::kMaxActivities) _lines.pop_front();
}

/// While there are streams. A beat passes through the camera's thread, so that a watcher sees when that one hangs, too.
/// Until it has passed the streams get a comment: only a write reveals a browser that vanished or stopped reading.
void Hub::Beat() {
    _nextBeat.expires_after(kBeatEvery);
    _nextBeat.async_wait([this](beast::error_code error) {
        if (error || _streams.empty()) return;
        if (_isBeatAwaited || !AskForBeat()) PumpAll(true);
        Beat();
    });
}

/// False when too many requests wait for the camera.
bool Hub::AskForBeat() {
    const auto finished = [this](const Reply&) {
        asio::post(io, [this] {
            _isBeatAwaited = false;
            ++beats;
            PumpAll(false);
        });
    };
    _isBeatAwaited = handover.Ask({[] { return Reply{}; }, finished});
    return _isBeatAwaited;
}

Connection::Connection(Hub& hub, asio::ip::tcp::socket socket)
    : _hub(hub), _stream(std::move(socket)), _buffer(kMaxBuffer) {}

void Connection::Read() {
    _parser.emplace();
    _parser->header_limit(kMaxHeader);
    _parser->body_limit(kMaxBody);
    _stream.expires_after(kRequestTime);
    http::async_read(
        _stream, _buffer, *_parser,
        [self = shared_from_this()](beast::error_code error, std::size_t /*size*/) { self->OnRead(error); });
}

void Connection::OnRead(beast::error_code error) {
    _keepOpen = false;
    if (!error) {
        _keepOpen = _parser->get().keep_alive();
        Serve();
    } else if (error == http::error::body_limit) {
        SendError(413, "the body is larger than 64 KiB");
    } else if (error == http::error::header_limit || error == http::error::buffer_overflow) {
        SendError(431, "the header is larger than 8 KiB");
    } else if (IsHttpError(error) && error != http::error::end_of_stream && error != http::error::partial_message) {
        SendError(400, "malformed HTTP request");
    } else {
        Close();
    }
}

/// Answers 500, and then closes, when something fails that no request should make fail, such as memory.
void Connection::Serve() {
    try {
        try {
            Dispatch();
        } catch (const std::exception& error) {
            _keepOpen = false;
            SendError(500, error.what());
        }
    } catch (const std::exception&) {
        Close();  // nothing else would end the connection
    }
}

void Connection::Dispatch() {
    const auto& request = _parser->get();
    const std::string_view target = View(request.target());
    const std::string path(target.substr(0, target.find('?')));
    if (const auto objection = Objection(path)) {
        SendJson(*objection);
        return;
    }
    const bool isRead = request.method() == Verb::get || request.method() == Verb::head;
    if (const Route* const route = FindRoute(path)) {
        const bool isAllowed = route->method == Method::kGet ? isRead : request.method() == Verb::post;
        if (isAllowed) {
            DispatchApi(path);
        } else {
            SendError(405, "method not allowed", route->method == Method::kGet ? "GET, HEAD" : "POST");
        }
    } else if (const PageFile* const file = FindPageFile(path)) {
        if (isRead) {
            Send(200, file->type, std::string(file->content));
        } else {
            SendError(405, "method not allowed", "GET, HEAD");
        }
    } else {
        SendError(404, "no such path");
    }
}

/// The answer to a request whose headers alone are reason to refuse it.
std::optional<Reply> Connection::Objection(std::string_view path) const {
    const auto& request = _parser->get();
    const auto refuse = [](unsigned status, const char* reason) { return Reply{status, OneLine({{"error", reason}})}; };
    const std::string_view host = View(request[http::field::host]);
    if (request.count(http::field::host) != 1 || !_hub.guard.IsOwnHost(host)) {
        return refuse(403, "the Host header does not name this console");
    }
    if (request.count(http::field::origin) > 1 || !IsOwnOrigin(View(request[http::field::origin]), host)) {
        return refuse(403, "requests from other pages are refused");
    }
    const bool isApi = path.substr(0, 5) == "/api/";
    if (isApi && !IsOwnSite(View(request["Sec-Fetch-Site"]))) {
        return refuse(403, "requests from other pages are refused");
    }
    if (request.method() == Verb::post && !IsJson(View(request[http::field::content_type]))) {
        return refuse(415, "a POST requires the Content-Type application/json");
    }
    return std::nullopt;
}

void Connection::DispatchApi(const std::string& path) {
    if (path == "/api/stream") {
        StartStream();
    } else if (path == "/api/state") {
        Ask(_hub.api.readState);
    } else if (path == "/api/activities") {
        SendActivities();
    } else if (path == "/api/trace") {
        AskTrace(_hub.api.trace);
    } else if (path == "/api/trace/packets") {
        AskTrace(_hub.api.packets);
    } else if (path == "/api/summary") {
        Ask(_hub.api.summary);
    } else if (path == "/api/fleet") {
        SendJson(_hub.FleetReply());
    } else if (path == "/api/objects") {
        SendJson(_hub.api.objects());
    } else {
        Post(path);
    }
}

/// Sends a reply that comes from another thread.
std::function<void(Reply)> Connection::Finisher() {
    // That thread must not own a connection of this thread, so it gets a weak pointer.
    return [weak = weak_from_this(), &io = _hub.io](Reply reply) {
        asio::post(io, [weak, reply = std::move(reply)] {
            if (const auto self = weak.lock()) self->SendLate(reply);
        });
    };
}

void Connection::AskTrace(const TraceReader& read) {
    const std::optional<std::uint64_t> since = Since(View(_parser->get().target()));
    if (!since) {
        SendError(400, "the query must be since=N, with the \"next\" of an earlier answer or 0");
    } else if (!read(*since, Finisher())) {
        SendError(503, "too many requests are waiting; try again later");
    }
}

void Connection::Ask(std::function<Reply()> work) {
    if (!_hub.handover.Ask({std::move(work), Finisher()})) {
        SendError(503, "too many requests are waiting; try again later");
    }
}

void Connection::Post(const std::string& path) {
    const json body = json::parse(_parser->get().body(), nullptr, false);
    if (!body.is_object()) {
        SendError(400, "the body must be a JSON object");
        return;
    }
    try {
        if (path == "/api/words") {
            SendJson(_hub.api.explain(body));
        } else if (path == "/api/command") {
            _hub.api.send(body, {[weak = weak_from_this()] { return !weak.expired(); }, Finisher()});
            AwaitEndOfAsker();
        } else {
            Ask(_hub.api.prepare(path, body));
        }
    } catch (const Refusal& refusal) {
        SendError(refusal.status, refusal.reason);
    }
}

void Connection::SendActivities() {
    json activities = json::array();
    for (const Activity& activity : _hub.handover.ActivitiesAfter(0)) activities.push_back(ToJson(activity));
    SendJson({200, OneLine(activities)});
}

void Connection::SendJson(const Reply& reply) {
    Send(reply.status, kJsonType, reply.body + '\n');
}

/// Closes the connection when the browser goes before its answer is there.
void Connection::AwaitEndOfAsker() {
    _isAnswerAwaited = true;
    auto& socket = _stream.socket();
    socket.async_wait(asio::ip::tcp::socket::wait_read, [self = shared_from_this()](beast::error_code error) {
        if (error || !self->_isAnswerAwaited) return;
        char octet = 0;
        const ssize_t size = recv(self->_stream.socket().native_handle(), &octet, 1, MSG_PEEK | MSG_DONTWAIT);
        const bool isThere = size > 0 || (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK));
        if (!isThere) self->Close();
    });
}

/// Closes the connection when the answer cannot be sent: nothing else would end it.
void Connection::SendLate(const Reply& reply) {
    try {
        SendJson(reply);
    } catch (const std::exception& error) {
        tavos::core::Logger::GetLogger("console")->Error("an answer could not be sent: %s", error.what());
        Close();
    }
}

void Connection::SendError(unsigned status, const std::string& reason, const char* allow) {
    Send(status, kJsonType, OneLine({{"error", reason}}) + '\n', allow);
}

void Connection::Send(unsigned status, std::string_view type, std::string body, const char* allow) {
    if (_response) return;  // after a failure it has been answered already
    const bool isHead = _parser->get().method() == Verb::head;
    _isAnswerAwaited = false;
    _response.emplace(static_cast<http::status>(status), 11);
    SetCommonFields(*_response, type);
    if (allow) _response->set(http::field::allow, allow);
    _response->keep_alive(_keepOpen);
    _response->body() = std::move(body);
    _response->prepare_payload();
    _serializer.emplace(*_response);
    _stream.expires_after(kWriteTime);
    const auto sent = [self = shared_from_this()](beast::error_code error, std::size_t /*size*/) {
        self->OnSent(error);
    };
    if (isHead) {
        http::async_write_header(_stream, *_serializer, sent);
    } else {
        http::async_write(_stream, *_serializer, sent);
    }
}

void Connection::OnSent(beast::error_code error) {
    _serializer.reset();
    _response.reset();
    if (error) {
        Close();
    } else if (_keepOpen) {
        Read();
    } else {
        Linger();
    }
}

void Connection::StartStream() {
    const bool isHead = _parser->get().method() == Verb::head;
    if (!isHead && !_hub.AddStream(*this)) {
        SendError(503, "too many streams are open; close one and try again");
        return;
    }
    http::response<http::empty_body> header(http::status::ok, 11);
    SetCommonFields(header, kStreamType);
    header.keep_alive(false);
    std::ostringstream text;
    text << header.base();
    _events = text.str();
    if (!isHead) {
        _isStream = true;
        _sentBeat = _hub.beats;
        _events += "retry: 1000\n" + Event("hello", _hub.api.hello);
        AwaitEnd();
    }
    WriteEvents();
}

/// Notices at once when the browser disconnects; ignores what it sends.
void Connection::AwaitEnd() {
    _stream.expires_never();
    _stream.async_read_some(asio::buffer(_scrap),
                            [self = shared_from_this()](beast::error_code error, std::size_t size) {
                                self->_drained += size;
                                if (error || self->_drained > kMaxDrained) {
                                    self->Close();
                                } else if (self->_isStream) {
                                    self->AwaitEnd();
                                }
                            });
}

void Connection::Pump(bool keepAlive) {
    if (_isWriting) return;
    if (_hub.state && !_hub.state->empty() && _hub.state != _sentState) {
        _sentState = _hub.state;
        _events += Event("state", *_sentState);
    }
    if (_hub.beats != _sentBeat) {
        _sentBeat = _hub.beats;
        _events += Event("beat", "{}");
    }
    if (_hub.agentAnswers && _hub.agentAnswers != _sentAgent) {
        _sentAgent = _hub.agentAnswers;
        _events += Event("agent", OneLine({{"answers", *_sentAgent}}));
    }
    if (_hub.agentCommands && _hub.agentCommands != _sentCommands) {
        _sentCommands = _hub.agentCommands;
        _events += Event("commands", *_sentCommands);
    }
    _hub.AppendActivities(_cursor, _events);
    if (_events.empty() && keepAlive) _events = ":\n\n";
    if (!_events.empty()) WriteEvents();
}

void Connection::WriteEvents() {
    _isWriting = true;
    _stream.expires_after(kWriteTime);  // the pending read still has no timeout
    asio::async_write(_stream, asio::buffer(_events),
                      [self = shared_from_this()](beast::error_code error, std::size_t /*size*/) {
                          self->_isWriting = false;
                          self->_events.clear();
                          if (error) {
                              self->Close();
                          } else if (self->_isStream) {
                              self->Pump(false);
                          } else {
                              self->Linger();
                          }
                      });
}

// Closing with unread octets of the request would reset the connection, and the answer could be lost.
void Connection::Linger() {
    beast::error_code error;
    _stream.socket().shutdown(asio::ip::tcp::socket::shutdown_send, error);
    if (error) {
        Close();
        return;
    }
    _stream.expires_after(kLingerTime);
    Drain();
}

void Connection::Drain() {
    _stream.async_read_some(asio::buffer(_scrap),
                            [self = shared_from_this()](beast::error_code error, std::size_t size) {
                                self->_drained += size;
                                if (error || self->_drained > kMaxDrained) {
                                    self->Close();
                                } else {
                                    self->Drain();
                                }
                            });
}

void Connection::Close() {
    _isStream = false;
    _stream.close();
    _hub.Close(*this);
}

}  // namespace dome::console
