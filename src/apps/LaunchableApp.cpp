#include "apps/LaunchableApp.h"

#include <cctype>
#include <regex>

#include "apps/AppScoreFactors.h"
#include "platform/Platform.h"
#include "search/Graphemes.h"
#include "search/NameAnchors.h"
#include "support/Format.h"

namespace zelk::apps {

namespace {
std::string trimmed(std::string_view text) {
    auto blank = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
    };
    while (!text.empty() && blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    return std::string(text);
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::string percentEncodedPath(std::string_view path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        bool plain = std::isalnum(c) || c == '/' || c == '-' || c == '.' || c == '_' || c == '~';
        if (plain) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

bool isAlphanumeric(std::string_view character) {
    return character.size() == 1 && ferrow::ALPHANUMERICS.find(character[0]) != std::string_view::npos;
}

std::string firstCharacter(std::string_view text) {
    if (text.empty()) return {};
    // Most names start with ASCII; ICU only for the rest.
    if (static_cast<unsigned char>(text[0]) < 0x80) return std::string(1, text[0]);
    auto graphemes = search::splitGraphemes(text);
    return graphemes.empty() ? std::string() : graphemes.front();
}

std::string lowered(std::string_view text) {
    return search::isAscii(text) ? ferrow::toLowerAscii(text) : search::lowercased(text);
}
}  // namespace

std::string normalizedAppName(std::string_view raw) {
    std::string name(raw);
    if (auto at = name.find(".app"); at != std::string::npos) name.erase(at, 4);
    if (startsWith(name, "Google "))
        name.erase(0, 6);
    else if (startsWith(name, "Adobe "))
        name.erase(0, 5);
    else if (startsWith(name, "Microsoft "))
        name.erase(0, 9);
    return trimmed(name);
}

std::string bundleIdentifierOf(std::string_view identifier) {
    if (identifier.find(':') == std::string_view::npos) return std::string(identifier);
    static const std::regex kPattern("/([^:]+):(\\d+)/");
    std::match_results<std::string_view::const_iterator> m;
    if (std::regex_search(identifier.begin(), identifier.end(), m, kPattern)) return m[1].str();
    return std::string(identifier);
}

LaunchableApp::LaunchableApp(std::string path, std::string rawName, std::int64_t useCount,
                             std::string identifier, int switchCount)
    : path_(std::move(path)),
      useCount_(useCount),
      identifier_(std::move(identifier)),
      bundleIdentifier_(bundleIdentifierOf(identifier_)),
      switchCount_(switchCount) {
    setName(rawName);
}

void LaunchableApp::setName(std::string_view raw) {
    std::string withoutSuffix(raw);
    if (auto at = withoutSuffix.find(".app"); at != std::string::npos) withoutSuffix.erase(at, 4);
    fullName_ = trimmed(withoutSuffix);
    originalName_ = normalizedAppName(raw);
    lowercasedName_.reset();
    firstLetter_.reset();
    lettersStamp_ = 0;
}

const std::string& LaunchableApp::url() const {
    if (!url_) url_ = "file://" + percentEncodedPath(path_);
    return *url_;
}

std::shared_ptr<LaunchableApp> LaunchableApp::fromJson(const nlohmann::json& json) {
    if (!json.is_object()) return nullptr;
    auto text = [&](const char* key) -> std::string {
        auto it = json.find(key);
        return it != json.end() && it->is_string() ? it->get<std::string>() : std::string();
    };
    auto integer = [&](const char* key) -> std::int64_t {
        auto it = json.find(key);
        return it != json.end() && it->is_number() ? it->get<std::int64_t>() : 0;
    };
    std::string path = text("path");
    // Records written on the data volume read back under the folder the user knows.
    constexpr std::string_view kDataVolume = "/System/Volumes/Data";
    if (startsWith(path, "/System/Volumes/Data/Applications")) path.erase(0, kDataVolume.size());
    std::string identifier = text("identifier");
    if (path.empty() && identifier.empty()) return nullptr;
    std::string name = json.contains("originalName") ? text("originalName") : text("name");
    std::string full = text("fullName");
    auto app = std::make_shared<LaunchableApp>(path, full.empty() ? name : full, integer("useCount"),
                                               identifier, static_cast<int>(integer("switchCount")));
    if (!full.empty()) app->originalName_ = normalizedAppName(name);
    return app;
}

nlohmann::json LaunchableApp::toJson() const {
    nlohmann::json j{{"path", path_},         {"originalName", originalName_}, {"url", url()},
                     {"useCount", useCount_}, {"identifier", identifier_},     {"switchCount", switchCount_}};
    if (fullName_ != originalName_) j["fullName"] = fullName_;
    return j;
}

std::shared_ptr<LaunchableApp> LaunchableApp::placeholder() {
    return std::make_shared<LaunchableApp>("/", "", 0, "placeholder");
}

const std::string& LaunchableApp::asciiName() const {
    if (!asciiName_) {
        asciiName_ = std::string();
        auto* ws = platform::Platform::installed() ? platform::Platform::current().workspace : nullptr;
        if (ws && !path_.empty())
            if (auto info = ws->bundleInfo(path_)) asciiName_ = info->bundleName;
    }
    return *asciiName_;
}

bool LaunchableApp::hasNonAsciiName() const {
    return originalName_.empty() || !isAlphanumeric(lowered(firstCharacter(originalName_)));
}

const std::string& LaunchableApp::lowercasedName() const {
    if (!lowercasedName_) {
        std::string name = lowered(originalName_);
        if (!isAlphanumeric(firstCharacter(name)) && !asciiName().empty()) name = lowered(asciiName());
        lowercasedName_ = std::move(name);
    }
    return *lowercasedName_;
}

const std::string& LaunchableApp::firstNameLetter() const {
    if (!firstLetter_) firstLetter_ = firstCharacter(lowercasedName());
    return *firstLetter_;
}

const std::vector<std::string>& LaunchableApp::nameLetters(const std::vector<std::string>& optionalPrefixes,
                                                           std::uint64_t prefixesStamp) const {
    if (lettersStamp_ != prefixesStamp || prefixesStamp == 0) {
        letters_ = search::nameLetters(fullName_, optionalPrefixes);
        lettersStamp_ = prefixesStamp;
    }
    return letters_;
}

double LaunchableApp::usageScore() const {
    if (usageScore_) return *usageScore_;
    double factor = appScoreFactor(bundleIdentifier_);
    double uses = isMenuBarApp_ ? 0.0 : static_cast<double>(useCount_);
    double switches = switchCount_ > 7 ? switchCount_ : 0;
    usageScore_ = factor * uses + switches;
    return *usageScore_;
}

}  // namespace zelk::apps
