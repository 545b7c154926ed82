// Replay scripts: any bytes parse or give a one-line error; a parsed script keeps its events in
// order and its end after them.
#include <cstddef>
#include <cstdint>
#include <string>

#include "ReplayScript.h"
#include "support/Log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ferrow::Log::setConsole(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    zelk::agent::ReplayScript script;
    std::string error;
    if (!zelk::agent::parseReplayScript(text, script, error)) {
        if (error.empty() || error.find('\n') != std::string::npos) __builtin_trap();
        return 0;
    }
    for (const auto& e : script.events)
        if (e.atMs < 0 || e.atMs > script.endMs) __builtin_trap();
    return 0;
}
