#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "config/SearchSelection.h"

namespace zelk::configfile {

using LearnedSelections = std::map<std::string, SearchSelection>;

// The text of `search-cache.yaml` after its header: the learned picks under `searchQueryAppSelections`,
// keys sorted and times in whole seconds, so equal picks always give equal text.
std::string searchCacheBody(const LearnedSelections& selections);

// The learned picks of a cache file's text. Nothing, with the place, when the text doesn't parse or an
// entry isn't a learned pick; an empty file is no picks.
std::optional<LearnedSelections> decodeSearchCache(std::string_view text, std::string& error);

}  // namespace zelk::configfile
