// World files of the simulated desktop: any bytes load or give a one-line error.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/sim/SimDesktop.h"
#include "platform/sim/WorldFile.h"
#include "support/Log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ferrow::Log::setConsole(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    zelk::sim::SimDesktop desktop;
    zelk::sim::WorldExtras extras;
    std::string error;
    if (!zelk::sim::loadWorldText(text, desktop, extras, error) && error.empty()) __builtin_trap();
    return 0;
}
