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

// Whether the text is well-formed UTF-8 of code points below U+0300 and whose multi-byte characters
// lie within [U+0080, `below`). Below U+0300 no character joins the one before it (combining marks
// start there) and only CR LF forms a cluster, so each code point is a character.
bool isSmallLatin(std::string_view text, unsigned below) {
    const unsigned lastLead = 0xC0 + ((below - 1) >> 6);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c < 0x80) continue;
        if (c < 0xC2 || c > lastLead || i + 1 == text.size()) return false;
        const auto next = static_cast<unsigned char>(text[++i]);
        if ((next & 0xC0) != 0x80) return false;
    }
    return true;
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
    if (isSmallLatin(utf8, 0x300)) {
        out.reserve(utf8.size());
        for (std::size_t i = 0; i < utf8.size(); ++i) {
            const auto c = static_cast<unsigned char>(utf8[i]);
            if (c >= 0x80) {
                out.emplace_back(utf8.substr(i, 2));
                ++i;
            } else if (c == '\r' && i + 1 < utf8.size() && utf8[i + 1] == '\n') {
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
    if (isSmallLatin(utf8, 0x100)) {
        // Latin-1: the capitals U+00C0 to U+00DE (but the multiplication sign) lower by 0x20; the
        // other characters are their own lower case.
        std::string out(utf8);
        for (std::size_t i = 0; i < out.size(); ++i) {
            const auto c = static_cast<unsigned char>(out[i]);
            if (c >= 'A' && c <= 'Z') out[i] = static_cast<char>(c - 'A' + 'a');
            if (c == 0xC3) {
                const auto next = static_cast<unsigned char>(out[i + 1]);
                if (next >= 0x80 && next <= 0x9E && next != 0x97) out[i + 1] = static_cast<char>(next + 0x20);
                ++i;
            } else if (c >= 0x80) {
                ++i;
            }
        }
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
