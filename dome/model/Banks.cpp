#include "Banks.h"

#include <algorithm>
#include <stdexcept>

namespace dome {

void Banks::Replace(const std::vector<Size>& sizes) {
    if (sizes.size() > kMaxBanks) throw std::invalid_argument("more than " + std::to_string(kMaxBanks) + " banks");
    std::vector<Bank> banks;
    int room = kMaxRows;
    for (const Size& size : sizes) {
        if (size.name.empty()) throw std::invalid_argument("a bank without a name");
        if (size.name.size() > kMaxName) {
            throw std::invalid_argument("a bank's name has more than " + std::to_string(kMaxName) + " octets");
        }
        if (size.count < 0) throw std::invalid_argument("bank " + size.name + ": a count below 0");
        if (size.count > room) {
            throw std::invalid_argument("bank " + size.name + ": all banks together have more than " +
                                        std::to_string(kMaxRows) + " rows");
        }
        room -= size.count;
        const auto same = [&](const Bank& bank) { return bank.name == size.name; };
        if (std::any_of(banks.begin(), banks.end(), same)) {
            throw std::invalid_argument("bank " + size.name + " twice");
        }
        const Bank* old = Find(size.name);
        banks.push_back({size.name, old ? old->states : std::vector<bool>()});
        banks.back().states.resize(static_cast<std::size_t>(size.count));
    }
    _banks = std::move(banks);
}

std::vector<std::string> Banks::Names() const {
    std::vector<std::string> names;
    for (const Bank& bank : _banks) names.push_back(bank.name);
    return names;
}

int Banks::Count(const std::string& bank) const {
    return static_cast<int>(Get(bank).states.size());
}

int Banks::Total() const {
    int total = 0;
    for (const Bank& bank : _banks) total += static_cast<int>(bank.states.size());
    return total;
}

bool Banks::State(const std::string& bank, int number) const {
    const Bank& found = Get(bank);
    return found.states[Index(found, number)];
}

void Banks::Set(const std::string& bank, int number, bool state) {
    const Bank& found = Get(bank);
    auto current = _banks[static_cast<std::size_t>(&found - _banks.data())].states[Index(found, number)];
    if (current == state) return;
    current = state;
    if (_onChange) _onChange();
}

std::size_t Banks::Index(const Bank& bank, int number) {
    if (number < 0 || number >= static_cast<int>(bank.states.size())) {
        throw std::out_of_range("bank " + bank.name + " has no number " + std::to_string(number));
    }
    return static_cast<std::size_t>(number);
}

const Banks::Bank* Banks::Find(const std::string& name) const {
    for (const Bank& bank : _banks) {
        if (bank.name == name) return &bank;
    }
    return nullptr;
}

const Banks::Bank& Banks::Get(const std::string& name) const {
    const Bank* bank = Find(name);
    if (!bank) throw std::out_of_range("no bank " + name);
    return *bank;
}

}  // namespace dome
