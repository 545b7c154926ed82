#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/WindowServer.h"

namespace zelk::expose {

// A window picture as the overview keeps it: immutable once made, shared by the cache and the tiles.
using Picture = std::shared_ptr<const platform::WindowImage>;

namespace pictures {
constexpr int kThumbnailLongestSide = 1400;
constexpr int kHighResolutionLongestSide = 2800;
constexpr int kSmallestUseful = 2;  // pixels a side; a smaller picture counts as none
constexpr std::size_t kHashBudget = 65'536;
constexpr std::uint64_t kHashStart = 0xcbf29ce484222325ULL;
constexpr std::uint64_t kHashPrime = 0x100000001b3ULL;
constexpr std::size_t kRowAlignment = 64;  // bytes; the stride of the pictures this side makes
}  // namespace pictures

struct PixelSize {
    int width = 0, height = 0;
    bool operator==(const PixelSize&) const = default;
};

// The size a picture takes with its longest side at most `limit`: never enlarged, each side truncated
// and at least 1.
PixelSize fittedSize(int width, int height, int limit);

// FNV-1a over `total` bytes read at a stride: every byte when there are fewer than the hash budget,
// else one byte every total / budget bytes from the first. Row padding counts as bytes like any
// other. An empty input gives the start value.
std::uint64_t sampledPixelHash(const std::uint8_t* bytes, std::size_t total);

struct ScaledPicture {
    Picture image;
    std::uint64_t hash = 0;  // 0: unknown (the picture couldn't be redrawn)
};

// Redraws the picture into a new bitmap (premultiplied BGRA, rows padded to 64 bytes) with its
// longest side at most `limit`, averaging the pixels each new pixel covers, and hashes the new bitmap
// (raised to at least 1). A picture whose bytes don't match its size comes back as given, hash 0.
ScaledPicture downscaleAndHash(const platform::WindowImage& source, int limit);

// True when the picture is large enough to use.
bool isUsefulPicture(const platform::WindowImage& image);

}  // namespace zelk::expose
