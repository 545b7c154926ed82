#pragma once
#include <string_view>
#include <unordered_set>

namespace zelk::apps {

// Whether an app is of the kind whose windows are not documents worth reopening (chat, mail, music,
// utilities). `category` is the bundle's declared application category, consulted only when the
// built-in lists don't decide.
bool isLowDocumentApp(std::string_view bundleIdentifier, std::string_view category);

// The chat, mail, meeting, music and utility apps by bundle identifier: one list for every rule that
// treats an app as a whole rather than as its documents.
const std::unordered_set<std::string_view>& communicationAndUtilityApps();

}  // namespace zelk::apps
