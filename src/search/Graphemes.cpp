#include "search/Graphemes.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf16.h>

#include <memory>

namespace zelk::search {

namespace {

std::uint8_t asciiClass(unsigned char c) {
    std::uint8_t cls = 0;
    if (c >= 'a' && c <= 'z') cls |= kLetter | kLowercase;
    if (c >= 'A' && c <= 'Z') cls |= kLetter | kUppercase;
    if (c >= '0' && c <= '9') cls |= kNumber | kDigit;
    if (c == ' ' || (c >= '\t' && c <= '\r')) cls |= kWhitespace;
    return cls;
}

// Creating a break iterator loads rule data; one per thread is reused for every split.
icu::BreakIterator* characterIterator() {
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> it(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status)) it.reset();
        return it;
    }();
    return iterator.get();
}

std::string toUtf8(const icu::UnicodeString& s) {
    std::string out;
    s.toUTF8String(out);
    return out;
}

}  // namespace

bool isAscii(std::string_view text) {
    for (unsigned char c : text)
        if (c >= 0x80) return false;
    return true;
}

std::vector<std::string> splitGraphemes(std::string_view utf8) {
    std::vector<std::string> out;
    if (isAscii(utf8)) {
        // In ASCII only CR LF forms a cluster of more than one character.
        out.reserve(utf8.size());
        for (std::size_t i = 0; i < utf8.size(); ++i) {
            if (utf8[i] == '\r' && i + 1 < utf8.size() && utf8[i + 1] == '\n') {
                out.emplace_back("\r\n");
                ++i;
            } else {
                out.emplace_back(1, utf8[i]);
            }
        }
        return out;
    }
    icu::UnicodeString text =
        icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<std::int32_t>(utf8.size())));
    icu::BreakIterator* it = characterIterator();
    if (!it) {
        // Without break data, fall back to one character per code point.
        for (std::int32_t i = 0; i < text.length();) {
            std::int32_t next = text.moveIndex32(i, 1);
            out.push_back(toUtf8(text.tempSubStringBetween(i, next)));
            i = next;
        }
        return out;
    }
    it->setText(text);
    std::int32_t start = it->first();
    for (std::int32_t end = it->next(); end != icu::BreakIterator::DONE; start = end, end = it->next())
        out.push_back(toUtf8(text.tempSubStringBetween(start, end)));
    return out;
}

std::string lowercased(std::string_view utf8) {
    if (isAscii(utf8)) {
        std::string out(utf8);
        for (char& c : out)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        return out;
    }
    icu::UnicodeString text =
        icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<std::int32_t>(utf8.size())));
    text.toLower(icu::Locale::getRoot());
    return toUtf8(text);
}

std::uint8_t charClass(std::string_view grapheme) {
    if (grapheme.empty()) return 0;
    auto first = static_cast<unsigned char>(grapheme[0]);
    if (first < 0x80) return asciiClass(first);
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(
        icu::StringPiece(grapheme.data(), static_cast<std::int32_t>(grapheme.size())));
    UChar32 c = text.char32At(0);
    std::uint8_t cls = 0;
    if (u_hasBinaryProperty(c, UCHAR_ALPHABETIC)) cls |= kLetter;
    if (u_getIntPropertyValue(c, UCHAR_NUMERIC_TYPE) != U_NT_NONE) cls |= kNumber;
    if (u_hasBinaryProperty(c, UCHAR_UPPERCASE)) cls |= kUppercase;
    if (u_hasBinaryProperty(c, UCHAR_LOWERCASE)) cls |= kLowercase;
    if (u_isUWhiteSpace(c)) cls |= kWhitespace;
    if (u_isdigit(c)) cls |= kDigit;
    return cls;
}

}  // namespace zelk::search
