#pragma once
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "search/MatchText.h"

namespace zelk::search {

// Positions (grapheme indexes) at which a key or a query may begin in an application's name. The
// first word always counts; a later word counts only while every word before it is an optional
// prefix ("Google Drive" answers to g and d with "google" among the prefixes). A word that starts
// with digits also anchors at its first letter after them ("1Password": 1 and p).
// `optionalPrefixes` are lowercased words.
std::vector<std::size_t> nameAnchors(const std::vector<std::string>& graphemes,
                                     const std::vector<std::string>& optionalPrefixes);

// The same over a name already segmented.
std::vector<std::size_t> nameAnchors(const MatchText& name, const std::vector<std::string>& optionalPrefixes);

// The lowercased characters at the anchors of `utf8Name`, each once, in order of first appearance.
std::vector<std::string> nameLetters(std::string_view utf8Name,
                                     const std::vector<std::string>& optionalPrefixes);

}  // namespace zelk::search
