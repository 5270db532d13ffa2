// bench-load: sends requests to an SNMP agent on loopback as fast as it answers, from one socket, and prints the
// results as JSON.

#include <poll.h>
#include <sys/resource.h>

#include <array>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "load/Ber.h"
#include "load/Histogram.h"
#include "load/Options.h"
#include "load/Udp.h"

namespace {

using bench::Clock;
using bench::Duration;
using bench::Options;
using bench::Seconds;
using bench::SystemError;
using bench::Udp;

constexpr const char* kUsage =
    R"(usage: bench-load requests --port N [--in-flight N] [--seconds S] [--warm-up S] [--echo 1] MESSAGE...
       bench-load walk --port N [--repetitions N] [--seconds S] [--community C] NAME
       bench-load echo --port N

  requests  keeps N requests in flight and sends the messages (hexadecimal, SNMPv2c) in turn
  walk      walks the subtree repeatedly by GETNEXT, or by GETBULK with N repetitions; NAME is the object
            identifier's content octets (hexadecimal)
  echo      sends every datagram back, until it is ended; "requests" requires --echo 1 for such a server
)";

constexpr std::uint32_t kFirstId = 0x40000000;
constexpr unsigned kSlotBits = 6;
constexpr unsigned kMaxInFlight = 1U << kSlotBits;
constexpr std::size_t kMaxOctets = 65536;
constexpr auto kPatience = std::chrono::seconds(2);

std::uint16_t Port(const Options& options) {
    return static_cast<std::uint16_t>(options.Number("port", 0));
}

double ProcessorSeconds() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

bool Readable(int descriptor, Clock::duration time) {
    pollfd watched{descriptor, POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count())) > 0;
}

/// Buffers for datagrams, for sendmmsg and recvmmsg.
class Datagrams {
public:
    explicit Datagrams(std::size_t room) : _memory(kMaxInFlight, std::string(room, '\0')) {
        for (std::size_t i = 0; i < kMaxInFlight; ++i) {
            _vectors[i] = {_memory[i].data(), room};
            _headers[i].msg_hdr.msg_iov = &_vectors[i];
            _headers[i].msg_hdr.msg_iovlen = 1;
        }
    }

    std::size_t Receive(int descriptor) {
        const int count = recvmmsg(descriptor, _headers.data(), kMaxInFlight, MSG_DONTWAIT, nullptr);
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno == EAGAIN || errno == EINTR || errno == ECONNREFUSED) return 0;
        throw SystemError("recvmmsg");
    }

    std::string_view Received(std::size_t index) const { return {_memory[index].data(), _headers[index].msg_len}; }

    void Set(std::size_t index, const std::string& message) {
        _memory[index].replace(0, message.size(), message);
        _vectors[index].iov_len = message.size();
    }

    void Send(int descriptor, std::size_t count) {
        for (std::size_t sent = 0; sent < count;) {
            const int now = sendmmsg(descriptor, &_headers[sent], static_cast<unsigned>(count - sent), 0);
            if (now < 0 && errno != EINTR && errno != ECONNREFUSED) throw SystemError("sendmmsg");
            if (now > 0) sent += static_cast<std::size_t>(now);
        }
    }

private:
    std::vector<std::string> _memory;
    std::array<iovec, kMaxInFlight> _vectors{};
    std::array<mmsghdr, kMaxInFlight> _headers{};
};

/// Keeps a number of requests in flight and measures each.
class Requests {
public:
    explicit Requests(const Options& options)
        : _isEcho(options.Number("echo", 0) != 0), _in(kMaxOctets), _out(kMaxOctets) {
        const auto inFlight = static_cast<unsigned>(options.Number("in-flight", 1));
        if (inFlight < 1 || inFlight > kMaxInFlight || options.words.empty()) {
            throw std::runtime_error("requires 1 to 64 requests in flight, and a message");
        }
        for (const std::string& word : options.words) AddMessage(bench::FromHex(word));
        _slots.resize(inFlight);
        _socket.Connect(Port(options));
    }

    void Run(double warmUp, double seconds) {
        _recorded = Clock::now() + Duration(warmUp);
        const auto end = _recorded + Duration(seconds);
        for (unsigned slot = 0; slot < _slots.size(); ++slot) Ask(slot);
        Flush();
        double processor = 0;
        bool warm = false;
        const auto enough = [this] { return _answered >= 2 * _slots.size(); };
        while (Clock::now() < end || (!enough() && Clock::now() < end + kPatience)) {
            if (!warm && Clock::now() >= _recorded) {
                warm = true;
                processor = ProcessorSeconds();
            }
            if (!Exchange(true)) AskAgainForLost();
        }
        const double measured = Seconds(Clock::now() - _recorded);
        const double used = ProcessorSeconds() - processor;
        Drain();
        std::printf(
            "{\"requests\":%llu,\"all\":%llu,\"seconds\":%.6f,\"lost\":%llu,\"errors\":%llu,\"processor_seconds\":%.6f,"
            "\"histogram\":",
            static_cast<unsigned long long>(_answered), static_cast<unsigned long long>(_all), measured,
            static_cast<unsigned long long>(_lost), static_cast<unsigned long long>(_errors), used);
        _times.Print(stdout);
        std::puts("}");
    }

private:
    struct Message {
        std::string octets;
        std::size_t idOffset = 0;
    };

    struct Slot {
        std::uint32_t id = 0;
        Clock::time_point sent;
        bool waiting = false;
    };

    void AddMessage(const std::string& octets) {
        // The placeholder id of every message, as an INTEGER of four octets.
        const std::string id("\x02\x04\x40\x00\x00\x00", 6);
        const std::size_t offset = octets.find(id);
        if (offset == std::string::npos) throw std::runtime_error("a message has no request id 0x40000000");
        _messages.push_back({octets, offset + 2});
    }

    void Ask(unsigned slot) {
        Message& message = _messages[_next++ % _messages.size()];
        Slot& it = _slots[slot];
        it.id = kFirstId | (++_count << kSlotBits & (kFirstId - 1)) | slot;
        for (unsigned i = 0; i < 4; ++i) {
            message.octets[message.idOffset + i] = static_cast<char>(it.id >> (24 - 8 * i));
        }
        it.sent = Clock::now();
        it.waiting = true;
        _out.Set(_queued++, message.octets);
    }

    void Flush() {
        _out.Send(_socket.Descriptor(), _queued);
        _queued = 0;
    }

    /// The id of the request that a datagram answers; 0 for any other datagram.
    std::uint32_t Answered(std::string_view datagram) {
        if (_isEcho) {
            const std::size_t offset = _messages[0].idOffset;
            if (datagram.size() != _messages[0].octets.size()) return 0;
            std::uint32_t id = 0;
            for (unsigned i = 0; i < 4; ++i) id = id << 8 | static_cast<std::uint8_t>(datagram[offset + i]);
            return id;
        }
        bench::Message answer;
        if (!bench::ParseMessage(datagram, bench::kResponse, answer)) return 0;
        std::string_view name;
        bench::Element value;
        if (answer.errorStatus != 0 || !bench::TakeBinding(answer.bindings, name, value) || bench::IsException(value)) {
            ++_errors;
        }
        return answer.requestId;
    }

    void Take(std::string_view datagram, Clock::time_point now, bool askAgain) {
        const std::uint32_t id = Answered(datagram);
        const unsigned number = id & (kMaxInFlight - 1);
        if (number >= _slots.size() || !_slots[number].waiting || _slots[number].id != id) return;
        Slot& slot = _slots[number];
        slot.waiting = false;
        ++_all;
        if (askAgain && now >= _recorded) ++_answered;
        if (slot.sent >= _recorded) {
            _times.Add(static_cast<std::uint64_t>(std::chrono::nanoseconds(now - slot.sent).count()));
        }
        if (askAgain) Ask(number);
    }

    /// False when nothing has arrived within 50 ms.
    bool Exchange(bool askAgain) {
        if (!Readable(_socket.Descriptor(), std::chrono::milliseconds(50))) return false;
        const std::size_t count = _in.Receive(_socket.Descriptor());
        const auto now = Clock::now();
        for (std::size_t i = 0; i < count; ++i) Take(_in.Received(i), now, askAgain);
        Flush();
        return true;
    }

    void AskAgainForLost() {
        for (unsigned slot = 0; slot < _slots.size(); ++slot) {
            if (!_slots[slot].waiting || Clock::now() - _slots[slot].sent < kPatience) continue;
            ++_lost;
            Ask(slot);
        }
        Flush();
    }

    /// Receives late answers, which would disturb the next measurement.
    void Drain() {
        const auto waiting = [this] {
            for (const Slot& slot : _slots) {
                if (slot.waiting) return true;
            }
            return false;
        };
        const auto end = Clock::now() + kPatience;
        while (waiting() && Clock::now() < end) Exchange(false);
    }

    bool _isEcho;
    Udp _socket;
    std::vector<Message> _messages;
    std::vector<Slot> _slots;
    Datagrams _in;
    Datagrams _out;
    std::size_t _queued = 0;
    std::size_t _next = 0;
    std::uint32_t _count = 0;
    Clock::time_point _recorded;
    std::uint64_t _answered = 0;  ///< within the measured time
    std::uint64_t _all = 0;       ///< including those before and after it
    std::uint64_t _lost = 0;
    std::uint64_t _errors = 0;
    bench::Histogram _times;
};

/// One walk after the other.
class Walks {
public:
    explicit Walks(const Options& options)
        : _root(bench::FromHex(options.words.empty() ? "" : options.words[0])),
          _community(options.Text("community", "public")),
          _repetitions(static_cast<int>(options.Number("repetitions", 0))) {
        if (_root.empty()) throw std::runtime_error("requires a name");
        _socket.Connect(Port(options));
    }

    void Run(double seconds) {
        const auto start = Clock::now();
        do {
            const auto begun = Clock::now();
            const std::size_t objects = Walk();
            _times.push_back(Seconds(Clock::now() - begun));
            if (_times.size() > 1 && objects != _objects) throw std::runtime_error("two walks differ");
            _objects = objects;
        } while (Seconds(Clock::now() - start) < seconds);
        std::printf("{\"objects\":%zu,\"requests\":%zu,\"walks\":[", _objects, _requests / _times.size());
        for (std::size_t i = 0; i < _times.size(); ++i) std::printf("%s%.9f", i == 0 ? "" : ",", _times[i]);
        std::puts("]}");
    }

private:
    std::string_view Exchange(const std::string& name) {
        const std::string request = bench::WalkRequest(_community, kFirstId | ++_count, name, _repetitions);
        if (send(_socket.Descriptor(), request.data(), request.size(), 0) < 0) throw SystemError("send");
        if (!Readable(_socket.Descriptor(), std::chrono::seconds(10))) throw std::runtime_error("no answer");
        const ssize_t length = recv(_socket.Descriptor(), _received.data(), _received.size(), 0);
        if (length < 0) throw SystemError("recv");
        ++_requests;
        return {_received.data(), static_cast<std::size_t>(length)};
    }

    std::size_t Walk() {
        std::size_t objects = 0;
        std::string at = _root;
        while (true) {
            bench::Message answer;
            if (!bench::ParseMessage(Exchange(at), bench::kResponse, answer) ||
                answer.requestId != (kFirstId | _count)) {
                throw std::runtime_error("a wrong answer");
            }
            if (answer.errorStatus != 0) throw std::runtime_error("error status " + std::to_string(answer.errorStatus));
            std::string_view name;
            bench::Element value;
            while (bench::TakeBinding(answer.bindings, name, value)) {
                if (bench::IsException(value) || name.substr(0, _root.size()) != _root) return objects;
                at = name;
                ++objects;
            }
        }
    }

    std::string _root;
    std::string _community;
    int _repetitions;
    Udp _socket;
    std::array<char, kMaxOctets> _received{};
    std::uint32_t _count = 0;
    std::size_t _objects = 0;
    std::size_t _requests = 0;
    std::vector<double> _times;
};

[[noreturn]] void Echo(const Options& options) {
    Udp socket;
    socket.Bind(Port(options));
    std::puts("ready");
    std::fflush(stdout);
    std::array<char, kMaxOctets> datagram{};
    while (true) {
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t length = recvfrom(socket.Descriptor(), datagram.data(), datagram.size(), 0,
                                        reinterpret_cast<sockaddr*>(&from), &size);
        if (length < 0) continue;
        sendto(socket.Descriptor(), datagram.data(), static_cast<std::size_t>(length), 0,
               reinterpret_cast<const sockaddr*>(&from), size);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    try {
        const Options options(argc, argv, 2);
        if (command == "requests") {
            Requests(options).Run(options.Number("warm-up", 0.05), options.Number("seconds", 1));
        } else if (command == "walk") {
            Walks(options).Run(options.Number("seconds", 1));
        } else if (command == "echo") {
            Echo(options);
        } else {
            std::fputs(kUsage, stderr);
            return 2;
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-load: %s\n", error.what());
        return 1;
    }
}
