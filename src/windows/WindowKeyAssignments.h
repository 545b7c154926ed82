#pragma once
#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Processes.h"
#include "platform/Workspace.h"

namespace zelk::windows {

enum class WindowKeyActionKind { url = 0, file = 1, script = 2, appleScript = 3 };

// An item saved under a letter of an app's window keys: a web address, a file, a shell script or a
// system script, run when the window trigger's key has no window.
struct WindowKeyAssignment {
    std::string key;
    std::string appURL;
    std::optional<std::string> name;
    WindowKeyActionKind actionKind = WindowKeyActionKind::url;
    std::optional<std::string> webURL, fileURL, scriptPath, scriptRunner, appleScriptPath;

    // What it opens or runs: the address, the file, or a file URL of the script.
    std::string targetURL() const;
    // An error text (as "appURL is not a URL") when the record can't be read.
    static std::optional<WindowKeyAssignment> fromJson(const nlohmann::json& json,
                                                       std::string* error = nullptr);
};

// The records of the setting that can be read; the others are left out.
std::vector<WindowKeyAssignment> decodeWindowKeyAssignments(const nlohmann::json& list);

// "file:///a/b" -> "/a/b" (percent escapes decoded); nothing for other schemes.
std::optional<std::string> pathOfFileURL(const std::string& url);
std::string fileURLOf(const std::string& path);

// An app as the runner sees it.
struct KeyedApp {
    std::string name;
    std::string bundleIdentifier;
    std::string path;
};

// Runs the saved item under a key for an app, as the window trigger does for a key with no window.
class WindowKeyAssignmentRunner {
  public:
    WindowKeyAssignmentRunner(platform::Workspace& workspace, platform::Processes& processes)
        : workspace_(workspace), processes_(processes) {}

    // False when nothing ran (no app, no matching record).
    bool run(const std::string& key, const std::optional<KeyedApp>& passedApp,
             const std::optional<KeyedApp>& focusedApp, const std::vector<WindowKeyAssignment>& assignments);

    // The keys under which `app` has saved items.
    std::set<std::string> keysFor(const KeyedApp& app, const std::vector<WindowKeyAssignment>& assignments);
    // Whether a record is the app's: the same app path, or the same bundle identifier.
    bool belongsTo(const WindowKeyAssignment& record, const KeyedApp& app);

  private:
    std::string bundleOfAppURL(const std::string& appURL);
    bool isScript(const WindowKeyAssignment& record, const KeyedApp& app) const;

    platform::Workspace& workspace_;
    platform::Processes& processes_;
    std::map<std::string, std::string> bundleByURL_;
};

}  // namespace zelk::windows
