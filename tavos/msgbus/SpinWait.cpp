#include "tavos/msgbus/SpinWait.h"

#include "tavos/msgbus/Switch.h"

namespace tavos::msgbus {

bool SpinWait::IsWanted() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    const bool isAlone = sched_getaffinity(0, sizeof processors, &processors) == 0 && CPU_COUNT(&processors) == 1;
    return IsOn("TAVOS_BUS_SPIN") && !isAlone;
}

}  // namespace tavos::msgbus
