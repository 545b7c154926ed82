#include "input/AppDelegate.h"

#include "support/Log.h"

namespace zelk {

namespace {
AppDelegate* gShared = nullptr;
}

AppDelegate::AppDelegate() = default;
AppDelegate::~AppDelegate() {
    if (gShared == this) gShared = nullptr;
}
AppDelegate* AppDelegate::shared() { return gShared; }

void AppDelegate::applicationWillFinishLaunching() {}

void AppDelegate::applicationDidFinishLaunching() { gShared = this; }

void AppDelegate::applicationWillTerminate() {}

nlohmann::json AppDelegate::handleCommand(const nlohmann::json&) {
    return {{"ok", false}, {"error", "not available yet"}};
}

}  // namespace zelk
