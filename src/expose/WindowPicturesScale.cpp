#include "expose/WindowPicturesScale.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace zelk::expose {

PixelSize fittedSize(int width, int height, int limit) {
    const int longest = std::max(width, height);
    if (longest <= 0) return {1, 1};
    const double scale = std::min(static_cast<double>(limit) / longest, 1.0);
    return {std::max(1, static_cast<int>(width * scale)), std::max(1, static_cast<int>(height * scale))};
}

std::uint64_t sampledPixelHash(const std::uint8_t* bytes, std::size_t total) {
    std::uint64_t h = pictures::kHashStart;
    if (!bytes) return h;
    const std::size_t stride = total >= pictures::kHashBudget ? total / pictures::kHashBudget : 1;
    for (std::size_t i = 0; i < total; i += stride) {
        h ^= bytes[i];
        h *= pictures::kHashPrime;
    }
    return h;
}

bool isUsefulPicture(const platform::WindowImage& image) {
    return image.width >= pictures::kSmallestUseful && image.height >= pictures::kSmallestUseful;
}

namespace {

bool wellFormed(const platform::WindowImage& s) {
    if (s.width < 1 || s.height < 1) return false;
    if (s.bytesPerRow < static_cast<std::size_t>(s.width) * 4) return false;
    return s.pixels.size() >= s.bytesPerRow * static_cast<std::size_t>(s.height);
}

// The source span [first, last) that output cell `i` of `outCount` covers on an axis of `inCount`.
struct Span {
    int first, last;
};
std::vector<Span> spans(int inCount, int outCount) {
    std::vector<Span> out(static_cast<std::size_t>(outCount));
    for (int i = 0; i < outCount; ++i) {
        int a = static_cast<int>(static_cast<std::int64_t>(i) * inCount / outCount);
        int b = static_cast<int>(static_cast<std::int64_t>(i + 1) * inCount / outCount);
        out[static_cast<std::size_t>(i)] = {a, std::max(b, a + 1)};
    }
    return out;
}

}  // namespace

ScaledPicture downscaleAndHash(const platform::WindowImage& source, int limit) {
    if (!wellFormed(source) || limit < 1) return {std::make_shared<const platform::WindowImage>(source), 0};
    const PixelSize size = fittedSize(source.width, source.height, limit);
    auto out = std::make_shared<platform::WindowImage>();
    out->width = size.width;
    out->height = size.height;
    const std::size_t rowBytes = static_cast<std::size_t>(size.width) * 4;
    out->bytesPerRow =
        (rowBytes + pictures::kRowAlignment - 1) / pictures::kRowAlignment * pictures::kRowAlignment;
    out->pixels.assign(out->bytesPerRow * static_cast<std::size_t>(size.height), 0);

    const auto columns = spans(source.width, size.width);
    const auto rows = spans(source.height, size.height);
    // Per output row: sum the covered source rows column by column, then each output pixel's columns.
    std::vector<std::uint32_t> columnSums(static_cast<std::size_t>(source.width) * 4);
    for (int y = 0; y < size.height; ++y) {
        const Span r = rows[static_cast<std::size_t>(y)];
        std::fill(columnSums.begin(), columnSums.end(), 0u);
        for (int sy = r.first; sy < r.last; ++sy) {
            const std::uint8_t* src =
                source.pixels.data() + source.bytesPerRow * static_cast<std::size_t>(sy);
            for (std::size_t i = 0; i < columnSums.size(); ++i)
                columnSums[i] += src[i];
        }
        std::uint8_t* dst = out->pixels.data() + out->bytesPerRow * static_cast<std::size_t>(y);
        const std::uint32_t rowCount = static_cast<std::uint32_t>(r.last - r.first);
        for (int x = 0; x < size.width; ++x) {
            const Span c = columns[static_cast<std::size_t>(x)];
            std::uint32_t sum[4] = {0, 0, 0, 0};
            for (int sx = c.first; sx < c.last; ++sx) {
                const std::uint32_t* px = &columnSums[static_cast<std::size_t>(sx) * 4];
                sum[0] += px[0];
                sum[1] += px[1];
                sum[2] += px[2];
                sum[3] += px[3];
            }
            const std::uint32_t count = rowCount * static_cast<std::uint32_t>(c.last - c.first);
            for (int k = 0; k < 4; ++k)
                dst[static_cast<std::size_t>(x) * 4 + static_cast<std::size_t>(k)] =
                    static_cast<std::uint8_t>((sum[k] + count / 2) / count);
        }
    }
    const std::uint64_t hash = sampledPixelHash(out->pixels.data(), out->pixels.size());
    return {std::move(out), std::max<std::uint64_t>(hash, 1)};
}

}  // namespace zelk::expose
