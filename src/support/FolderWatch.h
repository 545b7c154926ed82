#pragma once
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace ferrow {

// Watches folders (not recursively) for files created, changed, moved or removed, and calls back on
// the main queue with the paths that changed. Bursts arrive as one call per change; callers debounce.
class FolderWatch {
  public:
    using Callback = std::function<void(const std::string& path)>;
    // With `background` false no thread is started and the owner calls processEvents() itself.
    FolderWatch(std::vector<std::string> folders, Callback callback, bool background = true);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;
    // False when no folder could be watched.
    bool isWatching() const { return fd_ >= 0 && !watches_.empty(); }

    // Waits up to `timeoutMs` for changes and posts them; returns how many were read.
    int processEvents(int timeoutMs);

  private:
    void loop();
    std::vector<std::string> folders_;
    Callback callback_;
    int fd_ = -1;
    int stopPipe_[2] = {-1, -1};
    std::vector<std::pair<int, std::string>> watches_;
    std::thread thread_;
};

}  // namespace ferrow
