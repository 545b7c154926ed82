#pragma once
#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "command/ZelkCommand.h"

namespace zelk::command {

// One request of the command protocol. Absent optionals are left out of the JSON.
struct ZelkRequest {
    ZelkCommand command = ZelkCommand::status;
    std::optional<std::string> query;
    std::optional<std::string> bundleID;
    std::optional<std::uint32_t> windowID;
    std::optional<std::string> stageKey;
    std::optional<std::int64_t> spaceIndex;
    std::optional<std::string> position;
    std::optional<std::string> appQuery;
    bool hideOthers = false;
    std::optional<std::string> screen;
    std::optional<double> padding;
    std::optional<std::string> body;
    std::optional<double> seconds;
    bool windowsOnly = false;
    bool includeWindows = false;
    std::optional<std::string> mode;
    std::optional<std::string> surface;

    bool operator==(const ZelkRequest&) const = default;
};

// Largest message either side accepts.
constexpr std::size_t kMaxMessageBytes = 16u * 1024 * 1024;
// Deeper JSON than this is refused before it is parsed.
constexpr std::size_t kMaxJsonDepth = 64;

// Strict decoding: `command` must name a known command; every typed field must hold its type
// (integers in range and without a fraction, booleans as booleans, strings as strings). Null is the
// same as absent and unknown keys are ignored. Empty when the object isn't one valid request.
std::optional<ZelkRequest> decodeRequest(const nlohmann::json& object);
// The same from the bytes of a message, which must be well-formed UTF-8 JSON.
std::optional<ZelkRequest> decodeRequest(std::string_view bytes);

nlohmann::json toJson(const ZelkRequest& request);

}  // namespace zelk::command
