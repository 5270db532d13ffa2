#pragma once

#include <functional>
#include <vector>

namespace dome {

/// What the camera measures about itself. An observer is called after a reading has changed, never for one that was
/// set to what it was.
class Sensors {
public:
    static constexpr int kTemperatureSensors = 2;
    static constexpr int kFanOn = 45;   ///< degrees Celsius of the warmest sensor, and above
    static constexpr int kFanOff = 40;  ///< and below

    /// Degrees Celsius. Throw std::out_of_range for a sensor that does not exist.
    int Temperature(int sensor) const;
    void SetTemperature(int sensor, int degrees);
    const std::vector<int>& Temperatures() const { return _temperatures; }

    int VoltageStatus() const { return _voltage; }  ///< 0 normal, 1 low, 2 high
    void SetVoltageStatus(int status);

    int PowerStatus() const { return _power; }  ///< 0 mains, 1 backup, 2 failing
    void SetPowerStatus(int status);

    bool IsFanRunning() const { return _fanRunning; }

    void ObserveTemperature(std::function<void(int sensor, int degrees)> observer);
    void ObserveVoltage(std::function<void(int status)> observer);
    void ObservePower(std::function<void(int status)> observer);

private:
    std::vector<int> _temperatures{25, 22};
    int _voltage = 0;
    int _power = 0;
    bool _fanRunning = false;
    std::function<void(int, int)> _onTemperature;
    std::function<void(int)> _onVoltage;
    std::function<void(int)> _onPower;
};

}  // namespace dome
