#include "tavos/msgbus/ForkWatch.h"

#include <pthread.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "tavos/core/Logger.h"

namespace tavos::msgbus {

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<ForkWatch*> watches;
};

/// Never destroyed: a process may fork until it ends.
Registry& Shared() {
    static Registry* const registry = new Registry;
    return *registry;
}

void BeforeFork() {
    Shared().mutex.lock();
    for (const auto* watch : Shared().watches) watch->Actions().before();
}

void AfterForkInParent() {
    for (const auto* watch : Shared().watches) watch->Actions().inParent();
    Shared().mutex.unlock();
}

void AfterForkInChild() {
    for (const auto* watch : Shared().watches) watch->Actions().inChild();
    Shared().mutex.unlock();
}

}  // namespace

ForkWatch::ForkWatch(Functions functions) : _functions(std::move(functions)) {
    static std::once_flag once;
    std::call_once(once, [] {
        // The logger must register its fork handlers first: then a fork takes the logger's lock last, and a delegate
        // can still log while the fork waits for it.
        core::Logger::GetLogger("tavos");
        pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
    });
    std::lock_guard<std::mutex> lock(Shared().mutex);
    Shared().watches.push_back(this);
}

ForkWatch::~ForkWatch() {
    std::lock_guard<std::mutex> lock(Shared().mutex);
    auto& watches = Shared().watches;
    watches.erase(std::remove(watches.begin(), watches.end(), this), watches.end());
}

}  // namespace tavos::msgbus
