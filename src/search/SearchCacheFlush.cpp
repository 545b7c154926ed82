#include "search/SearchCacheFlush.h"

#include "config/SettingsCatalogue.h"

namespace zelk::search {

SearchCacheFlush::SearchCacheFlush(Settings& settings, std::function<bool()> write)
    : write_(std::move(write)) {
    subscription_ = settings.observe(keys::searchQueryAppSelections.name, [this] { changed(); });
}

void SearchCacheFlush::changed() {
    dirty_ = true;
    pending_.cancel();
    std::weak_ptr<bool> alive = alive_;
    pending_ = ferrow::MainQueue::shared().asyncAfter(kDelay, [this, alive] {
        if (alive.lock()) flushIfDirty();
    });
}

void SearchCacheFlush::writeNow() {
    pending_.cancel();
    if (write_ && write_()) dirty_ = false;
}

void SearchCacheFlush::flushIfDirty() {
    if (dirty_) writeNow();
}

}  // namespace zelk::search
