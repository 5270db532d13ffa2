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
    constexpr auto kName = "GetMibIntData";
    // Fixed: docs/contract.md, gauge-of-celsius.
    type = ASN_GAUGE;
    return PlatformCall(*_logger, kName, "Exception while GetTemperatureDegreesCelsius", [&] {
        const int reading = _client->GetTemperatureDegreesCelsius(kSensor);
        _logger->Information("%s: GetTemperatureDegreesCelsius returned %d.", kName, reading);
        value = reading;
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
