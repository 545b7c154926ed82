// The command protocol's request decoder: any message bytes decode or are refused, and a decoded
// request encodes to a message that decodes to the same request.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "command/ZelkRequest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    auto request = zelk::command::decodeRequest(bytes);
    if (!request) return 0;
    auto json = zelk::command::toJson(*request);
    std::string text = json.dump();
    auto again = zelk::command::decodeRequest(std::string_view(text));
    if (!again || zelk::command::toJson(*again) != json) __builtin_trap();
    return 0;
}
