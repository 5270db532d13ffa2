#include "sensors/OrvexSnmpVoltage.h"

#include "core/PlatformCall.h"

OrvexSnmpVoltage::OrvexSnmpVoltage(tavos::msgbus::MsgBus& bus) {
    _logger->Trace("%s: Enter", "OrvexSnmpVoltage");
    _client.reset(tavos::interfaces::IVoltageV2Provider::CreateClient(&bus));
    _client->OnVoltageStatusChange().AddHandler(tavos::core::CreateDelegate(this, &OrvexSnmpVoltage::SendVoltageTrap));
    _logger->Trace("%s: Done.", "OrvexSnmpVoltage");
}

int OrvexSnmpVoltage::GetMibIntData(int& value, unsigned char& type) const {
    type = ASN_INTEGER;
    return PlatformRead(
        *_logger, "GetMibIntData", "GetMibIntData: Exception in GetVoltageStatus call", value,
        [this] { return _client->GetVoltageStatus(); },
        [this](int reading) { _logger->Information("GetMibIntData: GetVoltageStatus returned %d.", reading); });
}

void OrvexSnmpVoltage::SendVoltageTrap(int status) {
    SendTrap(OrvexSnmpOid::oid_voltage, OID_LENGTH(OrvexSnmpOid::oid_voltage), status);
}
