#pragma once
#include <cstdint>
#include <optional>
#include <vector>

namespace zelk::spaces {

// The fields of a dock-swipe event that its gesture record carries.
struct GestureFields {
    std::int64_t phase = 0;     // 132
    std::int64_t motion = 0;    // 123
    double progress = 0;        // 124
    double progressCopy = 0;    // 125
    double field126 = 0;        // 126
    double velocity = 0;        // 129
    double velocityAcross = 0;  // 130
    std::int64_t field115 = 0;  // 115
    std::uint64_t timestamp = 0;
};

// v × 65536 truncated to 32 bits; a non-zero v never reads as nothing (±1 instead of 0).
std::int32_t fixedPoint(double v);

// Rewrites an event's binary form: the opening 4 bytes and every record but the old gesture records
// (tag 4205) are kept, and a new gesture record made from `fields` is appended. Nullopt under 4 bytes.
std::optional<std::vector<std::uint8_t>> rewriteGestureData(const std::vector<std::uint8_t>& data,
                                                            const GestureFields& fields);

}  // namespace zelk::spaces
