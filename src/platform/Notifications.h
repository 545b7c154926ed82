#pragma once
#include <functional>
#include <map>
#include <string>

#include "support/Observable.h"

namespace zelk::platform {

using UserInfo = std::map<std::string, std::string>;

// User notifications (banners) and distributed notifications between processes.
class Notifications {
  public:
    virtual ~Notifications() = default;
    virtual void postUserNotification(const std::string& identifier, const std::string& title,
                                      const std::string& body) = 0;
    virtual void postDistributed(const std::string& name, const UserInfo& userInfo) = 0;
    // Callbacks arrive on the main queue.
    [[nodiscard]] virtual ferrow::Subscription observeDistributed(
        const std::string& name, std::function<void(const UserInfo&)> callback) = 0;
};

}  // namespace zelk::platform
