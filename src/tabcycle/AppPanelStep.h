#pragma once
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "input/OSDModel.h"

namespace zelk::tabcycle {

// A row of the application panel as the app cycle names it: "app-" plus the bundle identifier for an
// app row, "win-" plus the window number for a window row.
std::string appPanelRowID(const osd::OSDRow& row);

// The ids of the panel's rows in the order it shows them.
std::vector<std::string> appPanelRowIDs(const std::vector<osd::OSDSection>& sections);

// Where one step of the app cycle lands: the row after (before, with `reverse`) the selection,
// wrapping. With no selection, or one that left the panel, the step starts at the focused window's
// row, else the focused app's row; when neither has a row the first step takes the first row (the
// last going back), as if the focus stood just before the list. None with no rows.
std::optional<std::size_t> nextAppPanelRow(const std::vector<std::string>& ids,
                                           const std::optional<std::string>& selected,
                                           const std::vector<std::string>& focusedRows, bool reverse);

}  // namespace zelk::tabcycle
