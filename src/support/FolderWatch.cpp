#include "support/FolderWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "support/MainQueue.h"

namespace ferrow {

FolderWatch::FolderWatch(std::vector<std::string> folders, Callback callback, bool background)
    : folders_(std::move(folders)), callback_(std::move(callback)) {
    fd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd_ < 0) return;
    for (auto& folder : folders_) {
        int wd = inotify_add_watch(
            fd_, folder.c_str(),
            IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE);
        if (wd >= 0) watches_.emplace_back(wd, folder);
    }
    if (watches_.empty() || !background || pipe2(stopPipe_, O_CLOEXEC) != 0) return;
    thread_ = std::thread([this] { loop(); });
}

FolderWatch::~FolderWatch() {
    if (thread_.joinable()) {
        char c = 1;
        (void)!write(stopPipe_[1], &c, 1);
        thread_.join();
    }
    for (int f : {fd_, stopPipe_[0], stopPipe_[1]})
        if (f >= 0) close(f);
}

void FolderWatch::loop() {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
    while (true) {
        if (poll(fds, 2, -1) < 0) continue;
        if (fds[1].revents) return;
        processEvents(0);
    }
}

int FolderWatch::processEvents(int timeoutMs) {
    if (fd_ < 0) return 0;
    pollfd pfd{fd_, POLLIN, 0};
    if (poll(&pfd, 1, timeoutMs) <= 0) return 0;
    alignas(inotify_event) char buffer[8192];
    ssize_t n = read(fd_, buffer, sizeof buffer);
    int count = 0;
    for (ssize_t i = 0; i < n; ++count) {
        auto* event = reinterpret_cast<inotify_event*>(buffer + i);
        std::string folder;
        for (auto& [wd, path] : watches_)
            if (wd == event->wd) folder = path;
        std::string path = event->len ? folder + "/" + event->name : folder;
        auto cb = callback_;
        MainQueue::shared().async([cb, path] { cb(path); });
        i += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return count;
}

}  // namespace ferrow
