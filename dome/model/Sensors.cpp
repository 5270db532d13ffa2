#include "Sensors.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace dome {

namespace {

void Change(int& reading, int value, const std::function<void(int)>& observer) {
    if (reading == value) return;
    reading = value;
    if (observer) observer(value);
}

}  // namespace

int Sensors::Temperature(int sensor) const {
    if (sensor < 0 || sensor >= kTemperatureSensors) {
        throw std::out_of_range("no temperature sensor " + std::to_string(sensor));
    }
    return _temperatures[static_cast<std::size_t>(sensor)];
}

void Sensors::SetTemperature(int sensor, int degrees) {
    Temperature(sensor);  // throws for what does not exist
    const auto notify = [&](int value) {
        if (_onTemperature) _onTemperature(sensor, value);
    };
    Change(_temperatures[static_cast<std::size_t>(sensor)], degrees, notify);
    const int warmest = *std::max_element(_temperatures.begin(), _temperatures.end());
    if (warmest >= kFanOn) _fanRunning = true;
    if (warmest <= kFanOff) _fanRunning = false;
}

void Sensors::SetVoltageStatus(int status) {
    Change(_voltage, status, _onVoltage);
}

void Sensors::SetPowerStatus(int status) {
    Change(_power, status, _onPower);
}

void Sensors::ObserveTemperature(std::function<void(int sensor, int degrees)> observer) {
    _onTemperature = std::move(observer);
}

void Sensors::ObserveVoltage(std::function<void(int status)> observer) {
    _onVoltage = std::move(observer);
}

void Sensors::ObservePower(std::function<void(int status)> observer) {
    _onPower = std::move(observer);
}

}  // namespace dome
