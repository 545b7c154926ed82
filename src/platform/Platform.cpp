#include "platform/Platform.h"

#include <optional>

namespace zelk::platform {
namespace {
std::optional<Platform>& slot() {
    static std::optional<Platform> p;
    return p;
}
}  // namespace

Platform& Platform::current() {
    if (!slot()) slot().emplace();
    return *slot();
}
void Platform::install(const Platform& platform) {
    slot() = platform;
}
void Platform::reset() {
    slot().reset();
}
bool Platform::installed() {
    return slot().has_value() && slot()->workspace != nullptr;
}

}  // namespace zelk::platform
