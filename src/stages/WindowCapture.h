#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "stages/StageModel.h"
#include "stages/WindowResolve.h"
#include "windows/ManagedWindow.h"

// Turning live windows into the durable identities a stage keeps.
namespace zelk::stages {

// What capture asks of the desktop. Each answer is nothing when the script, attribute or process
// gives none; none of them may throw.
class CaptureFacts {
  public:
    virtual ~CaptureFacts() = default;
    // Runs a script with its time-out wrapped round it; its text answer.
    virtual std::optional<std::string> runScript(const std::string& source) = 0;
    // The window's AXDocument: a file URL read as its path, any other value as it is.
    virtual std::optional<std::string> axDocument(std::int32_t pid, std::uint32_t windowID) = 0;
    // How many windows of the app are tracked.
    virtual std::size_t trackedWindowCount(std::string_view bundleID) = 0;
    // The page of a Firefox-family window, found in its accessibility tree.
    virtual std::optional<std::string> firefoxURL(std::int32_t pid, std::uint32_t windowID) = 0;
    // The working folder kitty reports for the window.
    virtual std::optional<std::string> kittyCWD(std::uint32_t windowID) = 0;
    // Where the browsers keep their profiles; empty when unknown.
    virtual std::filesystem::path applicationSupportFolder() = 0;
};

// "with timeout of {seconds} seconds\n{source}\nend timeout".
std::string wrapScriptTimeout(const std::string& source, int seconds);

// The script texts of the capture ladder, by the window's number.
std::string iTermSessionPathScript(std::uint32_t windowID);
std::string chromiumURLScript(std::string_view bundleID, std::uint32_t windowID);
std::string safariURLScript(std::string_view bundleID, std::uint32_t windowID);
std::string finderPathScript(std::uint32_t windowID);

// The identity of a live window: the capture ladder by the kind of app. Never fails; the weakest
// answer is the whole app.
WindowSpec captureWindowSpec(std::string_view bundleID, std::int32_t pid, std::uint32_t windowID,
                             CaptureFacts& facts, const FileView& files);

// One window to capture: the tracked window and where it stands now.
struct CaptureSource {
    windows::ManagedWindow window;
    std::optional<Rect> frame;
};

// One stage item per window, in the order given: spec, title and placement. An app that is whole-app
// by `isAppLevel` gives one whole-app item for all its windows. `appFor` gives the app record of a
// bundle (nothing: the window is left out); `placementFor` the placement of a frame.
std::vector<StageItem> captureItems(
    const std::vector<CaptureSource>& sources, CaptureFacts& facts, const FileView& files,
    const std::function<std::shared_ptr<apps::LaunchableApp>(const windows::ManagedWindow&)>& appFor,
    const std::function<bool(const std::string& bundleID)>& isAppLevel,
    const std::function<std::optional<WindowPlacement>(const Rect&)>& placementFor);

}  // namespace zelk::stages
