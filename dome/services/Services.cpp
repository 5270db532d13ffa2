#include "Services.h"

#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/ServiceHost.h"

namespace dome {

Services::Services(Camera& camera)
    : pan(camera.pan),
      tilt(camera.tilt),
      zoom(camera.zoom),
      focus(camera.focus),
      focus2(camera.focus),
      iris(camera.iris),
      presets2(camera),
      alarm(camera.alarms),
      relay(camera.relays),
      temperature(camera.sensors),
      voltage(camera.sensors),
      power(camera.sensors),
      fan(camera.sensors) {}

std::vector<Services::Name> Services::Serve(tavos::msgbus::ServiceHost& host) {
    using tavos::interfaces::Serve;
    return {
        {"pan", Serve(host, pan)},
        {"tilt", Serve(host, tilt, "tilt")},
        {"zoom", Serve(host, zoom)},
        {"focus", Serve(host, focus)},
        {"focus2", Serve(host, focus2)},
        {"iris", Serve(host, iris)},
        {"presets", Serve(host, presets)},
        {"presets2", Serve(host, presets2)},
        {"alarm", Serve(host, alarm)},
        {"relay", Serve(host, relay)},
        {"temperature", Serve(host, temperature)},
        {"voltage", Serve(host, voltage)},
        {"power", Serve(host, power)},
        {"fan", Serve(host, fan)},
    };
}

}  // namespace dome
