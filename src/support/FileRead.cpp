#include "support/FileRead.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

namespace ferrow {
namespace {

std::string tooLong(const std::string& name, std::size_t maxBytes) {
    return fmt::format("{} is longer than {} bytes", name, maxBytes);
}

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

}  // namespace

std::optional<std::string> readFileCapped(const std::string& path, std::size_t maxBytes, std::string& error) {
    // Non-blocking, so a FIFO with no writer can't hold the open; reads below wait as usual.
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd.get() < 0) {
        error = fmt::format("can't read {}: {}", path, std::strerror(errno));
        return std::nullopt;
    }
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) {
        error = fmt::format("can't read {}: {}", path, std::strerror(errno));
        return std::nullopt;
    }
    if (S_ISDIR(info.st_mode)) {
        error = fmt::format("{} is a folder, not a file", path);
        return std::nullopt;
    }
    if (S_ISREG(info.st_mode) && static_cast<std::uint64_t>(info.st_size) > maxBytes) {
        error = tooLong(path, maxBytes);
        return std::nullopt;
    }
    int flags = ::fcntl(fd.get(), F_GETFL);
    if (flags >= 0) ::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK);

    std::string text;
    char buffer[65536];
    while (true) {
        ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = fmt::format("can't read {}: {}", path, std::strerror(errno));
            return std::nullopt;
        }
        if (n == 0) break;
        if (text.size() + static_cast<std::size_t>(n) > maxBytes) {
            error = tooLong(path, maxBytes);
            return std::nullopt;
        }
        text.append(buffer, static_cast<std::size_t>(n));
    }
    return text;
}

std::optional<std::string> readStreamCapped(std::istream& in, const std::string& name, std::size_t maxBytes,
                                            std::string& error) {
    std::string text;
    char buffer[65536];
    while (in) {
        in.read(buffer, sizeof buffer);
        auto n = static_cast<std::size_t>(in.gcount());
        if (text.size() + n > maxBytes) {
            error = tooLong(name, maxBytes);
            return std::nullopt;
        }
        text.append(buffer, n);
    }
    if (in.bad()) {
        error = fmt::format("can't read {}", name);
        return std::nullopt;
    }
    return text;
}

}  // namespace ferrow
