#pragma once

#include <string>

#include "tavos/Api.h"

namespace tavos::msgbus {
class ServiceHost;
}

namespace tavos::interfaces {

class IPanProvider;
class IAxisProvider;
class IZoomProvider;
class IFocusProvider;
class IFocusV2Provider;
class IIrisProvider;
class IPresetsProvider;
class IPresetsV2Provider;
class IAlarmV3Provider;
class IRelayV3Provider;
class ITemperatureV2Provider;
class IVoltageV2Provider;
class IPowerV2Provider;
class IFanV2Provider;

/// Serves `service` on the bus under its well-known name and returns that name. Calls from the bus run on the host's
/// thread; the caller gets an exception as an error. Each event fired on that thread is emitted as a signal. `service`
/// must outlive the host. Throws tavos::osa::Exception if another process owns the name.
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IPanProvider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IAxisProvider& service, const char* axis);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IZoomProvider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IFocusProvider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IFocusV2Provider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IIrisProvider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IPresetsProvider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IPresetsV2Provider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IAlarmV3Provider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IRelayV3Provider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, ITemperatureV2Provider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IVoltageV2Provider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IPowerV2Provider& service);
TAVOS_API std::string Serve(msgbus::ServiceHost& host, IFanV2Provider& service);

}  // namespace tavos::interfaces
