#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "windows/AppWindow.h"

namespace zelk::windows {

// The rows of one window key while the user walks through them with repeated presses, last shown
// first (`reorderedAppWindows` with its key). The walk keeps its own order, so a quick second press
// goes on to the next window even before the focus change has reached the rows' focused flags.
class WindowKeyWalk {
  public:
    // The window a press of `key` goes to, given the key's rows now (in id order). A new key, or a
    // key whose windows changed, starts a walk at the window after the focused one (else the first).
    std::optional<std::uint32_t> next(const std::string& key, const std::vector<AppWindow>& rows);
    // The hold ended: the next press starts a new walk.
    void reset();

    const std::optional<std::string>& key() const { return key_; }
    const std::vector<AppWindow>& rows() const { return rows_; }

  private:
    std::optional<std::string> key_;
    std::vector<AppWindow> rows_;
};

}  // namespace zelk::windows
