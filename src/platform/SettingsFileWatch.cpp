#include "platform/SettingsFileWatch.h"

#include <filesystem>

#include "support/Log.h"

namespace zelk::platform {

using ferrow::Log;

SettingsFileWatch::SettingsFileWatch(JsonFileSettingsStore& store, bool background)
    : store_(store), fileName_(store.path().filename().string()) {
    const std::string folder = store.path().parent_path().string();
    // inotify watches a folder that exists; the settings folder is made as the store would make it.
    if (!store.createFolder()) return;
    std::weak_ptr<bool> alive = alive_;
    watch_ = std::make_unique<ferrow::FolderWatch>(
        std::vector<std::string>{folder},
        [this, alive](const std::string& path) {
            if (alive.lock()) onEvent(path);
        },
        background);
    if (watch_->isWatching())
        Log::info("watch: following settings at {}", store.path().string());
    else
        Log::error("watch: can't follow settings at {}; outside changes are taken in at the next write",
                   store.path().string());
}

SettingsFileWatch::~SettingsFileWatch() {
    alive_.reset();
    pending_.cancel();
    watch_.reset();
}

void SettingsFileWatch::onEvent(const std::string& path) {
    // Temporary files, set-aside copies and other files in the folder are not the settings.
    if (std::filesystem::path(path).filename().string() != fileName_) return;
    pending_.cancel();
    pending_ = ferrow::MainQueue::shared().asyncAfter(kSettle, [this] { store_.reload(); });
}

}  // namespace zelk::platform
