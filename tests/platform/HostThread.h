#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dome/HeldPings.h"
#include "tavos/msgbus/ServiceHost.h"
#include "tavos/osa/Exception.h"

/// A call is served, answered with an error, or never answered.
enum class Treatment { kServe, kFail, kHang };

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

    /// Treats each call and ping as the function says.
    void Treat(std::function<Treatment(const tavos::msgbus::ReceivedCall&)> treat) {
        Do([&](tavos::msgbus::ServiceHost& host) {
            _treat = std::move(treat);
            host.SetCallFilter([this](const tavos::msgbus::ReceivedCall& call) { return TakesOver(call); });
        });
    }

private:
    bool TakesOver(const tavos::msgbus::ReceivedCall& call) {
        const Treatment treatment = _treat(call);
        if (treatment == Treatment::kFail) throw tavos::osa::Exception("the service has failed");
        if (treatment == Treatment::kHang && call.operation == "Ping") _heldPings.Hold(call.service, call);
        return treatment == Treatment::kHang;
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
            _heldPings.Answer([this](const std::string& service) {
                return _treat({service, "Ping", {}}) == Treatment::kHang;
            });
        }
    }

    // Of the host's thread.
    std::function<Treatment(const tavos::msgbus::ReceivedCall&)> _treat;
    dome::HeldPings _heldPings;

    std::mutex _mutex;
    std::vector<std::packaged_task<void(tavos::msgbus::ServiceHost&)>> _tasks;
    std::atomic<bool> _stop{false};
    std::thread _thread;
};
