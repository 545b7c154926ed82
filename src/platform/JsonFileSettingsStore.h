#pragma once
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/SettingsStore.h"

namespace zelk::platform {

// The settings store on Linux: one JSON object, key to stored value, in a file of its own (0600, in a
// folder created 0700). Every change is written through at once, atomically (a temporary file renamed
// over the old one), so a crash leaves either the old or the new document.
//
// The file is the user's too. Before every write the store looks at the file again: an edit made
// since it was last read or written is taken in first (as change notifications), so a write never
// replaces what someone else saved. A file that isn't a JSON object, is longer than kMaxFileBytes or
// nests deeper than kMaxDepth is set aside as "<name>.corrupt" (then ".corrupt-2", ".corrupt-3", ...:
// an earlier one is never replaced) with an error line, and the program goes on.
class JsonFileSettingsStore final : public SettingsStore {
  public:
    static constexpr std::size_t kMaxFileBytes = 16u * 1024 * 1024;
    static constexpr std::size_t kMaxDepth = 64;

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
    // every key whose value changed, was added or went away. The file as this store last wrote or
    // read it is no change (the echo of its own write), and keys changed here but not yet saved keep
    // their values. A corrupt file is set aside, the values in memory stay and are written back; the
    // answer is then false.
    bool reload();

    const std::filesystem::path& path() const { return path_; }
    // Creates the file's folder (0700) when it is missing; false, with an error line, when it can't.
    bool createFolder() const;

  private:
    enum class LoadResult { ok, missing, corrupt, unreadable };
    // The file's text (nullopt when there is no file); `problem` is set when it can't be read.
    LoadResult readText(std::optional<std::string>& text, std::string& problem) const;
    static LoadResult decode(const std::string& text, std::map<std::string, nlohmann::json>& out,
                             std::string& problem);
    void setAside(const char* operation, const std::string& problem, const char* outcome);
    // The document as the file's text, or nullopt (with an error line) when it can't fit kMaxFileBytes.
    std::optional<std::string> serialise(const nlohmann::json& document) const;
    bool persist();
    bool writeDocument(const std::string& text);
    // Reloads when the file changed since this store last saw it; false when it can't be read.
    bool takeInOutsideChange(const char* operation);
    bool save(const char* operation);
    void beginBatch() override;
    void endBatch() override;
    // Records a change in memory and saves it, unless a batch holds it or the file can't be read.
    void apply(const std::string& key, bool readable);

    std::filesystem::path path_;
    std::map<std::string, nlohmann::json> values_;
    std::set<std::string> unsaved_;        // keys changed here since the last good write
    std::optional<std::string> lastSeen_;  // the file's text as last read or written here
    int batchDepth_ = 0;                   // writes wait for the outermost batch to end
    bool dirty_ = false;                   // the file is behind the values in memory
};

}  // namespace zelk::platform
