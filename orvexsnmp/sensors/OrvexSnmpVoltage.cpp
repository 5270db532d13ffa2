#include "sensors/OrvexSnmpVoltage.h"

#include "core/PlatformCall.h"

OrvexSnmpVoltage::OrvexSnmpVoltage(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpVoltage");
    _client.reset(tavos::interfaces::IVoltageV2Provider::CreateClient(&bus));
    _client->OnVoltageStatusChange().AddHandler(tavos::core::CreateDelegate(this, &OrvexSnmpVoltage::SendVoltageTrap));
    _logger->Trace("%s: Done.", "OrvexSnmpVoltage");
}

int OrvexSnmpVoltage::GetMibIntData(int& value, unsigned char& type) const {
    constexpr auto kName = "GetMibIntData";
    type = ASN_INTEGER;
    return PlatformCall(*_logger, kName, "GetMibIntData: Exception in GetVoltageStatus call", [&] {
        const int reading = _client->GetVoltageStatus();
        _logger->Information("%s: GetVoltageStatus returned %d.", kName, reading);
        value = reading;
    });
}

void OrvexSnmpVoltage::SendVoltageTrap(int status) {
    SendTrap(OrvexSnmpOid::oid_voltage, OID_LENGTH(OrvexSnmpOid::oid_voltage), status);
}
