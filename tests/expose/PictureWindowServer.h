#pragma once
#include <algorithm>
#include <atomic>
#include <cstring>

#include "platform/WindowServer.h"

namespace zelk::testing {

// A window server that only pictures windows: each window's picture is a pure function of its number
// and a generation, drawn on the calling thread. Safe to call from capture threads; counts how many
// captures run at once.
class PictureWindowServer final : public platform::WindowServer {
  public:
    std::atomic<std::uint32_t> generation{0};
    std::atomic<int> inside{0}, peakInside{0}, calls{0};

    static platform::WindowImage draw(std::uint32_t id, std::uint32_t gen) {
        platform::WindowImage img;
        img.width = 300 + static_cast<int>(id % 7) * 10;
        img.height = 200;
        img.bytesPerRow = static_cast<std::size_t>(img.width) * 4 + 8;
        img.pixels.assign(img.bytesPerRow * static_cast<std::size_t>(img.height), 0xEE);
        for (int y = 0; y < img.height; ++y)
            for (int x = 0; x < img.width; ++x) {
                auto* p = &img.pixels[img.bytesPerRow * static_cast<std::size_t>(y) +
                                      static_cast<std::size_t>(x) * 4];
                p[0] = static_cast<std::uint8_t>(id * 37 + gen);
                p[1] = static_cast<std::uint8_t>(x + y);
                p[2] = static_cast<std::uint8_t>(id);
                p[3] = 0xFF;
            }
        return img;
    }

    std::vector<platform::WindowImage> captureWindows(const std::vector<std::uint32_t>& windows,
                                                      std::uint32_t) override {
        const int now = ++inside;
        int peak = peakInside.load();
        while (now > peak && !peakInside.compare_exchange_weak(peak, now)) {
        }
        ++calls;
        std::vector<platform::WindowImage> out;
        for (auto id : windows)
            out.push_back(draw(id, generation.load()));
        --inside;
        return out;
    }
    int osMajorVersion() override { return 15; }
    bool screenCaptureAccess() override { return true; }

    std::uint32_t mainConnectionID() override { return 1; }
    std::uint64_t activeSpace() override { return 1; }
    std::optional<std::vector<platform::DisplaySpaces>> managedDisplaySpaces() override {
        return std::nullopt;
    }
    std::optional<std::string> activeMenuBarDisplayIdentifier() override { return std::nullopt; }
    std::vector<std::uint64_t> spacesForWindows(int, const std::vector<std::uint32_t>&) override {
        return {};
    }
    std::vector<std::uint32_t> windowsOnSpace(std::uint64_t, int) override { return {}; }
    std::optional<std::uint32_t> windowOwner(std::uint32_t) override { return std::nullopt; }
    std::optional<std::int32_t> connectionPID(std::uint32_t) override { return std::nullopt; }
    std::optional<std::string> windowTitle(std::uint32_t) override { return std::nullopt; }
    std::optional<Rect> windowBounds(std::uint32_t) override { return std::nullopt; }
    std::optional<std::int32_t> windowLevel(std::uint32_t) override { return std::nullopt; }
    std::vector<platform::WindowInfo> windowList(int, std::uint32_t) override { return {}; }
    bool requestScreenCaptureAccess() override { return true; }
    std::optional<platform::ProcessSerialNumber> processForPID(std::int32_t) override { return std::nullopt; }
    bool setFrontProcessWithOptions(platform::ProcessSerialNumber, std::uint32_t, std::uint32_t) override {
        return false;
    }
    bool postEventRecordTo(platform::ProcessSerialNumber, const std::vector<std::uint8_t>&) override {
        return false;
    }
    bool spaceSetFrontPSN(std::uint64_t, platform::ProcessSerialNumber) override { return false; }
    bool managedDisplaySetCurrentSpace(const std::string&, std::uint64_t) override { return false; }
    bool moveWindowsToManagedSpace(const std::vector<std::uint32_t>&, std::uint64_t) override {
        return false;
    }
    bool bridgedMoveAvailable() override { return false; }
    bool bridgedMoveWindows(const std::vector<std::uint32_t>&, std::uint64_t) override { return false; }
    bool registerNotifyProc(int, NotifyCallback) override { return false; }
    std::optional<platform::SymbolicHotKey> symbolicHotKeyValue(int) override { return std::nullopt; }
    bool isSymbolicHotKeyEnabled(int) override { return false; }
    bool setSymbolicHotKeyEnabled(int, bool) override { return false; }
    void coreDockSendNotification(const std::string&) override {}
    bool postGestureEvent(const platform::GestureEvent&) override { return false; }
    std::vector<std::uint8_t> eventData(const platform::GestureEvent&) override { return {}; }
    std::optional<platform::GestureEvent> eventFromData(const std::vector<std::uint8_t>&) override {
        return std::nullopt;
    }
};

}  // namespace zelk::testing
