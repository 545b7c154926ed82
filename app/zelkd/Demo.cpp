#include "Demo.h"

namespace zelk::agent {

const std::string& demoScript() {
    static const std::string text = R"YAML(
# Plain typing goes straight to the app in front.
- {at: 500, tap: h}
- {at: 520, tap: i}
# Hold right Command and press S: Safari is already in front.
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: s}
- {at: 1300, flags: []}
# Hold right Command and press M: Mail comes to the front.
- {at: 2000, flags: [rightCommand]}
- {at: 2100, tap: m}
- {at: 2300, flags: []}
# Something happens outside zelk: the user clicks Terminal, then swipes to Space 2.
- {at: 3000, activate: com.apple.Terminal}
- {at: 3500, switchSpace: {display: 1, space: 2}}
# A new app starts, and opens a second window.
- {at: 4000, launch: com.apple.iCal}
- {at: 5000, openWindow: {bundleID: com.apple.Safari, id: 1003, title: "Release notes", frame: [100, 100, 900, 700], space: 2}}
# The command line tool asks what is running.
- {at: 6000, command: {command: status}}
- {at: 7000, end: true}
)YAML";
    return text;
}

}  // namespace zelk::agent
