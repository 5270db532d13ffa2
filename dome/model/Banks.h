#pragma once

#include <functional>
#include <string>
#include <vector>

namespace dome {

/// Alarm inputs or relays, in banks that have an order and a name; numbered from 0 within their bank. Members that
/// take a bank or a number throw std::out_of_range for one that does not exist.
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
    /// What the agent's tables take; more is refused here rather than there.
    static constexpr int kMaxRows = 1024;  ///< of all banks together
    static constexpr int kMaxBanks = 100;
    static constexpr int kMaxName = 255;  ///< octets

    explicit Banks(const std::vector<Size>& sizes) { Replace(sizes); }

    /// New banks in place of the old ones; what stays, by bank and number, keeps its state. Throws
    /// std::invalid_argument, changing nothing, for an empty, doubled or too long name or a size that is too large.
    void Replace(const std::vector<Size>& sizes);

    const std::vector<Bank>& All() const { return _banks; }
    std::vector<std::string> Names() const;
    int Count(const std::string& bank) const;
    int Total() const;

    bool State(const std::string& bank, int number) const;
    void Set(const std::string& bank, int number, bool state);

    /// Called at the end of each Set that changes something; one function for all.
    void OnChange(std::function<void()> told) { _told = std::move(told); }

private:
    const Bank* Find(const std::string& name) const;
    const Bank& Get(const std::string& name) const;
    static std::size_t Index(const Bank& bank, int number);

    std::vector<Bank> _banks;
    std::function<void()> _told;
};

}  // namespace dome
