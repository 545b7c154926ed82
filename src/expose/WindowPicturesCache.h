#pragma once
#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "expose/WindowPicturesScale.h"
#include "platform/Geometry.h"
#include "support/Clock.h"

namespace zelk::expose {

// The last good picture of one window.
struct CachedThumb {
    Picture image;
    Size pixelSize;
    ferrow::Nanos capturedAt = 0;
    std::uint64_t pixelHash = 0;
};

// Every window's last good picture, for the life of the process: a second opening of the overview
// shows pictures at once. Capture threads write it; one lock, held only for the map access.
class ThumbnailCache {
  public:
    static ThumbnailCache& shared();
    // Empties the shared cache (tests).
    static void reset() { shared().clear(); }

    // Replaces the window's entry.
    void store(std::uint32_t window, CachedThumb entry);
    std::optional<CachedThumb> lookup(std::uint32_t window) const;
    std::size_t size() const;
    void clear();

  private:
    mutable std::mutex mutex_;
    std::unordered_map<std::uint32_t, CachedThumb> entries_;
};

}  // namespace zelk::expose
