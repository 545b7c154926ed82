#pragma once
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/SettingsStore.h"

namespace zelk::platform {

// The settings store on Linux: one JSON object, key to stored value, in a file of its own. Every
// change is written through at once, atomically (a temporary file renamed over the old one), so a
// crash leaves either the old or the new document. A file that isn't a JSON object is set aside as
// "<name>.corrupt" and the program starts on defaults.
class JsonFileSettingsStore final : public SettingsStore {
  public:
    // `$XDG_STATE_HOME/zelk/com.ferrowlabs.zelk.json`, with `~/.local/state` when the variable is unset.
    static std::filesystem::path defaultPath();

    explicit JsonFileSettingsStore(std::filesystem::path path = defaultPath());

    std::optional<nlohmann::json> read(const std::string& key) const override;
    void write(const std::string& key, const nlohmann::json& value) override;
    void remove(const std::string& key) override;
    std::vector<std::string> keys() const override;
    // Writes the document again if an earlier write failed.
    bool synchronize() override;

    // Takes in a change made to the file from outside: reads it again and notifies the observers of
    // every key whose value changed, was added or went away. A corrupt file is set aside, the values
    // in memory stay and are written back; the answer is then false.
    bool reload();

    const std::filesystem::path& path() const { return path_; }

  private:
    enum class LoadResult { ok, missing, corrupt, unreadable };
    LoadResult load(std::map<std::string, nlohmann::json>& out, std::string& problem) const;
    void setAside(const char* operation, const std::string& problem, const char* outcome);
    bool persist();

    std::filesystem::path path_;
    std::map<std::string, nlohmann::json> values_;
    bool dirty_ = false;  // the file is behind the values in memory
};

}  // namespace zelk::platform
