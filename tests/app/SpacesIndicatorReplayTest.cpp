#include "ReplayHelpers.h"

namespace zelk::testing {
namespace {

// Two displays; Safari, whose letter is s, fills Space 2 of the first in full screen.
const char* kTwoDisplays = R"(
displays:
  - id: 1
    frame: [0, 0, 1440, 900]
    spaces: [{id: 1}, {id: 2, fullscreen: true}, {id: 3}]
    currentSpace: 1
  - id: 2
    frame: [1440, 0, 1920, 1080]
    spaces: [{id: 4}, {id: 5}]
    currentSpace: 5
apps:
  - bundleID: a.safari
    name: Safari
    running:
      pid: 101
      windows:
        - {id: 11, title: "Front page", frame: [0, 25, 1000, 700], space: 1}
        - {id: 12, title: "Film", frame: [0, 0, 1440, 900], space: 2}
frontmost: a.safari
focusedWindow: 11
settings:
  showSpacesIndicator: true
  spaceMode: multi
)";

std::vector<std::string> stripLines(const std::vector<json>& events) {
    std::vector<std::string> out;
    for (auto& e : events)
        if (e["kind"] == "spaces") out.push_back(e["t"].dump() + " " + e["text"].get<std::string>());
    return out;
}

TEST(SpacesIndicatorReplay, TheStripIsTracedAtStartAndOnEachChange) {
    auto events = replay(kTwoDisplays, R"(
- {at: 1000, switchSpace: {display: 1, space: 3}}
- {at: 2000, switchSpace: {display: 2, space: 4}}
- {at: 3000, setting: {spacesIndicatorActiveOnly: true}}
- {at: 4000, setting: {showSpacesIndicator: false}}
- {at: 5000, end: true}
)");
    EXPECT_EQ(stripLines(events),
              (std::vector<std::string>{"0 [1] s 2 | 3 [4]", "1000 1 s [2] | 3 [4]", "2000 1 s [2] | [3] 4",
                                        "3000 [2] | [3]", "4000 "}));
    for (auto& e : events)
        if (e["kind"] == "spaces" && e["t"] == 0) {
            ASSERT_EQ(e["cells"].size(), 5u);
            EXPECT_EQ(e["cells"][0],
                      (json{{"text", "1"}, {"filled", true}, {"display", e["cells"][0]["display"]}}));
            EXPECT_NE(e["cells"][0]["display"], e["cells"][3]["display"]);
        }
}

TEST(SpacesIndicatorReplay, TheReadableTraceHasOneLinePerRender) {
    std::stringstream text;
    agent::ReplayOptions options;
    options.textTrace = &text;
    std::string error;
    ASSERT_EQ(agent::ReplayRunner().run(kTwoDisplays, R"(
- {at: 1000, switchSpace: {display: 1, space: 3}}
- {at: 2000, end: true}
)",
                                        options, error),
              0)
        << error;
    EXPECT_NE(text.str().find("spaces [1] s 2 | 3 [4]"), std::string::npos) << text.str();
    EXPECT_NE(text.str().find("spaces 1 s [2] | 3 [4]"), std::string::npos) << text.str();
}

}  // namespace
}  // namespace zelk::testing
