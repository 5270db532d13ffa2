#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tavos/msgbus/ServiceHost.h"
#include "tavos/osa/Exception.h"

/// A service host on a separate thread, as if in another process.
class HostThread {
public:
    /// Returns when the host is on the bus; throws what the host's constructor throws.
    explicit HostThread(std::string address) {
        std::promise<void> connected;
        auto outcome = connected.get_future();
        _thread = std::thread([this, &connected, address] { Run(address, connected); });
        try {
            outcome.get();
        } catch (...) {
            _thread.join();
            throw;
        }
    }
    ~HostThread() {
        _stop = true;
        _thread.join();
    }
    HostThread(const HostThread&) = delete;
    HostThread& operator=(const HostThread&) = delete;

    /// Runs `work` on the host's thread; returns its result or throws its exception.
    void Do(const std::function<void(tavos::msgbus::ServiceHost&)>& work) {
        std::packaged_task<void(tavos::msgbus::ServiceHost&)> task(work);
        auto outcome = task.get_future();
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _tasks.push_back(std::move(task));
        }
        outcome.get();
    }

    /// Leaves each call and ping for which `hangs` is true without an answer; what `hangs` throws is the answer. A ping
    /// is answered when `hangs` is false again.
    void HangWhen(std::function<bool(const tavos::msgbus::ReceivedCall&)> hangs) {
        Do([&](tavos::msgbus::ServiceHost& host) {
            _hangs = std::move(hangs);
            host.SetCallFilter([this](const tavos::msgbus::ReceivedCall& call) { return TakesOver(call); });
        });
    }

private:
    bool TakesOver(const tavos::msgbus::ReceivedCall& call) {
        if (!_hangs(call)) return false;
        if (call.operation == "Ping") _heldPings.push_back(call);
        return true;
    }

    void Run(const std::string& address, std::promise<void>& connected) {
        std::unique_ptr<tavos::msgbus::ServiceHost> host;
        try {
            host = std::make_unique<tavos::msgbus::ServiceHost>(address);
        } catch (...) {
            connected.set_exception(std::current_exception());
            return;
        }
        connected.set_value();
        while (!_stop) {
            std::vector<std::packaged_task<void(tavos::msgbus::ServiceHost&)>> tasks;
            {
                std::lock_guard<std::mutex> lock(_mutex);
                tasks.swap(_tasks);
            }
            for (auto& task : tasks) task(*host);
            host->Process(5);
            AnswerHeldPings();
        }
    }

    void AnswerHeldPings() {
        for (const auto& ping : std::exchange(_heldPings, {})) {
            if (TakesOver(ping)) continue;
            ping.answer();
        }
    }

    // Of the host's thread.
    std::function<bool(const tavos::msgbus::ReceivedCall&)> _hangs;
    std::vector<tavos::msgbus::ReceivedCall> _heldPings;

    std::mutex _mutex;
    std::vector<std::packaged_task<void(tavos::msgbus::ServiceHost&)>> _tasks;
    std::atomic<bool> _stop{false};
    std::thread _thread;
};
