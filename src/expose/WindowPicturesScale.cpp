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

// Each new pixel is the average of the source pixels it covers. Per output row: sum the covered
// source rows column by column (in `Sum`, wide enough for the rows one pixel covers), then each
// output pixel's columns.
// Four 32-bit lanes, one per byte of a pixel.
typedef std::uint32_t Pixel4 __attribute__((vector_size(16)));
typedef std::uint8_t Byte4 __attribute__((vector_size(4)));

// `Sum` holds the sum of every source pixel one new pixel covers, per component.
template <typename Sum>
void averageInto(const platform::WindowImage& source, platform::WindowImage& out) {
    typedef Sum Lanes __attribute__((vector_size(sizeof(Sum) * 4)));
    const auto columns = spans(source.width, out.width);
    const auto rows = spans(source.height, out.height);
    // Dividing by a pixel's count of source pixels is a multiplication by its 16-bit reciprocal,
    // from a table as long as the largest count (the result is within 0.5 of the exact mean for
    // counts under 250, and 255 x 65536 still fits 32 bits).
    constexpr int kShift = 16;
    const std::size_t maxCount = static_cast<std::size_t>(source.width / out.width + 1) *
                                 static_cast<std::size_t>(source.height / out.height + 1);
    std::vector<std::uint32_t> reciprocal(maxCount + 1, 0);
    for (std::size_t n = 1; n <= maxCount; ++n)
        reciprocal[n] = static_cast<std::uint32_t>(((std::size_t{1} << kShift) + n / 2) / n);
    const std::size_t width = static_cast<std::size_t>(source.width);
    std::vector<Sum> columnSums(width * 4);
    const std::size_t sumCount = columnSums.size();
    for (int y = 0; y < out.height; ++y) {
        const Span r = rows[static_cast<std::size_t>(y)];
        Sum* sums = columnSums.data();
        const std::uint8_t* first =
            source.pixels.data() + source.bytesPerRow * static_cast<std::size_t>(r.first);
        for (std::size_t i = 0; i < sumCount; ++i)
            sums[i] = first[i];
        for (int sy = r.first + 1; sy < r.last; ++sy) {
            const std::uint8_t* src =
                source.pixels.data() + source.bytesPerRow * static_cast<std::size_t>(sy);
            for (std::size_t i = 0; i < sumCount; ++i)
                sums[i] = static_cast<Sum>(sums[i] + src[i]);
        }
        std::uint8_t* dst = out.pixels.data() + out.bytesPerRow * static_cast<std::size_t>(y);
        const std::uint32_t rowCount = static_cast<std::uint32_t>(r.last - r.first);
        for (int x = 0; x < out.width; ++x) {
            const Span c = columns[static_cast<std::size_t>(x)];
            Lanes acc;
            std::memcpy(&acc, sums + static_cast<std::size_t>(c.first) * 4, sizeof acc);
            for (int sx = c.first + 1; sx < c.last; ++sx) {
                Lanes more;
                std::memcpy(&more, sums + static_cast<std::size_t>(sx) * 4, sizeof more);
                acc += more;
            }
            const std::uint32_t inv = reciprocal[rowCount * static_cast<std::uint32_t>(c.last - c.first)];
            // Below 256 by the choice of the reciprocal, so each lane is one byte.
            const Pixel4 mean = (__builtin_convertvector(acc, Pixel4) * inv + (1u << (kShift - 1))) >> kShift;
            const Byte4 bytes = __builtin_convertvector(mean, Byte4);
            std::memcpy(dst + static_cast<std::size_t>(x) * 4, &bytes, 4);
        }
    }
}

// The common case, where no new pixel covers more than 16 source pixels (a Retina window brought to
// 1400 covers at most 3 x 3). Per output row: the covered source rows summed column by column (16
// bits a component), each new pixel's columns summed, then the division by the count as a 16-bit
// multiply-high, floor((sum + n/2) * m / 65536) with m = ceil(65536 / n), which is exactly the mean
// rounded half up for n up to 16 (sums below 256 n); a count of 1 takes m = 65535 and adds 1. Each
// of these is a plain loop over a row's bytes that the compiler turns into wide vector operations.
constexpr std::size_t kFastMostCovered = 16;
typedef std::uint16_t Lanes4 __attribute__((vector_size(8)));  // one pixel's four sums

struct Divisor {
    std::uint16_t add, multiplier;
};
Divisor divisorFor(std::uint32_t n) {
    if (n <= 1) return {1, 65535};
    return {static_cast<std::uint16_t>(n / 2), static_cast<std::uint16_t>((65536 + n - 1) / n)};
}

void averageSmallCounts(const platform::WindowImage& source, platform::WindowImage& out) {
    const auto columns = spans(source.width, out.width);
    const auto rows = spans(source.height, out.height);
    const std::size_t inLanes = static_cast<std::size_t>(source.width) * 4;
    const std::size_t outLanes = static_cast<std::size_t>(out.width) * 4;
    // Per count of covered rows, the add and the multiplier of every output lane.
    std::vector<std::vector<std::uint16_t>> adds(kFastMostCovered + 1), multipliers(kFastMostCovered + 1);
    auto divisorsFor = [&](std::size_t rowCount) {
        if (!adds[rowCount].empty()) return;
        adds[rowCount].resize(outLanes);
        multipliers[rowCount].resize(outLanes);
        for (std::size_t x = 0; x < columns.size(); ++x) {
            const Divisor d = divisorFor(static_cast<std::uint32_t>(rowCount) *
                                         static_cast<std::uint32_t>(columns[x].last - columns[x].first));
            for (std::size_t c = 0; c < 4; ++c) {
                adds[rowCount][x * 4 + c] = d.add;
                multipliers[rowCount][x * 4 + c] = d.multiplier;
            }
        }
    };
    std::vector<std::uint16_t> columnSums(inLanes), pixelSums(outLanes);
    for (int y = 0; y < out.height; ++y) {
        const Span r = rows[static_cast<std::size_t>(y)];
        std::uint16_t* __restrict sums = columnSums.data();
        auto rowAt = [&](int sy) {
            return source.pixels.data() + source.bytesPerRow * static_cast<std::size_t>(sy);
        };
        const std::uint8_t* __restrict a = rowAt(r.first);
        int next = r.first + 1;
        // Two or three rows at a time: one pass over the sums instead of one per row.
        if (r.last - r.first >= 3) {
            const std::uint8_t* __restrict b = rowAt(r.first + 1);
            const std::uint8_t* __restrict c = rowAt(r.first + 2);
            for (std::size_t i = 0; i < inLanes; ++i)
                sums[i] = static_cast<std::uint16_t>(a[i] + b[i] + c[i]);
            next = r.first + 3;
        } else if (r.last - r.first == 2) {
            const std::uint8_t* __restrict b = rowAt(r.first + 1);
            for (std::size_t i = 0; i < inLanes; ++i)
                sums[i] = static_cast<std::uint16_t>(a[i] + b[i]);
            next = r.first + 2;
        } else {
            for (std::size_t i = 0; i < inLanes; ++i)
                sums[i] = a[i];
        }
        for (int sy = next; sy < r.last; ++sy) {
            const std::uint8_t* __restrict src = rowAt(sy);
            for (std::size_t i = 0; i < inLanes; ++i)
                sums[i] = static_cast<std::uint16_t>(sums[i] + src[i]);
        }
        std::uint16_t* __restrict pixels = pixelSums.data();
        for (std::size_t x = 0; x < columns.size(); ++x) {
            const std::uint16_t* from = sums + static_cast<std::size_t>(columns[x].first) * 4;
            Lanes4 acc, more;
            std::memcpy(&acc, from, sizeof acc);
            for (int n = columns[x].last - columns[x].first - 1; n > 0; --n) {
                from += 4;
                std::memcpy(&more, from, sizeof more);
                acc += more;
            }
            std::memcpy(pixels + x * 4, &acc, sizeof acc);
        }
        const auto rowCount = static_cast<std::size_t>(r.last - r.first);
        divisorsFor(rowCount);
        const std::uint16_t* __restrict add = adds[rowCount].data();
        const std::uint16_t* __restrict mul = multipliers[rowCount].data();
        std::uint8_t* __restrict dst = out.pixels.data() + out.bytesPerRow * static_cast<std::size_t>(y);
        for (std::size_t i = 0; i < outLanes; ++i) {
            const std::uint32_t v = static_cast<std::uint16_t>(pixels[i] + add[i]);
            dst[i] = static_cast<std::uint8_t>((v * mul[i]) >> 16);
        }
    }
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

    const std::size_t mostCovered = static_cast<std::size_t>(source.width / size.width + 1) *
                                    static_cast<std::size_t>(source.height / size.height + 1);
    if (mostCovered <= kFastMostCovered)
        averageSmallCounts(source, *out);
    else if (mostCovered * 255 <= 0xFFFF)
        averageInto<std::uint16_t>(source, *out);  // narrower sums: twice the lanes
    else
        averageInto<std::uint32_t>(source, *out);
    const std::uint64_t hash = sampledPixelHash(out->pixels.data(), out->pixels.size());
    return {std::move(out), std::max<std::uint64_t>(hash, 1)};
}

}  // namespace zelk::expose
