#include "Fleet.h"

#include <boost/asio/post.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>

#include "dome/OneLine.h"
#include "dome/StateFolder.h"

namespace dome::console {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto kAskEvery = 2s;
constexpr auto kAnswerTime = 2s;
constexpr auto kForgetAfter = 10s;  // without a question
constexpr std::string_view kEnded = "ended";

}  // namespace

/// One camera's summary is asked for, on a connection of its own. It lives as long as its connection.
class Fleet::Question : public std::enable_shared_from_this<Fleet::Question> {
public:
    Question(Fleet& fleet, std::size_t index) : _fleet(fleet), _index(index), _stream(fleet._io) {
        _parser.body_limit(kMaxSummary);
    }

    void Ask(const Member& member) {
        beast::error_code error;
        auto address = asio::ip::make_address_v4(member.address, error);
        if (error) {
            asio::post(_fleet._io, [self = shared_from_this()] { self->End(""); });
            return;
        }
        if (address.is_unspecified()) address = asio::ip::address_v4::loopback();
        _request.set(http::field::host, address.to_string());
        _stream.expires_after(kAnswerTime);
        _stream.async_connect({address, member.port}, [self = shared_from_this()](beast::error_code failed) {
            if (failed) return self->End("");
            self->Send();
        });
    }

private:
    void Send() {
        http::async_write(_stream, _request, [self = shared_from_this()](beast::error_code failed, std::size_t) {
            if (failed) return self->End("");
            self->Receive();
        });
    }

    void Receive() {
        http::async_read(_stream, _buffer, _parser, [self = shared_from_this()](beast::error_code failed, std::size_t) {
            const auto& answer = self->_parser.get();
            const bool isGood = !failed && answer.result() == http::status::ok && nlohmann::json::accept(answer.body());
            self->End(isGood ? answer.body() : "");
        });
    }

    void End(std::string summary) {
        // A reset leaves no socket behind that waits for a minute: a thousand cameras would leave thirty thousand.
        beast::error_code ignored;
        _stream.socket().set_option(asio::socket_base::linger(true, 0), ignored);
        _stream.close();
        _fleet.Note(_index, std::move(summary));
    }

    Fleet& _fleet;
    const std::size_t _index;
    beast::tcp_stream _stream;
    beast::flat_buffer _buffer{2 * kMaxSummary};
    http::request<http::empty_body> _request{http::verb::get, "/api/summary", 11};
    http::response_parser<http::string_body> _parser;
};

Fleet::Fleet(asio::io_context& io, std::string folder) : _io(io), _folder(std::move(folder)), _timer(io) {}

Fleet::~Fleet() = default;

std::string Fleet::Answer() {
    _lastAsked = Clock::now();
    if (!_isBusy) Begin();
    std::string text = R"({"cameras":[)";
    for (std::size_t i = 0; i < _members.size(); ++i) {
        const Member& member = _members[i];
        text += (i == 0 ? "" : ",");
        text += R"({"number":)" + std::to_string(i + 1) + R"(,"state":")";
        text += member.state;
        text += '"';
        if (member.port != 0) {
            text += R"(,"address":)" + OneLine(nlohmann::json(member.address)) + R"(,"port":)" +
                    std::to_string(member.port);
        }
        text += R"(,"summary":)" + (member.summary.empty() ? "null" : member.summary) + '}';
    }
    return text + "]}";
}

void Fleet::Begin() {
    _isBusy = true;
    _began = Clock::now();
    _members.resize(static_cast<std::size_t>(FleetSize(_folder)));
    ReadAddresses();
    _next = 0;
    AskNext();
}

/// Where the cameras' pages are; a camera that does not run has no file "ready".
void Fleet::ReadAddresses() {
    for (std::size_t i = 0; i < _members.size(); ++i) {
        Member& member = _members[i];
        member.address.clear();
        member.port = 0;
        const fs::path file = fs::path(_folder) / std::to_string(i + 1) / "ready";
        std::error_code ignored;
        if (!fs::is_regular_file(file, ignored)) {
            member.state = kEnded;
            continue;
        }
        if (member.state == kEnded) member.state = "";
        std::ifstream lines(file);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("console_address=", 0) == 0) member.address = line.substr(16);
            if (line.rfind("console_port=", 0) == 0)
                member.port = static_cast<std::uint16_t>(std::atoi(line.c_str() + 13));
        }
    }
}

void Fleet::AskNext() {
    while (_asked < kMaxAsked && _next < _members.size()) {
        const std::size_t index = _next++;
        if (_members[index].port == 0) continue;
        ++_asked;
        std::make_shared<Question>(*this, index)->Ask(_members[index]);
    }
    if (_asked == 0) Rest();
}

void Fleet::Note(std::size_t index, std::string summary) {
    --_asked;
    Member& member = _members[index];
    member.state = summary.empty() ? "silent" : "answers";
    if (!summary.empty()) member.summary = std::move(summary);
    AskNext();
}

void Fleet::Rest() {
    _timer.expires_at(_began + kAskEvery);
    _timer.async_wait([this](beast::error_code error) {
        if (error) return;
        if (Clock::now() - _lastAsked < kForgetAfter) {
            Begin();
        } else {
            _isBusy = false;
            _members.clear();
            _members.shrink_to_fit();
        }
    });
}

}  // namespace dome::console
