// The live agent's settings file: whatever the file holds, the store opens on it (or on defaults,
// with the file set aside), reads every key and writes a change back.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/JsonFileSettingsStore.h"
#include "support/Log.h"

namespace {
std::filesystem::path gDir;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ferrow::Log::setConsole(false);
    gDir = std::filesystem::temp_directory_path() / ("zelk-fuzz-settings-" + std::to_string(::getpid()));
    std::filesystem::create_directories(gDir);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::error_code ec;
    // Files set aside by earlier inputs go, so the folder stays small.
    for (auto& entry : std::filesystem::directory_iterator(gDir, ec))
        std::filesystem::remove_all(entry.path(), ec);
    auto path = gDir / "com.ferrowlabs.zelk.json";
    {
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    zelk::platform::JsonFileSettingsStore store(path);
    for (const auto& key : store.keys())
        (void)store.read(key);
    store.write("launchCount", 1);
    (void)store.reload();
    return 0;
}
