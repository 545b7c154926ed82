#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/Geometry.h"

namespace zelk::platform {

// Accessibility error codes; the ones that decide behaviour are named first.
enum class AXError : std::int32_t {
    success = 0,
    cannotComplete = -25204,        // time-out or dead peer
    noValue = -25212,               // no value: not an error
    attributeUnsupported = -25205,  // no value: not an error
    failure = -25200,
    illegalArgument = -25201,  // also: the value has another type
    invalidUIElement = -25202,
    invalidUIElementObserver = -25203,
    actionUnsupported = -25206,
    notificationUnsupported = -25207,
    notImplemented = -25208,
    notificationAlreadyRegistered = -25209,
    notificationNotRegistered = -25210,
    apiDisabled = -25211,
};

// A handle on an accessibility element; 0 is none. Handles stay valid even if the app hangs.
using AXRef = std::uint64_t;

using AXValue = std::variant<std::monostate, bool, std::int64_t, double, std::string, Point, Size, Rect,
                             AXRef, std::vector<AXRef>>;

template <typename T>
struct AXResult {
    AXError error = AXError::success;
    std::optional<T> value;
    bool ok() const { return error == AXError::success; }
};

// The operations the logic needs of the accessibility API. Calls on an element block for at most its
// messaging time-out (1.0 s is what every caller sets before the first query).
class Accessibility {
  public:
    virtual ~Accessibility() = default;
    virtual bool isProcessTrusted() = 0;
    virtual bool isProcessTrustedWithPrompt(bool prompt) = 0;
    virtual AXRef applicationElement(std::int32_t pid) = 0;
    virtual AXRef systemWideElement() = 0;
    virtual void setMessagingTimeout(AXRef element, double seconds) = 0;
    virtual AXResult<AXValue> copyAttribute(AXRef element, const std::string& attribute) = 0;
    virtual AXError setAttribute(AXRef element, const std::string& attribute, const AXValue& value) = 0;
    virtual AXError performAction(AXRef element, const std::string& action) = 0;
    virtual AXResult<AXRef> elementAtPosition(AXRef application, Point point) = 0;
    // The window-server number of a window element; 0 if none.
    virtual std::uint32_t windowNumber(AXRef window) = 0;
    virtual std::int32_t pidOf(AXRef element) = 0;

    using ObserverCallback = std::function<void(AXRef element, const std::string& notification)>;
    // An observer for one app; callbacks arrive on the main queue. 0 on failure.
    virtual std::uint64_t createObserver(std::int32_t pid, ObserverCallback callback) = 0;
    virtual AXError addNotification(std::uint64_t observer, AXRef element,
                                    const std::string& notification) = 0;
    virtual AXError removeNotification(std::uint64_t observer, AXRef element,
                                       const std::string& notification) = 0;
    virtual void destroyObserver(std::uint64_t observer) = 0;
};

}  // namespace zelk::platform
