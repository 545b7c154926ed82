#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "expose/WindowPicturesScale.h"
#include "platform/Screens.h"
#include "platform/WindowServer.h"
#include "support/MainQueue.h"

namespace zelk::expose {

// The desktop picture behind the overview, per display: which file each display shows, and the loaded
// picture, both kept for the life of the process under the display's upper-case UUID. Loading happens
// on a background queue; until it lands the overview stands on its plain backdrop. Main thread only.
class WallpaperCache {
  public:
    static WallpaperCache& shared();
    static void reset();

    // The picture for the screen if it is loaded; else starts loading it (when the display has a
    // desktop picture) and calls `ready` with the display key once it is in the cache.
    std::optional<Picture> wallpaperFor(const platform::Screen& screen, platform::WindowServer& windowServer,
                                        std::function<void(const std::string& key)> ready = {});

    std::optional<std::string> pathFor(const std::string& key) const;
    std::optional<Picture> imageFor(const std::string& key) const;

    // The cache key of a display: its UUID in upper case; nothing without a number or UUID.
    static std::optional<std::string> keyFor(const platform::Screen& screen);

  private:
    std::map<std::string, std::string> paths_;
    std::map<std::string, Picture> images_;
    std::unique_ptr<ferrow::BackgroundQueue> loader_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zelk::expose
