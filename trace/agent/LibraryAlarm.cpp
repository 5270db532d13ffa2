#include "trace/agent/LibraryAlarm.h"

#include <sys/time.h>

namespace trace {

// A file of its own: on 32-bit targets only this one has the time of the library, which has fewer bits.
unsigned int RegisterAlarm(bool now, SNMPAlarmCallback* callback) noexcept {
    const timeval when{now ? 0 : 1, now ? 1 : 0};
    return snmp_alarm_register_hr(when, 0, callback, nullptr);
}

}  // namespace trace
