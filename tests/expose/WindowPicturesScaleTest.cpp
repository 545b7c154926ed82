#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "expose/WindowPicturesScale.h"

namespace zelk::expose {
namespace {

platform::WindowImage solid(int width, int height, std::size_t padding, std::uint8_t value) {
    platform::WindowImage img;
    img.width = width;
    img.height = height;
    img.bytesPerRow = static_cast<std::size_t>(width) * 4 + padding;
    img.pixels.assign(img.bytesPerRow * static_cast<std::size_t>(height), 0xEE);
    for (int y = 0; y < height; ++y)
        std::fill_n(
            img.pixels.begin() + static_cast<std::ptrdiff_t>(img.bytesPerRow * static_cast<std::size_t>(y)),
            static_cast<std::size_t>(width) * 4, value);
    return img;
}

std::uint64_t fnvAll(const std::vector<std::uint8_t>& bytes) {
    std::uint64_t h = 0xcbf29ce484222325ULL;
    for (auto b : bytes)
        h = (h ^ b) * 0x100000001b3ULL;
    return h;
}

const std::uint8_t* pixelAt(const platform::WindowImage& img, int x, int y) {
    return img.pixels.data() + img.bytesPerRow * static_cast<std::size_t>(y) +
           static_cast<std::size_t>(x) * 4;
}

TEST(WindowPictureSize, TheLongestSideIsBroughtDownToTheLimitAndNeverUp) {
    EXPECT_EQ(fittedSize(1000, 500, 1400), (PixelSize{1000, 500}));
    EXPECT_EQ(fittedSize(2800, 1400, 1400), (PixelSize{1400, 700}));
    EXPECT_EQ(fittedSize(1400, 2800, 1400), (PixelSize{700, 1400}));
    EXPECT_EQ(fittedSize(2880, 1800, 1400), (PixelSize{1400, 875}));
    EXPECT_EQ(fittedSize(3001, 1000, 1400), (PixelSize{1400, 466})) << "truncated, not rounded";
    EXPECT_EQ(fittedSize(1, 5000, 1400), (PixelSize{1, 1400})) << "at least one pixel";
}

TEST(WindowPictureHash, SmallBitmapsAreHashedByteByByteAndLargeOnesAtAStride) {
    EXPECT_EQ(sampledPixelHash(nullptr, 0), pictures::kHashStart);
    std::vector<std::uint8_t> small(65'535);
    for (std::size_t i = 0; i < small.size(); ++i)
        small[i] = static_cast<std::uint8_t>(i * 7);
    EXPECT_EQ(sampledPixelHash(small.data(), small.size()), fnvAll(small));

    // 131,072 bytes: every second byte is read, starting with the first.
    std::vector<std::uint8_t> large(131'072, 3);
    const auto base = sampledPixelHash(large.data(), large.size());
    std::vector<std::uint8_t> sampled;
    for (std::size_t i = 0; i < large.size(); i += 2)
        sampled.push_back(large[i]);
    EXPECT_EQ(base, fnvAll(sampled));
    large[1001] = 9;
    EXPECT_EQ(sampledPixelHash(large.data(), large.size()), base) << "an unsampled byte";
    large[1000] = 9;
    EXPECT_NE(sampledPixelHash(large.data(), large.size()), base);

    // 65,536 x 3 + 5 bytes: stride 3 in whole numbers.
    std::vector<std::uint8_t> odd(65'536 * 3 + 5, 1);
    std::vector<std::uint8_t> every3;
    for (std::size_t i = 0; i < odd.size(); i += 3)
        every3.push_back(odd[i]);
    EXPECT_EQ(sampledPixelHash(odd.data(), odd.size()), fnvAll(every3));
}

TEST(WindowPictureHash, RowPaddingIsPartOfTheHashedBytes) {
    // 1000 pixels make 4000 bytes of a row; the new bitmap's rows are 4032 bytes apart.
    auto scaled = downscaleAndHash(solid(1000, 20, 0, 0x40), 1400);
    ASSERT_EQ(scaled.image->bytesPerRow, 4032u);
    EXPECT_EQ(scaled.hash, std::max<std::uint64_t>(1, fnvAll(scaled.image->pixels)));
    std::vector<std::uint8_t> withoutPadding;
    for (int y = 0; y < 20; ++y) {
        auto row = scaled.image->pixels.begin() + static_cast<std::ptrdiff_t>(4032 * y);
        withoutPadding.insert(withoutPadding.end(), row, row + 4000);
    }
    EXPECT_NE(scaled.hash, fnvAll(withoutPadding));
}

TEST(WindowPictureScale, NewPixelsAverageThePixelsTheyCover) {
    // Left half white, right half clear: two pixels of white and clear.
    auto img = solid(4, 2, 8, 0);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x)
            std::fill_n(const_cast<std::uint8_t*>(pixelAt(img, x, y)), 4, 0xFF);
    auto two = downscaleAndHash(img, 2);
    ASSERT_EQ(two.image->width, 2);
    ASSERT_EQ(two.image->height, 1);
    EXPECT_EQ(pixelAt(*two.image, 0, 0)[3], 0xFF);
    EXPECT_EQ(pixelAt(*two.image, 1, 0)[3], 0x00);
    EXPECT_EQ(pixelAt(*two.image, 1, 0)[0], 0x00) << "padding never leaks into pixels";

    auto one = downscaleAndHash(img, 1);
    ASSERT_EQ(one.image->width, 1);
    EXPECT_EQ(pixelAt(*one.image, 0, 0)[0], 0x80);
    EXPECT_EQ(pixelAt(*one.image, 0, 0)[3], 0x80);
}

// Every new pixel against the mean of the source pixels it covers, computed the slow way.
void expectMeans(const platform::WindowImage& source, int limit, int tolerance) {
    auto scaled = downscaleAndHash(source, limit);
    const auto& out = *scaled.image;
    int worst = 0;
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x) {
            const int x0 = x * source.width / out.width,
                      x1 = std::max((x + 1) * source.width / out.width, x0 + 1);
            const int y0 = y * source.height / out.height,
                      y1 = std::max((y + 1) * source.height / out.height, y0 + 1);
            const int n = (x1 - x0) * (y1 - y0);
            for (int c = 0; c < 4; ++c) {
                int sum = 0;
                for (int sy = y0; sy < y1; ++sy)
                    for (int sx = x0; sx < x1; ++sx)
                        sum += pixelAt(source, sx, sy)[c];
                const int mean = (sum + n / 2) / n;  // rounded half up
                worst = std::max(worst, std::abs(pixelAt(out, x, y)[c] - mean));
            }
        }
    EXPECT_LE(worst, tolerance) << source.width << "x" << source.height << " to " << limit;
}

platform::WindowImage noise(int width, int height, std::size_t padding) {
    auto img = solid(width, height, padding, 0);
    std::uint32_t state = 12345;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 4; ++c) {
                state = state * 1664525u + 1013904223u;
                const_cast<std::uint8_t*>(pixelAt(img, x, y))[c] = static_cast<std::uint8_t>(state >> 24);
            }
    return img;
}

TEST(WindowPictureScale, EveryNewPixelIsTheRoundedMeanOfWhatItCovers) {
    // Spans of two and three a side, as a Retina window brought to 1400 has: exact.
    expectMeans(noise(288, 180, 16), 140, 0);
    // Spans of one and two (a picture only a little over the limit): exact.
    expectMeans(noise(150, 97, 4), 140, 0);
    // More than sixteen source pixels to a new one: within one step of the mean.
    expectMeans(noise(400, 300, 0), 60, 1);
    // A stretch of white: the sums of the widest spans don't wrap.
    auto white = solid(287, 171, 12, 0xFF);
    expectMeans(white, 75, 0);
}

TEST(WindowPictureScale, APictureWithinTheLimitKeepsItsPixelsWhateverItsSourcePadding) {
    auto a = downscaleAndHash(solid(300, 200, 0, 0x33), 1400);
    auto b = downscaleAndHash(solid(300, 200, 44, 0x33), 1400);
    EXPECT_EQ(a.image->width, 300);
    EXPECT_EQ(a.image->height, 200);
    EXPECT_EQ(a.image->pixels, b.image->pixels);
    EXPECT_EQ(a.hash, b.hash);
    EXPECT_EQ(pixelAt(*a.image, 150, 100)[1], 0x33);
}

TEST(WindowPictureScale, ABitmapThatCannotBeReadComesBackAsGivenWithUnknownHash) {
    auto broken = solid(10, 10, 0, 1);
    broken.pixels.resize(100);
    auto out = downscaleAndHash(broken, 1400);
    EXPECT_EQ(out.hash, 0u);
    EXPECT_EQ(out.image->pixels.size(), 100u);
    EXPECT_EQ(out.image->width, 10);
}

TEST(WindowPictureScale, OnlyPicturesOfTwoPixelsASideCount) {
    EXPECT_FALSE(isUsefulPicture(solid(1, 1, 0, 0)));
    EXPECT_FALSE(isUsefulPicture(solid(500, 1, 0, 0)));
    EXPECT_TRUE(isUsefulPicture(solid(2, 2, 0, 0)));
}

}  // namespace
}  // namespace zelk::expose
