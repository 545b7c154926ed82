#pragma once
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "stages/StageModel.h"
#include "windows/ManagedWindow.h"

// Matching a stored stage item back to a live window, and the path rules that go with it.
namespace zelk::stages {

// What resolution asks of the desktop about one live window. Each read answers nothing when the
// script, process or attribute gives no answer; none of them may throw.
class WindowFacts {
  public:
    virtual ~WindowFacts() = default;
    virtual bool isAppRunning(std::string_view bundleID) = 0;
    // The file browser's folder or the window's document, as a plain path.
    virtual std::optional<std::string> documentOf(const windows::ManagedWindow& window) = 0;
    // The current URL, read per browser family.
    virtual std::optional<std::string> browserURLOf(const windows::ManagedWindow& window) = 0;
    // The working folder of a terminal window.
    virtual std::optional<std::string> terminalCWDOf(const windows::ManagedWindow& window) = 0;
};

// What the path rules ask of the file system.
class FileView {
  public:
    virtual ~FileView() = default;
    virtual bool exists(const std::string& path) const = 0;
    virtual bool isDirectory(const std::string& path) const = 0;
    virtual std::string homeFolder() const = 0;
};

// The real file system; the home folder from $HOME.
class DiskFileView : public FileView {
  public:
    bool exists(const std::string& path) const override;
    bool isDirectory(const std::string& path) const override;
    std::string homeFolder() const override;
};

// "~" expanded, "." and ".." folded, no trailing slash but on the root.
std::string standardizedPath(std::string_view path, const FileView& files);

// The project folder of a document: the nearest folder upward (below the home folder and the root)
// holding a project marker; else the folder the walk started from.
std::string projectRoot(std::string_view path, const FileView& files);

// The lower-cased host of a URL; nothing without one.
std::optional<std::string> urlHost(std::string_view url);

// Whether two folders are the same or one lies inside the other.
bool foldersOverlap(std::string_view a, std::string_view b);

// The live window an item means now, among the tracked windows in their list order.
std::optional<windows::ManagedWindow> resolveWindow(const StageItem& item,
                                                    std::span<const windows::ManagedWindow> windows,
                                                    WindowFacts& facts, const FileView& files);

// Resolves the items of one stage against one view of the desktop: the windows are grouped by app
// once, and each document's project folder is worked out once, however many items and candidates
// ask. The windows must outlive the pass.
class ResolvePass {
  public:
    ResolvePass(std::span<const windows::ManagedWindow> windows, WindowFacts& facts, const FileView& files);
    std::optional<windows::ManagedWindow> resolve(const StageItem& item);

  private:
    const std::string& projectRootOf(const std::string& path);

    WindowFacts& facts_;
    const FileView& files_;
    std::unordered_map<std::string, std::vector<const windows::ManagedWindow*>> byBundle_;
    std::unordered_map<std::string, std::string> roots_;
};

// Drops whole-app items made redundant by a per-window item of the same app, and repeated whole-app
// items; order is kept.
std::vector<StageItem> dedupeItems(const std::vector<StageItem>& items);

}  // namespace zelk::stages
