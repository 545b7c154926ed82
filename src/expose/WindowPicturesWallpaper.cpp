#include "expose/WindowPicturesWallpaper.h"

#include <algorithm>
#include <cctype>

namespace zelk::expose {

namespace {
std::unique_ptr<WallpaperCache>& instance() {
    static std::unique_ptr<WallpaperCache> cache = std::make_unique<WallpaperCache>();
    return cache;
}
}  // namespace

WallpaperCache& WallpaperCache::shared() {
    return *instance();
}

void WallpaperCache::reset() {
    instance() = std::make_unique<WallpaperCache>();
}

std::optional<std::string> WallpaperCache::keyFor(const platform::Screen& screen) {
    if (screen.displayID == 0 || screen.uuid.empty()) return std::nullopt;
    std::string key = screen.uuid;
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return key;
}

std::optional<std::string> WallpaperCache::pathFor(const std::string& key) const {
    auto it = paths_.find(key);
    return it == paths_.end() ? std::nullopt : std::optional<std::string>(it->second);
}

std::optional<Picture> WallpaperCache::imageFor(const std::string& key) const {
    auto it = images_.find(key);
    return it == images_.end() ? std::nullopt : std::optional<Picture>(it->second);
}

std::optional<Picture> WallpaperCache::wallpaperFor(const platform::Screen& screen,
                                                    platform::WindowServer& windowServer,
                                                    std::function<void(const std::string& key)> ready) {
    auto key = keyFor(screen);
    if (!key) return std::nullopt;
    auto path = windowServer.desktopImagePath(screen.displayID);
    if (!path) return std::nullopt;
    auto known = paths_.find(*key);
    if (known != paths_.end() && known->second == *path) {
        if (auto image = images_.find(*key); image != images_.end()) return image->second;
        return std::nullopt;  // still loading
    }
    paths_[*key] = *path;
    images_.erase(*key);
    if (!loader_) loader_ = std::make_unique<ferrow::BackgroundQueue>("com.ferrowlabs.zelk.expose-wallpaper");
    std::weak_ptr<bool> alive = alive_;
    platform::WindowServer* server = &windowServer;
    loader_->async([this, alive, server, k = *key, p = *path, ready = std::move(ready)] {
        auto loaded = server->loadImage(p);
        if (!loaded) return;
        Picture image = std::make_shared<const platform::WindowImage>(std::move(*loaded));
        ferrow::mainAsync([this, alive, k, p, image, ready] {
            // A newer path for the display makes this load stale.
            if (alive.expired() || pathFor(k) != p) return;
            images_[k] = image;
            if (ready) ready(k);
        });
    });
    return std::nullopt;
}

}  // namespace zelk::expose
