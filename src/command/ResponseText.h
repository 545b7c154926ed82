#pragma once
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace zelk::command {

// Columns padded to their widest cell (counting characters, not bytes), two spaces apart.
std::string formatTable(const std::vector<std::string>& headers,
                        const std::vector<std::vector<std::string>>& rows);

// What the tool prints for a successful reply: its message, then each field it carries in a
// readable form (lists as tables). Fields of unexpected shape are shown as JSON, never dropped.
std::string formatReply(const nlohmann::json& reply);

}  // namespace zelk::command
