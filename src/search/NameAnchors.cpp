#include "search/NameAnchors.h"

#include <algorithm>

#include "search/Graphemes.h"

namespace zelk::search {

namespace {

std::vector<std::size_t> anchorsOf(const std::vector<std::string>& graphemes,
                                   std::span<const std::uint8_t> classes,
                                   const std::vector<std::string>& optionalPrefixes) {
    std::vector<std::size_t> anchors;
    const std::size_t n = graphemes.size();
    std::size_t i = 0;
    while (i < n) {
        while (i < n && (classes[i] & kWhitespace))
            ++i;
        if (i == n) break;
        const std::size_t start = i;
        while (i < n && !(classes[i] & kWhitespace))
            ++i;
        const std::size_t end = i;

        anchors.push_back(start);
        if (classes[start] & kDigit) {
            std::size_t k = start;
            while (k < end && (classes[k] & kDigit))
                ++k;
            if (k < end && (classes[k] & kLetter)) anchors.push_back(k);
        }

        std::string word;
        for (std::size_t k = start; k < end; ++k)
            word += graphemes[k];
        word = lowercased(word);
        if (std::find(optionalPrefixes.begin(), optionalPrefixes.end(), word) == optionalPrefixes.end())
            break;
    }
    return anchors;
}

}  // namespace

std::vector<std::size_t> nameAnchors(const std::vector<std::string>& graphemes,
                                     const std::vector<std::string>& optionalPrefixes) {
    std::vector<std::uint8_t> classes;
    classes.reserve(graphemes.size());
    for (const std::string& g : graphemes)
        classes.push_back(charClass(g));
    return anchorsOf(graphemes, classes, optionalPrefixes);
}

std::vector<std::size_t> nameAnchors(const MatchText& name,
                                     const std::vector<std::string>& optionalPrefixes) {
    return anchorsOf(name.characters(), name.classes(), optionalPrefixes);
}

std::vector<std::string> nameLetters(std::string_view utf8Name,
                                     const std::vector<std::string>& optionalPrefixes) {
    const std::vector<std::string> graphemes = splitGraphemes(utf8Name);
    std::vector<std::string> letters;
    for (std::size_t anchor : nameAnchors(graphemes, optionalPrefixes)) {
        std::string letter = lowercased(graphemes[anchor]);
        if (std::find(letters.begin(), letters.end(), letter) == letters.end())
            letters.push_back(std::move(letter));
    }
    return letters;
}

}  // namespace zelk::search
