#include "sensors/OrvexSnmpPower.h"

#include "core/PlatformCall.h"

OrvexSnmpPower::OrvexSnmpPower(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpPower");
    _client.reset(tavos::interfaces::IPowerV2Provider::CreateClient(&bus));
    _client->OnPowerStatusChange().AddHandler(tavos::core::CreateDelegate(this, &OrvexSnmpPower::SendPowerTrap));
    _logger->Trace("%s: Done.", "OrvexSnmpPower");
}

int OrvexSnmpPower::GetMibIntData(int& value, unsigned char& type) const {
    constexpr auto kName = "GetMibIntData";
    type = ASN_INTEGER;
    _logger->Trace("%s: Enter.", kName);
    // Fixed: docs/contract.md, sensor-lines.
    return CaughtCall(*_logger, "GetMibIntData: Exception in GetPowerStatus call", [&] {
        const int reading = _client->GetPowerStatus();
        _logger->Information("%s: GetPowerStatus returned %d.", kName, reading);
        value = reading;
    });
}

void OrvexSnmpPower::SendPowerTrap(int status) {
    SendTrap(OrvexSnmpOid::oid_power, OID_LENGTH(OrvexSnmpOid::oid_power), status);
}
