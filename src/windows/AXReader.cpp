#include "windows/AXReader.h"

#include <fmt/format.h>

namespace zelk::windows {

using platform::AXError;
using platform::AXRef;

namespace {
template <typename T>
std::optional<T> typed(platform::Accessibility& ax, AXRef e, const std::string& name, AXError* error) {
    auto r = ax.copyAttribute(e, name);
    if (error) *error = AXReader::isNoValue(r.error) ? AXError::success : r.error;
    if (!r.ok() || !r.value) return std::nullopt;
    if (auto* v = std::get_if<T>(&*r.value)) return *v;
    if (error) *error = AXError::illegalArgument;
    return std::nullopt;
}
}  // namespace

AXRef AXReader::application(std::int32_t pid) {
    AXRef app = ax_.applicationElement(pid);
    ax_.setMessagingTimeout(app, kMessagingTimeout);
    return app;
}

std::optional<std::string> AXReader::string(AXRef e, const std::string& name, AXError* error) {
    return typed<std::string>(ax_, e, name, error);
}

std::optional<bool> AXReader::boolean(AXRef e, const std::string& name, AXError* error) {
    return typed<bool>(ax_, e, name, error);
}

std::optional<Size> AXReader::size(AXRef e, AXError* error) {
    return typed<Size>(ax_, e, "AXSize", error);
}

std::optional<AXRef> AXReader::element(AXRef e, const std::string& name) {
    return typed<AXRef>(ax_, e, name, nullptr);
}

std::optional<std::vector<AXRef>> AXReader::windows(AXRef app, AXError& error) {
    auto r = ax_.copyAttribute(app, "AXWindows");
    error = AXError::success;
    if (isNoValue(r.error)) return std::vector<AXRef>{};
    if (!r.ok()) {
        error = r.error;
        return std::nullopt;
    }
    if (auto* v = r.value ? std::get_if<std::vector<AXRef>>(&*r.value) : nullptr) return *v;
    error = AXError::illegalArgument;
    return std::nullopt;
}

std::optional<AXRef> AXReader::focusedWindow(AXRef app, bool noSheets) {
    auto w = element(app, "AXFocusedWindow");
    if (!w || !noSheets) return w;
    for (int depth = 0; depth < 8; ++depth) {
        ax_.setMessagingTimeout(*w, kMessagingTimeout);
        if (string(*w, "AXRole") != std::optional<std::string>("AXSheet")) break;
        auto parent = element(*w, "AXParent");
        if (!parent) break;
        w = parent;
    }
    return w;
}

std::string errorText(AXError error) {
    switch (error) {
        case AXError::cannotComplete:
            return "cannotComplete (-25204)";
        case AXError::apiDisabled:
            return "apiDisabled (-25211)";
        case AXError::invalidUIElement:
            return "invalidUIElement (-25202)";
        case AXError::illegalArgument:
            return "illegalArgument (-25201)";
        case AXError::failure:
            return "failure (-25200)";
        default:
            break;
    }
    return fmt::format("AXError({})", static_cast<int>(error));
}

}  // namespace zelk::windows
