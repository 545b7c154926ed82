#include "platform/sim/WorldFile.h"

namespace zelk::sim {

const std::string& defaultWorldYaml() {
    static const std::string text = R"YAML(
permissions: {accessibility: true, screenRecording: true}
keyboardLayout: qwerty
displays:
  - id: 1
    name: "Built-in Retina Display"
    frame: [0, 0, 1440, 900]
    menuBarHeight: 25
    spaces: [{id: 1}, {id: 2}, {id: 3}]
    currentSpace: 1
  - id: 2
    name: "DELL U2720Q"
    frame: [1440, 0, 2560, 1440]
    menuBarHeight: 25
    spaces: [{id: 11}, {id: 12, fullscreen: true}]
    currentSpace: 11
apps:
  - bundleID: com.apple.Safari
    name: Safari
    path: /Applications/Safari.app
    launchDelayMs: 300
    running:
      pid: 101
      windows:
        - {id: 1001, title: "Apple", frame: [0, 25, 1200, 800], space: 1}
        - {id: 1002, title: "Éclair recipes — Wikipedia", frame: [80, 60, 1200, 800], space: 2}
  - bundleID: com.apple.mail
    name: Mail
    path: /System/Applications/Mail.app
    running:
      pid: 102
      windows:
        - {id: 1011, title: "Inbox — 3 messages", frame: [40, 40, 1300, 820], space: 1}
  - bundleID: com.apple.Terminal
    name: Terminal
    path: /System/Applications/Utilities/Terminal.app
    running:
      pid: 103
      windows:
        - {id: 1021, title: "zelk — -zsh — 120×40", frame: [1500, 60, 1100, 700], space: 11}
        - {id: 1022, title: "build — ninja — 120×40", frame: [1600, 120, 1100, 700], space: 11}
  - bundleID: com.microsoft.VSCode
    name: Visual Studio Code
    path: /Applications/Visual Studio Code.app
    launchDelayMs: 900
    running:
      pid: 104
      windows:
        - {id: 1031, title: "InputManager.cpp — zelk", frame: [0, 25, 1440, 875], space: 2}
  - bundleID: com.apple.finder
    name: Finder
    path: /System/Library/CoreServices/Finder.app
    running:
      pid: 105
      windows:
        - {id: 1041, title: "Downloads", frame: [200, 200, 900, 500], space: 1}
  - bundleID: com.apple.Notes
    name: Notes
    path: /System/Applications/Notes.app
    running:
      pid: 106
      hidden: true
      windows:
        - {id: 1051, title: "Groceries", frame: [300, 100, 800, 600], space: 3}
  - bundleID: com.spotify.client
    name: Spotify
    path: /Applications/Spotify.app
    launchDelayMs: 1200
    running:
      pid: 107
      windows:
        - {id: 1061, title: "Spotify Premium", frame: [1440, 25, 2560, 1415], space: 12}
  - bundleID: com.apple.iCal
    name: Calendar
    path: /System/Applications/Calendar.app
  - bundleID: com.apple.Music
    name: Music
    path: /System/Applications/Music.app
  - bundleID: com.apple.Preview
    name: Preview
    path: /System/Applications/Preview.app
  - bundleID: com.tinyspeck.slackmacgap
    name: Slack
    path: /Applications/Slack.app
    launchDelayMs: 1500
  - bundleID: com.googlecode.iterm2
    name: iTerm2
    path: /Applications/iTerm.app
  - bundleID: com.1password.1password
    name: 1Password
    path: /Applications/1Password.app
  - bundleID: com.apple.systempreferences
    name: System Settings
    path: /System/Applications/System Settings.app
  - bundleID: com.example.clipboard
    name: Clipboard Helper
    path: /Applications/Clipboard Helper.app
    kind: accessory
    running: {pid: 120}
frontmost: com.apple.Safari
focusedWindow: 1001
)YAML";
    return text;
}

}  // namespace zelk::sim
