#pragma once

#include <poll.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <thread>

/// While it lives, the thread that made it gets a signal every 2 ms.
class Disturbance {
public:
    Disturbance() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        _thread = std::thread([this, disturbed = pthread_self()] {
            while (!_stop) {
                pthread_kill(disturbed, SIGUSR1);
                poll(nullptr, 0, 2);
            }
        });
    }
    ~Disturbance() {
        _stop = true;
        _thread.join();
    }
    Disturbance(const Disturbance&) = delete;
    Disturbance& operator=(const Disturbance&) = delete;

private:
    std::atomic<bool> _stop{false};
    std::thread _thread;
};
