#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/Settings.h"

namespace zelk::configfile {

// The three comment lines every written `config.yaml` starts with.
inline constexpr std::string_view kConfigHeader =
    "# zelk configuration file\n"
    "# Edit this file to customise zelk's behaviour. Changes are picked up within a few seconds.\n"
    "# Full settings reference: run `zelk config help`\n";

// The file names applications by bundle identifier; the store keeps whole app records and app URLs.
// These lookups translate between them. Any may be empty: the file then keeps what it can without
// them (a bare record named by its bundle identifier, an app's path in place of its bundle).
struct ConfigApps {
    // The stored record (`LaunchableApp` JSON) of an installed app.
    std::function<std::optional<nlohmann::json>(const std::string& bundleID)> appRecord;
    // The bundle identifier of the app at a file URL, and the file URL of an app.
    std::function<std::optional<std::string>(const std::string& appURL)> bundleForAppURL;
    std::function<std::optional<std::string>(const std::string& bundleID)> appURLForBundle;
};

// How the `stages` section and the stored stages translate. The stage model replaces this; until then
// the stored value is carried as it is.
class StageCodec {
  public:
    virtual ~StageCodec() = default;
    // The file's `stages` value for the stored one.
    virtual nlohmann::ordered_json toConfig(const nlohmann::json& stored) const = 0;
    // The stored value for the file's; an error text (and nothing) when the file's value can't be used.
    virtual std::optional<nlohmann::json> fromConfig(const nlohmann::json& config,
                                                     std::string& error) const = 0;
};

// Carries the stored stages unchanged: a list of mappings each way.
class StoredStagesCodec final : public StageCodec {
  public:
    nlohmann::ordered_json toConfig(const nlohmann::json& stored) const override;
    std::optional<nlohmann::json> fromConfig(const nlohmann::json& config, std::string& error) const override;
};

const StageCodec& storedStagesCodec();

// What reading a file decided: the stored values to write, in the order the sections apply, and
// whether the file alone decides (`overrideUserDefaults`), so that keys it leaves out return to
// their defaults.
struct ConfigUpdate {
    std::vector<std::pair<std::string, nlohmann::json>> writes;
    bool overrideUserDefaults = false;
    // Tolerated oddities (an unknown enumeration string, an unknown key), one line each, with the place.
    std::vector<std::string> notes;
};

// Every stored key the file carries: a change of one of them writes the file, and with
// `overrideUserDefaults` a read resets those the file leaves out. Keys read only from older files
// (`activateAllWindows`) are not among them.
const std::vector<std::string>& configManagedKeys();

// The file's tree for the stored settings, keys in the file's order.
nlohmann::ordered_json configTree(const Settings& settings, const ConfigApps& apps = {},
                                  const StageCodec& stages = storedStagesCodec());
// The header and the YAML of a tree.
std::string configText(const nlohmann::ordered_json& tree);
inline std::string configText(const Settings& settings, const ConfigApps& apps = {},
                              const StageCodec& stages = storedStagesCodec()) {
    return configText(configTree(settings, apps, stages));
}

// Reads a file's text against the stored settings (for what the file leaves out and the records it
// keeps). Nothing, with one line naming the place ("line 4, column 3: triggers.triggerKeys: ..."),
// when the text doesn't parse, a required key is missing or a value has the wrong type: then nothing
// may be applied.
std::optional<ConfigUpdate> decodeConfig(std::string_view text, const Settings& current, std::string& error,
                                         const ConfigApps& apps = {},
                                         const StageCodec& stages = storedStagesCodec());

// Stores a decoded file: only values that differ are written, so observers hear of real changes; with
// `overrideUserDefaults` the managed keys the file leaves out are removed. Answers how many keys changed.
std::size_t applyConfig(Settings& settings, const ConfigUpdate& update);

// The settings as one JSON record for export and import: fields by their record names, values in
// their stored form.
nlohmann::ordered_json exportSettingsRecord(const Settings& settings);
// The stored key of each record field, in the record's order.
const std::vector<std::pair<std::string, std::string>>& settingsRecordFields();
// Checks a record for import: every field present must hold a readable value. Nothing, with the
// reason, when it doesn't; otherwise the stored writes. Fields the record leaves out stay as they are.
std::optional<std::vector<std::pair<std::string, nlohmann::json>>> decodeSettingsRecord(std::string_view body,
                                                                                        std::string& error);

}  // namespace zelk::configfile
