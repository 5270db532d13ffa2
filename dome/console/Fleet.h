#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace dome::console {

/// The cameras of a fleet, for a page that shows all of them. While somebody asks, each camera's console is asked for
/// its summary every two seconds, at most 32 at once, each for at most two seconds: more than 32 that hang delay a
/// round. Otherwise nothing happens and nothing is kept. All members run on the thread of `io`; none of them waits for
/// a camera.
class Fleet {
public:
    static constexpr std::size_t kMaxSummary = 4096;  ///< octets; a longer one counts as no answer
    static constexpr std::size_t kMaxAsked = 32;      ///< at once

    /// `folder` is the fleet's.
    Fleet(boost::asio::io_context& io, std::string folder);
    ~Fleet();
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    /// What is known now, as JSON; docs/console.md describes it.
    std::string Answer();

private:
    class Question;
    using Clock = std::chrono::steady_clock;

    struct Member {
        std::string address;  ///< of its page, IPv4
        std::uint16_t port = 0;
        std::string_view state;  ///< "" until it has been asked; docs/console.md lists them
        std::string summary;     ///< JSON; "" before the first answer
    };

    void Begin();
    void ReadAddresses();
    void AskNext();
    void Note(std::size_t index, std::string summary);
    void Rest();

    boost::asio::io_context& _io;
    const std::string _folder;
    boost::asio::steady_timer _timer;
    std::vector<Member> _members;
    bool _isBusy = false;  // asks the cameras, or waits to ask them again
    std::size_t _next = 0;
    std::size_t _asked = 0;  // of these the answers are awaited
    Clock::time_point _began{};
    Clock::time_point _lastAsked{};  // somebody has asked then
};

}  // namespace dome::console
