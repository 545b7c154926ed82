#pragma once
#include <string_view>

namespace zelk::apps {

// Whether an app is of the kind whose windows are not documents worth reopening (chat, mail, music,
// utilities). `category` is the bundle's declared application category, consulted only when the
// built-in lists don't decide.
bool isLowDocumentApp(std::string_view bundleIdentifier, std::string_view category);

}  // namespace zelk::apps
