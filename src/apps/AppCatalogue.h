#pragma once
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "apps/LaunchableApp.h"
#include "platform/Workspace.h"
#include "support/Observable.h"
#include "support/Timing.h"

namespace zelk::apps {

// The applications the program can reach: the installed-application query's results as records,
// kept in the `launchableApps` setting between runs. Main thread only.
class AppCatalogue {
  public:
    static constexpr const char* kCryptexSafariPath =
        "/System/Volumes/Preboot/Cryptexes/App/System/Applications/Safari.app";
    static constexpr std::int64_t kDeliveryThrottleMs = 2000;

    AppCatalogue();

    // The records, read from the settings at first use.
    const std::vector<AppRef>& apps();
    AppRef byBundleIdentifier(const std::string& bundleIdentifier);
    AppRef byIdentifier(const std::string& identifier);
    // Builds so far that read bundles in the background; a late pass of an older build is dropped.
    std::uint64_t generation() const { return generation_; }

    // Starts the live query (once; a second start while it runs does nothing) and the watch on the
    // application folders. Deliveries are throttled to one per 2 s, the latest winning.
    void start();
    void stop();
    bool isQuerying() const { return static_cast<bool>(query_); }
    // One delivery of the query, after the throttle.
    void deliver(const std::vector<platform::InstalledApp>& installed);
    // The application folders the watch covers.
    std::vector<std::string> watchedFolders() const;

    // After every install of a new list.
    ferrow::Signal<> installed;
    // A change in an application folder.
    ferrow::Signal<> foldersChanged;

  private:
    void loadIfNeeded();
    void install(std::vector<AppRef> list);
    void onFolderEvent(const platform::FolderEvent& event);

    bool loaded_ = false;
    std::vector<AppRef> apps_;
    std::unordered_map<std::string, AppRef> byBundle_, byIdentifier_;
    std::uint64_t generation_ = 0;
    ferrow::Subscription query_, rescan_;
    ferrow::Subscription folderWatch_;
    ferrow::Throttler throttle_{ferrow::ms(kDeliveryThrottleMs)};
};

}  // namespace zelk::apps
