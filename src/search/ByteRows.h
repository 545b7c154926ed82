#pragma once
// The alignment of a lower-cased query against an indexed title, a byte row at a time: inline, so
// that a caller scoring every title of a list keeps its constants in registers.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "search/FuzzyScore.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zelk::search {

// The largest row value whose next row still fits a byte (a match adds less than 24).
inline constexpr unsigned kMaxByteRowValue = 255 - 24;
// A row whose values are all at most this fades out in one row: the row below it is zero where it has
// no match.
inline constexpr unsigned kFadingRowValue = 3;
// The positions one byte row takes, rounded up to its blocks of 16.
inline std::size_t byteRowVectors(std::size_t length) {
    return (length + 15) / 16;
}

// Each byte value's bits spread over eight bytes (0xFF for a set bit), to turn 8 positions of a bit
// set into a byte mask.
inline constexpr std::array<std::uint64_t, 256> kByteMasks = [] {
    std::array<std::uint64_t, 256> masks{};
    for (unsigned v = 0; v < 256; ++v)
        for (unsigned b = 0; b < 8; ++b)
            if (v & (1u << b)) masks[v] |= std::uint64_t{0xFF} << (8 * b);
    return masks;
}();

// One row of the alignment table of a lower-cased query against a text indexed as a candidate list
// indexes it, as bytes (one per text position, in `vectors` blocks of 16): the row of a query
// character from the row above it. `hitBase` holds each position's match score before the run bonus
// (position, boundary and case bonuses); `positions` the text's positions holding the row's
// character and `previous` those holding the character before it (noPositions() for the first row),
// 64 to a word. Bytes saturate, so the caller stops using rows once a row's best passes
// kMaxByteRowValue and scores that text whole. Answers the row's best value.
//
// Per block of 16 positions: the diagonal and upper terms from the row above, then the running
// maximum from the left, max over d of a[j - d] - 3d, in four doubling steps (the block before
// contributes through its last byte). Saturating bytes give the max with 0 for free.
inline unsigned alignByteRow(const std::uint8_t* hitBase, const std::uint64_t* positions,
                             const std::uint64_t* previous, std::size_t vectors, const std::uint8_t* above,
                             std::uint8_t* row) {
    std::uint64_t matchWord = 0, runWord = 0;
#if defined(__SSE2__)
    const __m128i gap = _mm_set1_epi8(kGapCost), gap2 = _mm_set1_epi8(2 * kGapCost),
                  gap4 = _mm_set1_epi8(4 * kGapCost), gap8 = _mm_set1_epi8(8 * kGapCost),
                  mismatch = _mm_set1_epi8(-kMismatchScore), run = _mm_set1_epi8(kRunBonus);
    __m128i aboveBefore = _mm_setzero_si128(), before = _mm_setzero_si128(), best = _mm_setzero_si128();
    for (std::size_t v = 0; v < vectors; ++v) {
        if (v % 4 == 0) {
            const std::size_t w = v / 4;
            matchWord = positions[w];
            runWord = matchWord & (previous[w] << 1 | (w > 0 ? previous[w - 1] >> 63 : 0));
        }
        const unsigned shift = 16 * (v % 4);
        const unsigned m = (matchWord >> shift) & 0xFFFF, r = (runWord >> shift) & 0xFFFF;
        const __m128i match = _mm_set_epi64x(static_cast<long long>(kByteMasks[m >> 8]),
                                             static_cast<long long>(kByteMasks[m & 0xFF]));
        const __m128i runs = _mm_set_epi64x(static_cast<long long>(kByteMasks[r >> 8]),
                                            static_cast<long long>(kByteMasks[r & 0xFF]));
        const __m128i up = _mm_loadu_si128(reinterpret_cast<const __m128i*>(above + 16 * v));
        // A block with no match, nothing above it and nothing reaching in from the left stays zero
        // (most blocks of a title away from its matches).
        if (m == 0 && _mm_movemask_epi8(_mm_cmpeq_epi8(up, _mm_setzero_si128())) == 0xFFFF &&
            (_mm_extract_epi16(before, 7) >> 8) <= kGapCost &&
            (_mm_extract_epi16(aboveBefore, 7) >> 8) <= -kMismatchScore) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 16 * v), _mm_setzero_si128());
            aboveBefore = up;
            before = _mm_setzero_si128();
            continue;
        }
        const __m128i diagonal = _mm_or_si128(_mm_slli_si128(up, 1), _mm_srli_si128(aboveBefore, 15));
        aboveBefore = up;
        const __m128i hit = _mm_adds_epu8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(hitBase + 16 * v)),
                                          _mm_and_si128(runs, run));
        const __m128i fromDiagonal = _mm_or_si128(_mm_and_si128(match, _mm_adds_epu8(diagonal, hit)),
                                                  _mm_andnot_si128(match, _mm_subs_epu8(diagonal, mismatch)));
        __m128i a = _mm_max_epu8(fromDiagonal, _mm_subs_epu8(up, gap));
        a = _mm_max_epu8(a, _mm_subs_epu8(_mm_srli_si128(before, 15), gap));
        a = _mm_max_epu8(a, _mm_subs_epu8(_mm_slli_si128(a, 1), gap));
        a = _mm_max_epu8(a, _mm_subs_epu8(_mm_slli_si128(a, 2), gap2));
        a = _mm_max_epu8(a, _mm_subs_epu8(_mm_slli_si128(a, 4), gap4));
        a = _mm_max_epu8(a, _mm_subs_epu8(_mm_slli_si128(a, 8), gap8));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 16 * v), a);
        before = a;
        best = _mm_max_epu8(best, a);
    }
    best = _mm_max_epu8(best, _mm_srli_si128(best, 8));
    best = _mm_max_epu8(best, _mm_srli_si128(best, 4));
    best = _mm_max_epu8(best, _mm_srli_si128(best, 2));
    best = _mm_max_epu8(best, _mm_srli_si128(best, 1));
    return static_cast<unsigned>(_mm_cvtsi128_si32(best)) & 0xFF;
#else
    const auto sat = [](int v) { return std::clamp(v, 0, 255); };
    unsigned best = 0;
    int left = 0;
    for (std::size_t j = 0; j < 16 * vectors; ++j) {
        if (j % 64 == 0) {
            const std::size_t w = j / 64;
            matchWord = positions[w];
            runWord = matchWord & (previous[w] << 1 | (w > 0 ? previous[w - 1] >> 63 : 0));
        }
        const bool match = (matchWord >> (j % 64)) & 1, isRun = (runWord >> (j % 64)) & 1;
        const int diagonal = j > 0 ? above[j - 1] : 0;
        const int fromDiagonal = match ? sat(diagonal + sat(hitBase[j] + (isRun ? kRunBonus : 0)))
                                       : sat(diagonal + kMismatchScore);
        const int a = std::max({fromDiagonal, sat(above[j] - kGapCost), sat(left - kGapCost)});
        row[j] = static_cast<std::uint8_t>(a);
        left = a;
        best = std::max(best, static_cast<unsigned>(a));
    }
    return best;
#endif
}

}  // namespace zelk::search
