#include "Server.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

#include "Connection.h"
#include "Thread.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"

namespace dome::console {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using tavos::osa::Exception;
using namespace std::chrono_literals;

void Check(error_code error, const std::string& what) {
    if (error) throw Exception("console: %s: %s", what.c_str(), error.message().c_str());
}

tcp::acceptor Listen(asio::io_context& io, const std::string& address, std::uint16_t port) {
    error_code error;
    const auto ip = asio::ip::make_address(address, error);
    Check(error, address);
    const std::string what = (ip.is_v6() ? '[' + address + ']' : address) + ':' + std::to_string(port);
    tcp::acceptor acceptor(io);
    acceptor.open(ip.is_v6() ? tcp::v6() : tcp::v4(), error);
    Check(error, what);
    acceptor.set_option(asio::socket_base::reuse_address(true), error);
    Check(error, what);
    acceptor.bind({ip, port}, error);
    Check(error, what);
    acceptor.listen(asio::socket_base::max_listen_connections, error);
    Check(error, what);
    return acceptor;
}

const std::string& CheckedAddress(const std::string& address) {
    error_code error;
    asio::ip::make_address(address, error);
    Check(error, address);
    return address;
}

}  // namespace

struct Server::Private {
    Private(const std::string& address, std::uint16_t port, Handover& handover, Api api)
        : hub(handover, std::move(api), CheckedAddress(address)), acceptor(Listen(hub.io, address, port)) {}

    void Accept() {
        acceptor.async_accept([this](error_code error, tcp::socket socket) {
            if (error == asio::error::operation_aborted) return;
            if (error) {
                // Most likely out of descriptors; an immediate retry would fail again.
                pause.expires_after(100ms);
                pause.async_wait([this](error_code stopped) {
                    if (!stopped) Accept();
                });
                return;
            }
            hub.Open(std::move(socket));
            Accept();
        });
    }

    void Run() {
        for (;;) {
            try {
                hub.io.run();
                return;
            } catch (const std::exception& error) {
                tavos::core::Logger::GetLogger("console")->Error("%s", error.what());
            }
        }
    }

    Hub hub;
    tcp::acceptor acceptor;
    asio::steady_timer pause{hub.io};
    std::thread thread;
};

Server::Server(const std::string& address, std::uint16_t port, Handover& handover, Api api)
    : _private(std::make_unique<Private>(address, port, handover, std::move(api))) {
    Hub& hub = _private->hub;
    handover.OnPublished([&hub] {
        if (!hub.refreshing.exchange(true)) asio::post(hub.io, [&hub] { hub.Refresh(); });
    });
    _private->Accept();
    _private->thread = StartWithoutSignals([p = _private.get()] { p->Run(); });
}

Server::~Server() {
    _private->hub.handover.OnPublished(nullptr);
    _private->hub.io.stop();
    _private->thread.join();
}

std::uint16_t Server::Port() const {
    return _private->acceptor.local_endpoint().port();
}

}  // namespace dome::console
