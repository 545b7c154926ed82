#pragma once
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "companions/TactoraPayload.h"
#include "config/Settings.h"
#include "platform/Notifications.h"
#include "platform/Workspace.h"
#include "support/MainQueue.h"
#include "support/Observable.h"

namespace zelk::companions {

// Where the companion keyboard's installation stands.
struct TactoraInstallState {
    enum class Kind { notInstalled, downloading, extracting, configuring, installed, failed };
    Kind kind = Kind::notInstalled;
    double fraction = 0;  // downloading
    std::string message;  // failed
    bool operator==(const TactoraInstallState&) const = default;

    static TactoraInstallState failed(std::string message) { return {Kind::failed, 0, std::move(message)}; }
};
std::string describe(const TactoraInstallState& state);

// The one object that talks to the companion keyboard: while the app trigger is held it asks the
// companion to show what each key would do, hides it again, keeps the shown payload in step with the
// bindings, and lists and imports its themes. All traffic is one-way distributed notifications and
// files; a companion that doesn't run simply doesn't react. Main thread only.
class TactoraManager {
  public:
    static constexpr const char* kAppPath = "/Applications/Tactora.app";
    static constexpr const char* kBundleID = "com.ferrowlabs.Tactora";
    static constexpr const char* kShow = "com.ferrowlabs.Tactora.show";
    static constexpr const char* kHide = "com.ferrowlabs.Tactora.hide";
    static constexpr const char* kImportThemes = "com.ferrowlabs.Tactora.importThemes";
    static constexpr const char* kListThemes = "com.ferrowlabs.Tactora.listThemes";
    static constexpr ferrow::Nanos kMinHoldDelay = 100 * ferrow::kNanosPerMs;
    static constexpr ferrow::Nanos kThemeListTimeout = 5 * ferrow::kNanosPerSecond;
    static constexpr ferrow::Nanos kFilePoll = 50 * ferrow::kNanosPerMs;
    // How long a staged themes file stays for the companion to read.
    static constexpr ferrow::Nanos kStagedThemesLifetime = 30 * ferrow::kNanosPerSecond;

    struct Sources {
        platform::Notifications* notifications = nullptr;
        platform::Workspace* workspace = nullptr;
        // Everything the bindings are built from but the settings this object reads itself.
        std::function<TactoraBindingInputs()> bindingInputs;
        // The input layer's suppression: no keyboard while it is set.
        std::function<bool()> inputSuppressed;
        std::function<void()> hideOSD;
        std::function<bool()> darkAppearance;
        // The bundled themes file; empty when this build carries none.
        std::string themesResource;
        std::filesystem::path temporaryDirectory;
    };

    TactoraManager(Settings& settings, Sources sources);
    ~TactoraManager();
    TactoraManager(const TactoraManager&) = delete;
    TactoraManager& operator=(const TactoraManager&) = delete;

    // Reads whether the companion is there and runs, subscribes to the settings and the workspace,
    // and queues the theme import when it is installed.
    void start();

    // The app trigger went down: the keyboard shows after the hold delay unless a key acts first.
    void hold();
    void triggerReleased();
    // A key acted during the hold: no keyboard in this hold.
    void keyActed();
    // Hides the keyboard without touching this hold's suppression.
    void dismiss();
    // A setting or binding the payload is built from changed.
    void bindingsChanged();
    // Posts the show notification now; false when the companion is off, missing or suppressed.
    bool show();
    TactoraPayload bindings();

    // The companion has no build for this system: installing ends at once in `failed` with a message
    // that says so.
    void install();
    void uninstall();

    // The companion's theme names, through a file it writes; nothing after the time-out.
    void listThemes(ferrow::Nanos timeout, std::function<void(std::optional<std::vector<std::string>>)> done);
    void importThemes();

    bool appExists() const;
    ferrow::Observable<TactoraInstallState> installState;
    ferrow::Observable<bool> running{false};
    bool suppressedThisCycle = false;
    bool keyboardCurrentlyShown = false;
    bool refreshScheduled = false;
    bool holdPending() const { return holdWorkItem_.isPending(); }

  private:
    void hide();
    void post(const std::string& name, const platform::UserInfo& info);
    void pollThemeList(std::filesystem::path out, ferrow::Nanos deadline,
                       std::function<void(std::optional<std::vector<std::string>>)> done);

    Settings& settings_;
    Sources sources_;
    std::optional<TactoraPayload> cachedBindingsUserInfo_;
    ferrow::WorkItem holdWorkItem_;
    std::vector<ferrow::Subscription> subscriptions_;
    std::vector<ferrow::WorkItem> later_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// Theme names out of the companion's answer: one a line, a leading " *" and surrounding blanks gone.
std::vector<std::string> parseThemeList(const std::string& text);

}  // namespace zelk::companions
