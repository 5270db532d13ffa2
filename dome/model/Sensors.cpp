#include "Sensors.h"

#include <algorithm>
#include <cmath>
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
    if (sensor < 0 || sensor >= static_cast<int>(_temperatures.size())) {
        throw std::out_of_range("no temperature sensor " + std::to_string(sensor));
    }
    return _temperatures[static_cast<std::size_t>(sensor)];
}

void Sensors::SetTemperature(int sensor, int degrees) {
    Temperature(sensor);  // throws for what does not exist
    _set[static_cast<std::size_t>(sensor)] = degrees - Drifted();
    Read(sensor, degrees);
}

double Sensors::Drifted() const {
    constexpr double kWholeTurn = 6.283185307179586;
    return _drift.degrees * std::sin(kWholeTurn * _time / _drift.period);
}

void Sensors::Tick(double seconds) {
    if (!IsDrifting()) return;
    _time = std::fmod(_time + seconds, _drift.period);
    const double drifted = Drifted();
    for (std::size_t i = 0; i < _set.size(); ++i) {
        Read(static_cast<int>(i), static_cast<int>(std::lround(_set[i] + drifted)));
    }
}

void Sensors::Read(int sensor, int degrees) {
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
