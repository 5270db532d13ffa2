#include "sensors/OrvexSnmpTemp.h"

#include "core/PlatformCall.h"

namespace {

constexpr int kSensor = 0;

}  // namespace

OrvexSnmpTemp::OrvexSnmpTemp(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpTemp");
    _client.reset(tavos::interfaces::ITemperatureV2Provider::CreateClient(&bus));
    _client->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(this, &OrvexSnmpTemp::SendTemperatureTrap));
    _logger->Trace("%s: Done.", "OrvexSnmpTemp");
}

int OrvexSnmpTemp::GetMibIntData(int& value, unsigned char& type) const {
    // Fixed: docs/contract.md, gauge-of-celsius.
    type = ASN_GAUGE;
    return PlatformRead(
        *_logger, "GetMibIntData", "Exception while GetTemperatureDegreesCelsius", value,
        [this] { return _client->GetTemperatureDegreesCelsius(kSensor); },
        [this](int reading) {
            _logger->Information("GetMibIntData: GetTemperatureDegreesCelsius returned %d.", reading);
        });
}

void OrvexSnmpTemp::SendTemperatureTrap(int sensor, int degrees) {
    // Fixed: docs/contract.md, sensor-0-only.
    if (sensor != kSensor) {
        _logger->Error("%s: Temp Change on sensor %d, only sensor 0 supported", "SendTemperatureTrap", sensor);
        return;
    }
    SendTrap(OrvexSnmpOid::oid_temperature, OID_LENGTH(OrvexSnmpOid::oid_temperature), degrees);
}
