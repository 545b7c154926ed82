#pragma once
#include <optional>
#include <string>
#include <vector>

namespace zelk::x11 {

// An application's desktop entry: how it is named, started and recognised by its windows' class.
struct DesktopEntry {
    std::string path;
    std::string id;  // the file name less ".desktop"
    std::string name;
    std::string exec;
    std::string wmClass;  // StartupWMClass, empty when not given
    std::string categories;
    bool hidden = false;  // NoDisplay or Hidden: launchable, but not listed
    // The identifier zelk knows the app by: the window class it declares, else the entry's id.
    std::string identifier() const { return wmClass.empty() ? id : wmClass; }
};

// The [Desktop Entry] group of an entry file; nothing when it isn't an application.
std::optional<DesktopEntry> parseDesktopEntry(const std::string& text, const std::string& path);
// The Exec line as arguments: quoting undone, field codes (%f, %U, ...) dropped, "%%" kept as "%".
std::vector<std::string> execArguments(const std::string& exec);
// The "applications" folders of $XDG_DATA_HOME and $XDG_DATA_DIRS, most important first.
std::vector<std::string> applicationFolders();
// Every entry in the folders; an id found twice is taken from the first folder.
std::vector<DesktopEntry> scanDesktopEntries(const std::vector<std::string>& folders);
// The entry for a window class: StartupWMClass first, then the id, case-insensitively.
const DesktopEntry* entryForClass(const std::vector<DesktopEntry>& entries, const std::string& cls,
                                  const std::string& instance);

}  // namespace zelk::x11
