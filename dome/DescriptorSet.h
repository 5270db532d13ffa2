#pragma once

#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tavos/osa/Exception.h"

namespace dome {

/// Several descriptors as one, which is readable while one of them is. One thread uses it.
class DescriptorSet {
public:
    /// Throws tavos::osa::Exception when the system has no descriptor left.
    DescriptorSet() : _set(epoll_create1(EPOLL_CLOEXEC)) {
        if (_set < 0) throw tavos::osa::Exception("no descriptor for waiting: %s", std::strerror(errno));
    }
    ~DescriptorSet() { close(_set); }
    DescriptorSet(const DescriptorSet&) = delete;
    DescriptorSet& operator=(const DescriptorSet&) = delete;

    int Descriptor() const { return _set; }

    /// False when the system refuses it. The descriptor must be removed before it is closed.
    bool Add(int descriptor) {
        epoll_event event{};
        event.events = EPOLLIN;
        return epoll_ctl(_set, EPOLL_CTL_ADD, descriptor, &event) == 0;
    }

    void Remove(int descriptor) { epoll_ctl(_set, EPOLL_CTL_DEL, descriptor, nullptr); }

private:
    const int _set;
};

}  // namespace dome
