// The ThreadSanitizer of g++ 12 and clang 14 does not know pthread_mutex_clocklock, with which the standard library's
// timed mutexes wait, and reports each of their unlocks. This replacement uses functions that it knows.
#include <pthread.h>
#include <time.h>

#include <cerrno>

extern "C" __attribute__((visibility("default"))) int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                                                                              const timespec* until) {
    constexpr timespec kPause{0, 100'000};
    for (;;) {
        const int result = pthread_mutex_trylock(mutex);
        if (result != EBUSY) return result;
        timespec now{};
        clock_gettime(clock, &now);
        if (now.tv_sec > until->tv_sec || (now.tv_sec == until->tv_sec && now.tv_nsec >= until->tv_nsec)) {
            return ETIMEDOUT;
        }
        nanosleep(&kPause, nullptr);
    }
}
