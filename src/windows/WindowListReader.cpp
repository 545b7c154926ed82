#include "windows/WindowListReader.h"

namespace zelk::windows {

bool WindowListReader::hasPermission() {
    if (!permitted_) permitted_ = server_.screenCaptureAccess();
    return *permitted_;
}

std::vector<platform::WindowInfo> WindowListReader::windowList(std::optional<std::int32_t> pid) {
    if (!hasPermission()) {
        server_.requestScreenCaptureAccess();
        permitted_ = server_.screenCaptureAccess();
        return {};
    }
    std::vector<platform::WindowInfo> out;
    for (auto& row : server_.windowList(platform::windowlist::excludeDesktopElements, 0)) {
        if (!row.name || row.name->empty()) continue;
        if (pid && row.ownerPID != *pid) continue;
        out.push_back(std::move(row));
    }
    return out;
}

}  // namespace zelk::windows
