#include "Thread.h"

#include <pthread.h>
#include <signal.h>

#include <utility>

namespace dome::console {

std::thread StartWithoutSignals(std::function<void()> run) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(std::move(run));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

}  // namespace dome::console
