#pragma once

#include <string>
#include <vector>

#include "AlarmService.h"
#include "FanService.h"
#include "FocusService.h"
#include "FocusV2Service.h"
#include "IrisService.h"
#include "PanService.h"
#include "PowerService.h"
#include "PresetsService.h"
#include "PresetsV2Service.h"
#include "RelayService.h"
#include "TemperatureService.h"
#include "TiltService.h"
#include "VoltageService.h"
#include "ZoomService.h"
#include "dome/model/Camera.h"

namespace tavos::msgbus {
class ServiceHost;
}

namespace dome {

/// Every service of the camera. It must not outlive the camera, and must outlive the host that serves it.
class Services {
public:
    struct Name {
        std::string shortName;  ///< "pan"
        std::string busName;    ///< "org.tavos.Pan1"
    };

    explicit Services(Camera& camera);

    /// Serves all of them on the bus and returns their names. Throws tavos::osa::Exception when a name is taken.
    std::vector<Name> Serve(tavos::msgbus::ServiceHost& host);

    PanService pan;
    TiltService tilt;
    ZoomService zoom;
    FocusService focus;
    FocusV2Service focus2;
    IrisService iris;
    PresetsService presets;
    PresetsV2Service presets2;
    AlarmService alarm;
    RelayService relay;
    TemperatureService temperature;
    VoltageService voltage;
    PowerService power;
    FanService fan;
};

}  // namespace dome
