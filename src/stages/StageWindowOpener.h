#pragma once
#include <functional>
#include <string>

#include "platform/Platform.h"
#include "stages/StageModel.h"

// Opening the window a stage item stands for, when none of its windows is open.
namespace zelk::stages {

class StageWindowOpener {
  public:
    struct Sources {
        platform::Platform platform;
        // Launches an app the way a letter does (the catalogue's launch); false when it is unknown.
        std::function<bool(const std::string& bundleID, bool activates)> launchApp;
    };
    explicit StageWindowOpener(Sources sources) : s_(std::move(sources)) {}

    // Opens one item's window: its document with its app, its URL in its browser, a terminal in its
    // folder, or the app itself. `activates` brings the app forward. The result arrives later (the
    // window shows through window tracking); failures are only logged.
    void openStageWindow(const StageItem& item, bool activates);

  private:
    void openDocument(const StageItem& item, const std::string& path, bool activates);
    void openBrowserURL(const StageItem& item, const std::string& url, bool activates);
    void spawnFirefox(const StageItem& item, const std::string& url, bool activates);
    void openTerminalInDirectory(const StageItem& item, const std::string& path, bool activates);
    void openApplication(const StageItem& item, const std::vector<std::string>& arguments, bool activates,
                         const std::string& label);
    void launch(const StageItem& item, bool activates);
    bool isRunning(const std::string& bundleID) const;
    std::string appPath(const StageItem& item) const;

    Sources s_;
};

// "file:///a%20b/c" for "/a b/c"; nothing for a path that is not absolute.
std::optional<std::string> fileURLForPath(const std::string& path);

}  // namespace zelk::stages
