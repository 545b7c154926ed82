#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/MainQueue.h"

namespace zelk::apps {

// "Google Chrome.app" -> "Chrome": the vendor word goes, so lists read by the product's name.
std::string normalizedAppName(std::string_view raw);

// Reads the bundle identifier out of an identifier of the form "/bundle:pid/".
std::string bundleIdentifierOf(std::string_view identifier);

// One application the program can reach. Records are shared by reference and compared by their
// identifier.
class LaunchableApp {
  public:
    LaunchableApp(std::string path, std::string rawName, std::int64_t useCount, std::string identifier,
                  int switchCount = 0);

    // Lenient: a record needs a path or an identifier; everything else falls back.
    static std::shared_ptr<LaunchableApp> fromJson(const nlohmann::json& json);
    nlohmann::json toJson() const;
    // The stand-in where a view needs an app and none exists.
    static std::shared_ptr<LaunchableApp> placeholder();

    const std::string& path() const { return path_; }
    const std::string& url() const;
    // The display name after normalisation.
    const std::string& name() const { return originalName_; }
    const std::string& originalName() const { return originalName_; }
    // The name as the system shows it, before normalisation: keys anchor on it, so "Adobe
    // Photoshop" still answers to a.
    const std::string& fullName() const { return fullName_; }
    void setName(std::string_view raw);
    std::int64_t useCount() const { return useCount_; }
    const std::string& identifier() const { return identifier_; }
    const std::string& bundleIdentifier() const { return bundleIdentifier_; }
    int switchCount() const { return switchCount_; }
    void setSwitchCount(int count) { switchCount_ = count; }
    bool isMenuBarApp() const { return isMenuBarApp_; }
    // Part of what the record is (read from its bundle as it is built), so the score follows it.
    void setMenuBarApp(bool flag) {
        isMenuBarApp_ = flag;
        menuBarFlagKnown_ = true;
        usageScore_.reset();
    }
    // Records read back from the settings don't carry the flag: it is read from the bundle again.
    bool menuBarFlagKnown() const { return menuBarFlagKnown_; }
    bool isPlaceholder() const { return identifier_ == "placeholder"; }

    // The bundle's own name, empty without a bundle; read from disk once.
    const std::string& asciiName() const;
    bool hasNonAsciiName() const;
    // Lowercased name; the bundle's name when the display name doesn't start with a letter or digit.
    const std::string& lowercasedName() const;
    // The first character of lowercasedName(), empty when there is none.
    const std::string& firstNameLetter() const;
    // The lowercased characters at which a key may reach this app; cached per prefix list stamp.
    const std::vector<std::string>& nameLetters(const std::vector<std::string>& optionalPrefixes,
                                                std::uint64_t prefixesStamp) const;

    // factor × use count (0 for a menu-bar app) + switch count once it is above 7. Computed at the first
    // read and kept for the record's life: later switches count from the next record of the app.
    double usageScore() const;
    // Apps with a static key sort last when keys are handed out dynamically.
    double score(bool hasStaticKey) const { return hasStaticKey ? usageScore() - 99999 : usageScore(); }

    std::string description() const { return "<LaunchableApp " + originalName_ + ">"; }

    // A pending delayed hide of this app; a launch cancels it.
    ferrow::WorkItem hider;

  private:
    std::string path_;
    std::string originalName_;
    std::string fullName_;
    std::int64_t useCount_ = 0;
    std::string identifier_;
    std::string bundleIdentifier_;
    int switchCount_ = 0;
    bool isMenuBarApp_ = false;
    bool menuBarFlagKnown_ = false;
    mutable std::optional<double> usageScore_;
    mutable std::optional<std::string> url_;
    mutable std::optional<std::string> asciiName_;
    mutable std::optional<std::string> lowercasedName_;
    mutable std::optional<std::string> firstLetter_;
    mutable std::vector<std::string> letters_;
    mutable std::uint64_t lettersStamp_ = 0;
};

using AppRef = std::shared_ptr<LaunchableApp>;

// Same application: records compare by identifier.
inline bool sameApp(const AppRef& a, const AppRef& b) {
    return a && b && a->identifier() == b->identifier();
}

}  // namespace zelk::apps
