#include <gtest/gtest.h>

#include "search/Graphemes.h"
#include "search/NameAnchors.h"

using namespace zelk::search;

namespace {
using Strings = std::vector<std::string>;
using Indexes = std::vector<std::size_t>;
const Strings kPrefixes = {"google",      "microsoft", "adobe",     "apple",  "amazon",   "affinity",
                           "jetbrains",   "nvidia",    "parallels", "elgato", "logitech", "synology",
                           "wondershare", "the",       "4k",        "8k",     "3d"};
}  // namespace

TEST(Graphemes, SplitsIntoUserPerceivedCharacters) {
    EXPECT_EQ(splitGraphemes("abc"), (Strings{"a", "b", "c"}));
    EXPECT_EQ(splitGraphemes("a\r\nb"), (Strings{"a", "\r\n", "b"}));
    // e + combining acute, a flag, a family emoji: one character each.
    EXPECT_EQ(splitGraphemes("e\xCC\x81x"), (Strings{"e\xCC\x81", "x"}));
    EXPECT_EQ(splitGraphemes("\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7!").size(), 2u);
    EXPECT_EQ(
        splitGraphemes("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7").size(),
        1u);
    EXPECT_TRUE(splitGraphemes("").empty());
}

TEST(Graphemes, IllFormedBytesBecomeReplacementCharacters) {
    const Strings split = splitGraphemes(std::string("a\xC3(b\xFF", 5));
    ASSERT_EQ(split.size(), 5u);
    EXPECT_EQ(split[0], "a");
    EXPECT_EQ(split[1], "\xEF\xBF\xBD");
    EXPECT_EQ(split[2], "(");
    EXPECT_EQ(split[4], "\xEF\xBF\xBD");
    EXPECT_EQ(lowercased(std::string("A\xC3", 2)), "a\xEF\xBF\xBD");
}

TEST(Graphemes, LowercaseAndClassesFollowUnicode) {
    EXPECT_EQ(lowercased("ÉCOLE Straße"), "école straße");
    EXPECT_EQ(lowercased("ΣΟΦΙΑ"), "σοφια");
    EXPECT_EQ(charClass("A"), kLetter | kUppercase);
    EXPECT_EQ(charClass("é"), kLetter | kLowercase);
    EXPECT_EQ(charClass("7"), kNumber | kDigit);
    EXPECT_EQ(charClass("½"), kNumber);
    EXPECT_EQ(charClass("中"), kLetter);
    EXPECT_EQ(charClass("\xE3\x80\x80"), kWhitespace);  // ideographic space
    EXPECT_EQ(charClass("—"), 0);
    EXPECT_EQ(charClass("-"), 0);
}

TEST(NameAnchors, FirstWordAlwaysLaterWordsOnlyAfterOptionalPrefixes) {
    EXPECT_EQ(nameAnchors(splitGraphemes("Visual Studio Code"), kPrefixes), (Indexes{0}));
    EXPECT_EQ(nameAnchors(splitGraphemes("Google Drive"), kPrefixes), (Indexes{0, 7}));
    EXPECT_EQ(nameAnchors(splitGraphemes("Microsoft Word"), kPrefixes), (Indexes{0, 10}));
    // Prefixes chain: every word before must be optional.
    EXPECT_EQ(nameAnchors(splitGraphemes("The Google Earth Pro"), kPrefixes), (Indexes{0, 4, 11}));
    // Case of the prefix word doesn't matter; runs of whitespace are one separator.
    EXPECT_EQ(nameAnchors(splitGraphemes("  ADOBE \t Photoshop"), kPrefixes), (Indexes{2, 10}));
    EXPECT_EQ(nameAnchors(splitGraphemes("Google Drive"), {}), (Indexes{0}));
    EXPECT_TRUE(nameAnchors(splitGraphemes("   "), kPrefixes).empty());
    EXPECT_TRUE(nameAnchors(Strings{}, kPrefixes).empty());
}

TEST(NameAnchors, LeadingDigitsAlsoAnchorTheFirstLetter) {
    EXPECT_EQ(nameAnchors(splitGraphemes("1Password"), kPrefixes), (Indexes{0, 1}));
    EXPECT_EQ(nameAnchors(splitGraphemes("4K Video Downloader"), kPrefixes), (Indexes{0, 1, 3}));
    EXPECT_EQ(nameAnchors(splitGraphemes("123 Go"), {}), (Indexes{0}));        // all digits: no letter
    EXPECT_EQ(nameAnchors(splitGraphemes("3-D Tool"), {}), (Indexes{0}));      // a symbol comes first
    EXPECT_EQ(nameAnchors(splitGraphemes("Xcode15 Beta"), {}), (Indexes{0}));  // digits later don't count
}

TEST(NameAnchors, LettersAreLowercasedUniqueInOrder) {
    EXPECT_EQ(nameLetters("1Password", kPrefixes), (Strings{"1", "p"}));
    EXPECT_EQ(nameLetters("4K Video Downloader", kPrefixes), (Strings{"4", "k", "v"}));
    EXPECT_EQ(nameLetters("Google Gmail", kPrefixes), (Strings{"g"}));
    EXPECT_EQ(nameLetters("Éditeur", kPrefixes), (Strings{"é"}));
    EXPECT_EQ(nameLetters("Apple Ümlaut", kPrefixes), (Strings{"a", "ü"}));
    EXPECT_EQ(nameLetters("", kPrefixes), (Strings{}));
    // Decomposed É stays one character and lowercases whole.
    EXPECT_EQ(nameLetters("E\xCC\x81tude", kPrefixes), (Strings{"e\xCC\x81"}));
}
