#pragma once

#include <functional>
#include <string>
#include <vector>

namespace dome {

/// Alarm inputs or relays in ordered, named banks, numbered from 0 within their bank. Members throw std::out_of_range
/// for a bank or a number that does not exist.
class Banks {
public:
    struct Bank {
        std::string name;
        std::vector<bool> states;
    };
    struct Size {
        std::string name;
        int count;
    };
    /// The limits of the agent's tables; refused here, before the agent sees them.
    static constexpr int kMaxRows = 1024;  ///< of all banks together
    static constexpr int kMaxBanks = 100;
    static constexpr int kMaxName = 255;  ///< octets

    explicit Banks(const std::vector<Size>& sizes) { Replace(sizes); }

    /// Replaces all banks. A point whose bank and number stay keeps its state. Throws std::invalid_argument, changing
    /// nothing, for an empty, duplicate or too long name, and for sizes above the limits.
    void Replace(const std::vector<Size>& sizes);

    const std::vector<Bank>& All() const { return _banks; }
    std::vector<std::string> Names() const;
    int Count(const std::string& bank) const;
    int Total() const;

    bool State(const std::string& bank, int number) const;
    void Set(const std::string& bank, int number, bool state);

    /// Sets the function that each Set calls at its end when it has changed a state; replaces the previous one.
    void OnChange(std::function<void()> onChange) { _onChange = std::move(onChange); }

private:
    const Bank* Find(const std::string& name) const;
    const Bank& Get(const std::string& name) const;
    static std::size_t Index(const Bank& bank, int number);

    std::vector<Bank> _banks;
    std::function<void()> _onChange;
};

}  // namespace dome
