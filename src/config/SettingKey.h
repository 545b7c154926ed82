#pragma once
#include <string>
#include <utility>

#include "config/SettingCodec.h"

namespace zelk {

class Settings;

// A stored name with its value type and default. Some defaults follow another setting (the look
// follows the appearance in force); those keys carry a function that computes it.
template <typename T>
struct SettingKey {
    using Value = T;
    std::string name;
    T defaultValue{};
    // When set, the default is computed from the other settings at read time.
    T (*computedDefault)(const Settings&) = nullptr;
    // When set, a decoded value that fails this check reads as the default.
    bool (*valid)(const T&) = nullptr;

    SettingKey(std::string n, T d) : name(std::move(n)), defaultValue(std::move(d)) {}
    SettingKey(std::string n, T d, T (*computed)(const Settings&), bool (*check)(const T&))
        : name(std::move(n)), defaultValue(std::move(d)), computedDefault(computed), valid(check) {}
};

}  // namespace zelk
