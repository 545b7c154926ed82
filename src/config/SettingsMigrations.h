#pragma once
#include <string_view>
#include <vector>

#include "platform/SettingsStore.h"

namespace zelk {

// The version of the stored settings this program writes.
constexpr int kSettingsVersion = 11;

// One step that brings stored values written by an older version to today's form. Each step is
// idempotent: running it on values already in today's form changes nothing.
struct SettingsMigration {
    int version;  // the `migrationVersion` stored once this step has run
    std::string_view name;
    void (*run)(platform::SettingsStore& store);
};

// All steps, by version from 1 up to kSettingsVersion.
const std::vector<SettingsMigration>& settingsMigrations();

// Runs, in order, every step above the stored `migrationVersion`, storing each step's version as it
// completes, so an interrupted run resumes where it stopped. A store from a newer version is left as
// it is. Answers how many steps ran.
int runSettingsMigrations(platform::SettingsStore& store);

}  // namespace zelk
