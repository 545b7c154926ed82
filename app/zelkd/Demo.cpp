#include "Demo.h"

namespace zelk::agent {

const std::string& demoScript() {
    static const std::string text = R"YAML(
# Plain typing goes straight to the app in front, without a stop in zelk.
- {at: 500, tap: h}
- {at: 520, tap: i}
# Hold right Command and press M: Mail comes to the front.
- {at: 1000, flags: [rightCommand]}
- {at: 1100, tap: m}
- {at: 1300, flags: []}
# Right Command + S: back to Safari.
- {at: 2000, flags: [rightCommand]}
- {at: 2100, tap: s}
- {at: 2300, flags: []}
# The same again while Safari is in front: the already-focused action hides it.
- {at: 3000, flags: [rightCommand]}
- {at: 3100, tap: s}
- {at: 3300, flags: []}
# A letter that reaches no app goes on to the app in front.
- {at: 4000, flags: [rightCommand]}
- {at: 4100, tap: q}
- {at: 4300, flags: []}
# Right Command + minus hides every app; pressed again it brings them back.
- {at: 5000, flags: [rightCommand]}
- {at: 5100, tap: minus}
- {at: 5300, flags: []}
- {at: 6000, flags: [rightCommand]}
- {at: 6100, tap: minus}
- {at: 6300, flags: []}
# Things happen outside zelk: a click on Terminal, a swipe to Space 2, an app starting.
- {at: 7000, activate: com.apple.Terminal}
- {at: 7500, switchSpace: {display: 1, space: 2}}
- {at: 8000, launch: com.apple.iCal}
# Right Command + V: Visual Studio Code's window is on Space 2, so zelk switches there and focuses it.
- {at: 8500, switchSpace: {display: 1, space: 1}}
- {at: 9000, flags: [rightCommand]}
- {at: 9100, tap: v}
- {at: 9300, flags: []}
# The command line tool asks how things stand, lists the Spaces and focuses Mail by name.
- {at: 10000, command: {command: status}}
- {at: 10500, command: {command: list-spaces}}
- {at: 11000, command: {command: focus-app, query: mail}}
# Typing under the trigger searches: T is Terminal's letter, and "bu" a word of one of its window
# titles, so releasing the trigger focuses that window on the other display.
- {at: 12000, flags: [rightCommand]}
- {at: 12100, tap: t}
- {at: 12150, tap: b}
- {at: 12200, tap: u}
- {at: 12400, flags: []}
# Right Command + Space keeps a search open after the trigger is up: "mu" finds Music, Return launches it.
- {at: 13000, flags: [rightCommand]}
- {at: 13100, tap: space}
- {at: 13200, flags: []}
- {at: 13300, tap: m}
- {at: 13350, tap: u}
- {at: 13500, tap: return}
# "s" lists Safari first; choosing Spotify (its fourth row) teaches the search...
- {at: 14000, command: {command: search, query: s}}
- {at: 14100, flags: [rightCommand]}
- {at: 14150, tap: space}
- {at: 14200, flags: []}
- {at: 14300, tap: s}
- {at: 14400, tap: four}
# ...so the next "s" leads with Spotify.
- {at: 15000, command: {command: search, query: s}}
# A pin is the user's own rule: "pr" pinned to Slack puts Slack before Preview, which "pr" names.
- {at: 16000, command: {command: search-pin, query: pr, appQuery: slack}}
- {at: 16100, command: {command: search, query: pr}}
# The panels. With the app panel switched on, holding right Command shows the letters after 150 ms.
- {at: 17500, setting: {showAppSwitcher: true}}
- {at: 18000, flags: [rightCommand]}
- {at: 18500, flags: []}
# Right Option shows the windows of the app in front at once, with their keys.
- {at: 19000, flags: [ralt]}
- {at: 19500, flags: []}
# The command line tool opens the window search and hides it again.
- {at: 21000, command: {command: osd, surface: window}}
- {at: 21500, command: {command: osd, surface: hide}}
# Right Command + Tab walks the windows most recently used first (a Space with one window offers the
# last other app); each Tab steps on, Shift + Tab steps back, and the release lands on the highlight.
- {at: 22000, flags: [rightCommand]}
- {at: 22100, tap: tab}
- {at: 22400, tap: tab}
- {at: 22900, flags: [rightCommand, rshift]}
- {at: 23000, tap: tab}
- {at: 23100, flags: [rightCommand]}
- {at: 23300, flags: []}
# In the cycle, right Command + left Command turns W into close: the highlighted window closes, the
# cycle stays open with the highlight on the next row and flashes "Closed".
- {at: 23400, flags: [rightCommand]}
- {at: 23500, tap: tab}
- {at: 23600, flags: [rightCommand, lcmd]}
- {at: 23700, tap: w}
- {at: 23800, flags: [rightCommand]}
- {at: 23950, flags: []}
# On an open search, left Command turns W into close: the highlighted window closes, the panel stays
# open with the highlight on the next row, and flashes "Closed". Escape ends the search.
- {at: 24000, command: {command: osd, surface: window}}
- {at: 24200, tap: downArrow}
- {at: 24400, flags: [lcmd]}
- {at: 24500, tap: w}
- {at: 24700, flags: []}
- {at: 25200, tap: escape}
# The overview: every window of every Space, grouped by app under its letter. The right arrow moves
# the selection; Escape closes it and keeps focus where it was.
- {at: 25600, command: {command: expose, mode: show}}
- {at: 26000, tap: rightArrow}
- {at: 26500, tap: escape}
# The strip of Spaces in the menu bar: the user Spaces of both displays numbered in one count, Spotify's
# full-screen Space by its letter (or a dot without one), the current Space of each display filled.
- {at: 27500, setting: {spaceMode: multi}}
- {at: 27600, setting: {showSpacesIndicator: true}}
- {at: 27800, switchSpace: {display: 1, space: 2}}
# On a busy machine an app takes a while to start: after 1.5 s a pill says it is launching, then that
# it launched.
- {at: 28000, fault: {launchLatencyMs: 2500}}
- {at: 28100, flags: [rightCommand]}
- {at: 28200, tap: space}
- {at: 28300, flags: []}
- {at: 28400, tap: s}
- {at: 28450, tap: l}
- {at: 28500, tap: a}
- {at: 28700, tap: return}
# Stages. Caps Lock + W recalls "Work", Mail and Safari's Apple page: its windows stand on Space 1, so
# in multi-Space mode the stage switches there, shows Safari again and keeps Mail in front.
- {at: 31000, setting: {stages: [
    {key: w, name: Work, items: [
      {id: 5A1E0C1D-0000-4000-8000-000000000001, windowTitle: "",
       app: {path: /System/Applications/Mail.app, originalName: Mail, identifier: com.apple.mail},
       windowSpec: {type: app}, windowPlacement: {type: semantic, position: left-half}},
      {id: 5A1E0C1D-0000-4000-8000-000000000002, windowTitle: Apple,
       app: {path: /Applications/Safari.app, originalName: Safari, identifier: com.apple.Safari},
       windowSpec: {type: browserURL, url: ""}, windowPlacement: {type: semantic, position: right-half}}]},
    {key: e, name: Editing, items: [
      {id: 5A1E0C1D-0000-4000-8000-000000000003, windowTitle: "InputManager.cpp — zelk",
       app: {path: /Applications/Visual Studio Code.app, originalName: Visual Studio Code,
             identifier: com.microsoft.VSCode},
       windowSpec: {type: app}},
      {id: 5A1E0C1D-0000-4000-8000-000000000004, windowTitle: Apple,
       app: {path: /Applications/Safari.app, originalName: Safari, identifier: com.apple.Safari},
       windowSpec: {type: browserURL, url: ""}}]}]}}
- {at: 31500, flags: [capsLock]}
- {at: 31600, tap: w}
- {at: 31800, flags: []}
# With one Space for everything, a stage whose windows stand on another Space says so in a toast:
# "Editing" has Visual Studio Code on Space 2 and Safari's page on Space 1.
- {at: 33000, setting: {spaceMode: single}}
- {at: 33100, switchSpace: {display: 1, space: 2}}
- {at: 33500, flags: [capsLock]}
- {at: 33600, tap: e}
- {at: 33800, flags: []}
- {at: 38500, end: true}
)YAML";
    return text;
}

}  // namespace zelk::agent
