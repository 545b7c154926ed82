#include "spaces/GestureRecord.h"

#include <cmath>

namespace zelk::spaces {

namespace {
constexpr int kGestureTag = 4205;

void le(std::vector<std::uint8_t>& out, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<std::uint8_t>((v >> (8 * i)) & 0xFF));
}
void le32(std::vector<std::uint8_t>& out, std::int64_t v) {
    le(out, static_cast<std::uint64_t>(static_cast<std::uint32_t>(v)), 4);
}
}  // namespace

std::int32_t fixedPoint(double v) {
    auto product = static_cast<std::int64_t>(v * 65536.0);  // truncation toward zero
    auto fixed = static_cast<std::int32_t>(static_cast<std::uint32_t>(product));
    if (fixed == 0 && v != 0) return v > 0 ? 1 : -1;
    return fixed;
}

std::optional<std::vector<std::uint8_t>> rewriteGestureData(const std::vector<std::uint8_t>& data,
                                                            const GestureFields& f) {
    if (data.size() < 4) return std::nullopt;
    std::vector<std::uint8_t> out(data.begin(), data.begin() + 4);
    std::size_t at = 4;
    while (data.size() - at >= 8) {
        std::size_t n = (std::size_t(data[at]) << 8) | data[at + 1];
        int kind = data[at + 2] >> 6;
        int tag = ((data[at + 2] & 0x3F) << 8) | data[at + 3];
        std::size_t size = kind == 0 ? (n == 1 ? 8 : (n + 3) / 4 * 4) : kind == 2 ? 0 : n * 4;
        std::size_t end = at + 4 + size;
        if (end > data.size()) break;
        if (tag != kGestureTag)
            out.insert(out.end(), data.begin() + static_cast<long>(at),
                       data.begin() + static_cast<long>(end));
        at = end;
    }
    bool hasTail = f.phase == 4 || f.velocity != 0 || f.velocityAcross != 0;
    out.push_back(0x00);
    out.push_back(hasTail ? 0x60 : 0x44);
    out.push_back(0x10);
    out.push_back(0x6D);
    le(out, f.timestamp, 8);
    le(out, 0x0000000100003416ULL, 8);
    le32(out, 0);
    le32(out, 0);
    le32(out, hasTail ? 2 : 1);
    le32(out, 40);
    le32(out, 23);
    le32(out, static_cast<std::int64_t>(static_cast<std::uint32_t>(f.phase) << 24));
    out.push_back(0);
    out.insert(out.end(), {0, 0, 0});
    le32(out, fixedPoint(f.progressCopy));
    le32(out, fixedPoint(f.field126));
    le32(out, 0);
    le32(out, f.field115);
    le(out, static_cast<std::uint64_t>(static_cast<std::uint16_t>(f.motion)), 2);
    le(out, 3, 2);
    le32(out, fixedPoint(f.progress));
    if (hasTail) {
        le32(out, 28);
        le32(out, 9);
        le32(out, 0);
        out.push_back(1);
        out.insert(out.end(), {0, 0, 0});
        le32(out, fixedPoint(f.velocity));
        le32(out, fixedPoint(f.velocityAcross));
        le32(out, 0);
    }
    return out;
}

}  // namespace zelk::spaces
