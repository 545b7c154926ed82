#pragma once
#include <memory>
#include <string>

#include "platform/JsonFileSettingsStore.h"
#include "support/Clock.h"
#include "support/FolderWatch.h"
#include "support/MainQueue.h"

namespace zelk::platform {

// Follows the live agent's settings file: a change saved by another program (an editor, a second
// tool) reaches the store, and through its change notifications every setting's observers, once the
// file has been quiet for kSettle. The store's own writes come back as events too; they find the
// file as the store wrote it and change nothing.
class SettingsFileWatch {
  public:
    static constexpr ferrow::Nanos kSettle = ferrow::ms(200);

    // With `background` false no thread reads the events: the owner calls poll() (tests).
    explicit SettingsFileWatch(JsonFileSettingsStore& store, bool background = true);
    ~SettingsFileWatch();
    SettingsFileWatch(const SettingsFileWatch&) = delete;
    SettingsFileWatch& operator=(const SettingsFileWatch&) = delete;

    bool isWatching() const { return watch_ && watch_->isWatching(); }
    // Reads the file events waiting now and posts them to the main queue; returns how many.
    int poll() { return watch_ ? watch_->processEvents(0) : 0; }

  private:
    void onEvent(const std::string& path);

    JsonFileSettingsStore& store_;
    std::string fileName_;
    ferrow::WorkItem pending_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);  // posted events outlive no watch
    std::unique_ptr<ferrow::FolderWatch> watch_;
};

}  // namespace zelk::platform
