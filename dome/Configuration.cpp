#include "Configuration.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <initializer_list>

#include "tavos/osa/Exception.h"

namespace dome {

namespace {

using tavos::osa::Exception;

constexpr double kThousand = 1000;  // model units in one unit of the file

/// One table of the file. Refuses keys that are not among `keys`.
class Table {
public:
    Table(const std::string& file, std::string name, const toml::table& table, std::initializer_list<const char*> keys)
        : _file(file), _name(std::move(name)), _table(table) {
        for (const auto& [key, value] : table) {
            const auto same = [&key = key](const char* known) { return key.str() == known; };
            if (std::none_of(keys.begin(), keys.end(), same)) {
                std::string known;
                for (const char* const one : keys) known += (known.empty() ? "" : ", ") + std::string(one);
                Refuse(key.source(), Full(std::string(key.str())), "is not known; the known keys are " + known);
            }
        }
    }

    /// A whole or real number from `min` to `max` in the file's unit; `unit` converts it to the target's.
    void Read(const char* key, double& target, double min, double max, double unit = 1) const {
        const toml::node* node = _table.get(key);
        if (!node) return;
        const auto number = node->value<double>();
        if (!node->is_number() || !number) Refuse(*node, key, "must be a number");
        if (!(*number >= min && *number <= max)) {
            Refuse(*node, key, "must be from " + Text(min) + " to " + Text(max));
        }
        target = *number * unit;
    }

    void Read(const char* key, bool& target) const {
        const toml::node* node = _table.get(key);
        if (!node) return;
        if (!node->is_boolean()) Refuse(*node, key, "must be true or false");
        target = *node->value<bool>();
    }

    void Read(const char* key, std::string& target) const {
        const toml::node* node = _table.get(key);
        if (!node) return;
        if (!node->is_string()) Refuse(*node, key, "must be a string");
        target = *node->value<std::string>();
    }

    template <class Whole>
    void ReadWhole(const char* key, Whole& target, std::int64_t min, std::int64_t max) const {
        if (const toml::node* node = _table.get(key)) target = static_cast<Whole>(WholeOf(*node, key, min, max));
    }

    void ReadWholes(const char* key, std::vector<int>& target, std::int64_t min, std::int64_t max) const {
        const toml::node* node = _table.get(key);
        if (!node) return;
        const toml::array* array = node->as_array();
        if (!array || array->empty()) Refuse(*node, key, "must be a non-empty list of whole numbers");
        target.clear();
        for (const toml::node& element : *array) target.push_back(static_cast<int>(WholeOf(element, key, min, max)));
    }

    /// The table of that key; an empty one when the key is missing.
    Table Inner(const char* key, std::initializer_list<const char*> keys) const {
        static const toml::table s_empty;
        const toml::node* node = _table.get(key);
        if (node && !node->is_table()) Refuse(*node, key, "must be a table");
        return {_file, Full(key) + '.', node ? *node->as_table() : s_empty, keys};
    }

    void ReadBanks(const char* key, std::vector<Banks::Size>& target) const {
        const toml::node* node = _table.get(key);
        if (!node) return;
        const toml::array* array = node->as_array();
        if (!array) Refuse(*node, key, "must be a list of banks");
        target.clear();
        for (const toml::node& element : *array) {
            if (!element.is_table()) Refuse(element, key, "must be a list of banks");
            Banks::Size bank{"", -1};
            const Table table(_file, Full(key) + '.', *element.as_table(), {"name", "count"});
            table.Read("name", bank.name);
            table.ReadWhole("count", bank.count, 0, Banks::kMaxRows);
            if (bank.name.empty() || bank.count < 0) Refuse(element, key, "requires a name and a count in each bank");
            target.push_back(bank);
        }
        try {
            Banks check(target);
        } catch (const std::exception& error) {
            Refuse(*node, key, error.what());
        }
    }

    /// Throws the exception of ReadConfiguration, at the key's line.
    [[noreturn]] void RefuseKey(const char* key, const std::string& what) const {
        const toml::node* node = _table.get(key);
        Refuse(node ? node->source() : _table.source(), Full(key), what);
    }

private:
    std::string Full(const std::string& key) const { return _name + key; }

    static std::string Text(double number) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", number);
        return text;
    }

    std::int64_t WholeOf(const toml::node& node, const char* key, std::int64_t min, std::int64_t max) const {
        if (!node.is_integer()) Refuse(node, key, "must be a whole number");
        const std::int64_t number = *node.value<std::int64_t>();
        if (number < min || number > max) {
            Refuse(node, key, "must be from " + std::to_string(min) + " to " + std::to_string(max));
        }
        return number;
    }

    [[noreturn]] void Refuse(const toml::node& node, const char* key, const std::string& what) const {
        Refuse(node.source(), Full(key), what);
    }

    [[noreturn]] void Refuse(const toml::source_region& source, const std::string& key, const std::string& what) const {
        std::string reason = key + ' ' + what;
        // Keys and names come from the file: their control characters must not break the line.
        std::replace_if(
            reason.begin(), reason.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
        throw Exception("%s:%u: %s", _file.c_str(), static_cast<unsigned>(source.begin.line), reason.c_str());
    }

    std::string _file;
    std::string _name;
    const toml::table& _table;
};

toml::table Parsed(const std::string& file) {
    // Opening a FIFO would wait for a writer, without a deadline.
    std::error_code ignored;
    const auto kind = std::filesystem::status(file, ignored);
    if (std::filesystem::is_directory(kind)) throw Exception("%s:0: is a folder", file.c_str());
    if (std::filesystem::is_other(kind)) throw Exception("%s:0: is not a regular file", file.c_str());
    try {
        return toml::parse_file(file);
    } catch (const toml::parse_error& error) {
        const auto line = static_cast<unsigned>(error.source().begin.line);
        const std::string reason(error.description());
        throw Exception("%s:%u: %s", file.c_str(), line, reason.substr(0, reason.find('\n')).c_str());
    }
}

void ReadSpeeds(const Table& table, CameraProperties::Positioner& positioner) {
    table.Read("speed", positioner.speed, 0.1, 1000, kThousand);
    table.Read("default_speed", positioner.defaultSpeed, 0.01, 1);
    table.Read("accelerating", positioner.accelerating, 0.01, 60);
}

void ReadHead(const Table& root, CameraProperties& camera) {
    ReadSpeeds(root.Inner("pan", {"speed", "default_speed", "accelerating"}), camera.pan);
    const Table tilt = root.Inner("tilt", {"minimum", "maximum", "speed", "default_speed", "accelerating"});
    ReadSpeeds(tilt, camera.tilt);
    tilt.Read("minimum", camera.tilt.minimum, -90, 90, kThousand);
    tilt.Read("maximum", camera.tilt.maximum, -90, 90, kThousand);
    if (camera.tilt.minimum >= camera.tilt.maximum) tilt.RefuseKey("maximum", "must be above minimum");
}

void ReadMagnification(const Table& table, const char* key, std::uint32_t& thousandths, double max) {
    double magnification = thousandths;
    table.Read(key, magnification, 1, max, kThousand);
    thousandths = static_cast<std::uint32_t>(std::lround(magnification));
}

void ReadLens(const Table& root, CameraProperties& camera) {
    const Table zoom = root.Inner("zoom", {"optical_maximum", "digital_maximum", "rate"});
    ReadMagnification(zoom, "optical_maximum", camera.zoom.opticalMaximum, 100);
    ReadMagnification(zoom, "digital_maximum", camera.zoom.digitalMaximum, 100);
    zoom.Read("rate", camera.zoom.rate, 0.1, 1000, kThousand);
    root.Inner("focus", {"rate"}).Read("rate", camera.focusRate, 1, 1000);
    const Table iris = root.Inner("iris", {"rate", "light"});
    iris.Read("rate", camera.irisRate, 1, 1000);
    iris.Read("light", camera.light, 0, 100);
}

}  // namespace

Configuration ReadConfiguration(const std::string& file) {
    Configuration configuration;
    CameraProperties& camera = configuration.camera;
    const toml::table parsed = Parsed(file);
    const Table root(file, "", parsed,
                     {"keep_position", "presets", "pan", "tilt", "zoom", "focus", "iris", "alarm", "relay", "sensors"});
    root.Read("keep_position", configuration.keepPosition);
    root.ReadWhole("presets", camera.presets, 0, 0xFFFFFFFF);
    ReadHead(root, camera);
    ReadLens(root, camera);
    root.ReadBanks("alarm", camera.alarms);
    root.ReadBanks("relay", camera.relays);
    const Table sensors = root.Inner("sensors", {"temperatures", "drift", "drift_period"});
    sensors.ReadWholes("temperatures", camera.temperatures, -273, 1000);
    sensors.Read("drift", camera.drift.degrees, 0, 100);
    sensors.Read("drift_period", camera.drift.period, 1, 1e6);
    return configuration;
}

}  // namespace dome
