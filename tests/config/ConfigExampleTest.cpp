#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "config/ConfigSchema.h"
#include "config/SettingsCatalogue.h"
#include "config/SettingsFixture.h"
#include "platform/SettingsStore.h"

namespace zelk::testing {
namespace {

// The commented example in docs/settings.md, between its markers.
std::string exampleConfig() {
    std::ifstream in(std::filesystem::path(ZELK_SOURCE_DIR) / "docs" / "settings.md");
    std::stringstream s;
    s << in.rdbuf();
    const std::string doc = s.str();
    auto begin = doc.find("<!-- example-config-begin -->\n```yaml\n");
    auto end = doc.find("```\n<!-- example-config-end -->");
    if (begin == std::string::npos || end == std::string::npos) return {};
    begin += std::string("<!-- example-config-begin -->\n```yaml\n").size();
    return doc.substr(begin, end - begin);
}

class ConfigExampleTest : public SettingsTestBase {};

TEST_F(ConfigExampleTest, TheDocumentedExampleReadsCleanlyAndSaysWhatItsCommentsSay) {
    const std::string example = exampleConfig();
    ASSERT_FALSE(example.empty());
    platform::MemorySettingsStore store;
    Settings settings(store);
    configfile::ConfigApps apps;
    apps.appURLForBundle = [](const std::string& bundle) -> std::optional<std::string> {
        if (bundle == "com.apple.Safari") return "/Applications/Safari.app";
        return std::nullopt;
    };
    std::string error;
    auto update = configfile::decodeConfig(example, settings, error, apps);
    ASSERT_TRUE(update) << error;
    EXPECT_TRUE(update->notes.empty()) << update->notes.front();
    configfile::applyConfig(settings, *update);

    EXPECT_EQ(settings.get(keys::appSort), AppSort::score);
    EXPECT_EQ(settings.get(keys::activationMode), ActivationMode::onPress);
    EXPECT_EQ(settings.get(keys::osdLook), OSDLook::preset(WindowSwitcherAppearance::compact));
    EXPECT_EQ(settings.get(keys::stages)[0]["name"], "Writing");
    EXPECT_EQ(settings.get(keys::appKeyAssignments).size(), 2u);
    EXPECT_EQ(settings.get(keys::searchQueryPins).at("te"), "com.apple.Terminal");
    EXPECT_EQ(settings.get(keys::pauseApps), (StringSet{"com.example.Game"}));
    EXPECT_EQ(settings.get(keys::windowKeyAssignments)[0]["appURL"], "file:///Applications/Safari.app");
    EXPECT_EQ(settings.get(keys::searchOptionalPrefixes),
              (std::vector<std::string>{"google", "microsoft", "the", "4k"}));
    // Empty pattern lists leave the shipped pattern groups alone.
    EXPECT_EQ(settings.get(keys::windowPatternGroups), defaultWindowPatternGroups());
}

}  // namespace
}  // namespace zelk::testing
