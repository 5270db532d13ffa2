#pragma once

#include <functional>
#include <utility>
#include <vector>

namespace dome {

/// The camera's readings about itself. Observers are called after a reading has changed, but not after it was set to
/// the same value.
class Sensors {
public:
    /// The common drift of all temperatures: up to `degrees` above and below the set value, with a period of `period`
    /// seconds. 0 degrees: no drift.
    struct Drift {
        double degrees = 0;
        double period = 3600;
    };
    static constexpr int kFanOn = 45;   ///< at or above this, degrees Celsius of the warmest sensor
    static constexpr int kFanOff = 40;  ///< at or below this

    Sensors(std::vector<int> temperatures, const Drift& drift)
        : _temperatures(std::move(temperatures)), _drift(drift), _set(_temperatures.begin(), _temperatures.end()) {}

    /// Advances the drift of the temperatures. A reading changes by whole degrees.
    void Tick(double seconds);

    /// False: Tick changes nothing.
    bool IsDrifting() const { return _drift.degrees != 0; }

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
    double Drifted() const;
    void Read(int sensor, int degrees);

    std::vector<int> _temperatures;
    Drift _drift;
    std::vector<double> _set;  // the temperatures without the drift
    double _time = 0;
    int _voltage = 0;
    int _power = 0;
    bool _fanRunning = false;
    std::function<void(int, int)> _onTemperature;
    std::function<void(int)> _onVoltage;
    std::function<void(int)> _onPower;
};

}  // namespace dome
