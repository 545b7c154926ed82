#pragma once
#include <memory>
#include <optional>
#include <vector>

#include "search/SearchResult.h"
#include "stages/StageModel.h"
#include "tabcycle/TabCycleEntries.h"
#include "windows/RecentlyClosed.h"

namespace zelk::windows {
class WindowManager;
}

namespace zelk::agent {

// Recently closed windows in the running program: captures from window focus, records from the
// windows that tracking prunes, reopens through the workspace, and hands the list to search and the
// tab cycle.
class RecentlyClosedService {
  public:
    explicit RecentlyClosedService(windows::WindowManager& windows);
    ~RecentlyClosedService();
    RecentlyClosedService(const RecentlyClosedService&) = delete;
    RecentlyClosedService& operator=(const RecentlyClosedService&) = delete;

    windows::RecentlyClosedWindows& list() { return *closed_; }

    // The rows search offers, newest first, with how long ago each closed.
    std::vector<search::ClosedWindowEntry> searchEntries() const;
    // The rows the tab cycle offers; none while `enableRecentlyClosedWindows` is off.
    std::vector<tabcycle::ClosedWindowRow> tabCycleRows() const;

    // The identity a live window is reopened by. The default reads the window's document through
    // accessibility; tests put their own reader here.
    using SpecReader = std::function<stages::WindowSpec(const windows::ManagedWindow&)>;
    void setSpecReader(SpecReader reader) { specReader_ = std::move(reader); }
    // How a closed window is opened again (the stages' opener); without one its app is launched.
    using Opener = std::function<void(const stages::StageItem&)>;
    void setOpener(Opener opener) { opener_ = std::move(opener); }

  private:
    std::optional<windows::CapturedWindowState> capture(const windows::ManagedWindow& window);
    stages::WindowSpec readSpec(const windows::ManagedWindow& window);
    void reopen(const windows::ClosedWindow& entry);

    windows::WindowManager& windows_;
    std::unique_ptr<windows::RecentlyClosedWindows> closed_;
    SpecReader specReader_;
    Opener opener_;
    std::vector<ferrow::Subscription> subscriptions_;
};

}  // namespace zelk::agent
