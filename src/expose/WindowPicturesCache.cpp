#include "expose/WindowPicturesCache.h"

namespace zelk::expose {

ThumbnailCache& ThumbnailCache::shared() {
    static ThumbnailCache cache;
    return cache;
}

void ThumbnailCache::store(std::uint32_t window, CachedThumb entry) {
    std::lock_guard lock(mutex_);
    entries_[window] = std::move(entry);
}

std::optional<CachedThumb> ThumbnailCache::lookup(std::uint32_t window) const {
    std::lock_guard lock(mutex_);
    auto it = entries_.find(window);
    if (it == entries_.end()) return std::nullopt;
    return it->second;
}

std::size_t ThumbnailCache::size() const {
    std::lock_guard lock(mutex_);
    return entries_.size();
}

void ThumbnailCache::clear() {
    std::lock_guard lock(mutex_);
    entries_.clear();
}

}  // namespace zelk::expose
