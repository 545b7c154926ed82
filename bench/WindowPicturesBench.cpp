// Cost of making one window picture ready for the overview: a 2880x1800 window (a full Retina
// display) brought down to 1400 pixels on its longest side and hashed, on a capture thread. Target:
// under 5 ms per picture. The hash alone is measured too: it reads at most 65,536 bytes whatever the size.
#include <benchmark/benchmark.h>

#include "expose/WindowPicturesScale.h"

namespace {

using namespace zelk;

// A window-like picture: opaque, a title band, stripes, clear corners, rows padded by 16 bytes.
platform::WindowImage windowPicture(int width, int height) {
    platform::WindowImage img;
    img.width = width;
    img.height = height;
    img.bytesPerRow = static_cast<std::size_t>(width) * 4 + 16;
    img.pixels.assign(img.bytesPerRow * static_cast<std::size_t>(height), 0xEE);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p =
                &img.pixels[img.bytesPerRow * static_cast<std::size_t>(y) + static_cast<std::size_t>(x) * 4];
            const bool band = y < 56, stripe = (x / 16) % 2 == 0;
            p[0] = band ? 0xE0 : stripe ? 0x30 : 0xF0;
            p[1] = band ? 0xE0 : static_cast<std::uint8_t>(x * 255 / width);
            p[2] = band ? 0xE0 : static_cast<std::uint8_t>(y * 255 / height);
            p[3] = 0xFF;
        }
    return img;
}

void BM_DownscaleAndHash2880x1800(benchmark::State& state) {
    const auto source = windowPicture(2880, 1800);
    for (auto _ : state) {
        auto scaled = expose::downscaleAndHash(source, expose::pictures::kThumbnailLongestSide);
        benchmark::DoNotOptimize(scaled.hash);
    }
    state.counters["outWidth"] = 1400;
}
BENCHMARK(BM_DownscaleAndHash2880x1800)->Unit(benchmark::kMillisecond);

void BM_SampledHashOf1400x875(benchmark::State& state) {
    const auto scaled = expose::downscaleAndHash(windowPicture(2880, 1800), 1400);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            expose::sampledPixelHash(scaled.image->pixels.data(), scaled.image->pixels.size()));
}
BENCHMARK(BM_SampledHashOf1400x875)->Unit(benchmark::kMicrosecond);

}  // namespace
