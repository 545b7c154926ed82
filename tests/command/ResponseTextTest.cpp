#include <gtest/gtest.h>

#include <sstream>

#include "command/ResponseText.h"

namespace zelk::command {
namespace {

using nlohmann::json;

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

// Column of a substring in characters, not bytes.
std::size_t column(const std::string& line, const std::string& part) {
    std::size_t at = line.find(part);
    std::size_t chars = 0;
    for (std::size_t i = 0; i < at; ++i)
        chars += (static_cast<unsigned char>(line[i]) & 0xC0) != 0x80;
    return chars;
}

TEST(ResponseText, TablesAlignByCharactersNotBytes) {
    json reply = json::parse(R"({"ok":true,"windows":[
        {"id":1,"title":"Café ⌘ notes","appName":"Notes","bundleID":"b","pid":1,"spaceIndex":2,"isFocused":true,"isMinimized":false},
        {"id":22,"title":"plain","appName":"Terminal","bundleID":"t","pid":2,"isFocused":false,"isMinimized":true}]})");
    auto out = lines(formatReply(reply));
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(column(out[0], "SPACE"), column(out[1], "2"));
    EXPECT_EQ(column(out[0], "STATE"), column(out[1], "focused"));
    EXPECT_EQ(column(out[0], "STATE"), column(out[2], "minimized"));
    EXPECT_EQ(column(out[0], "TITLE"), column(out[2], "plain"));
    // No trailing blanks.
    for (auto& l : out)
        EXPECT_NE(l.back(), ' ');
}

TEST(ResponseText, MessageFirstThenFieldsAndBodyAsIs) {
    EXPECT_EQ(formatReply(json::parse(R"({"ok":true,"message":"focused window #7"})")),
              "focused window #7\n");
    EXPECT_EQ(formatReply(json::parse(R"({"ok":true,"body":"{\"a\":1}"})")), "{\"a\":1}\n");
    auto out = formatReply(json::parse(R"({"ok":true,"stages":[{"key":"w","name":"Work","isActive":true,
        "items":[{"appName":"Mail","bundleID":"m","spec":"frontmost","placement":"left-half"}]}]})"));
    EXPECT_NE(out.find("[w] Work  (active)"), std::string::npos);
    EXPECT_NE(out.find("left-half"), std::string::npos);
    // A field of an unexpected shape is still shown.
    EXPECT_NE(formatReply(json::parse(R"({"ok":true,"apps":{"odd":1}})")).find("\"odd\": 1"),
              std::string::npos);
}

}  // namespace
}  // namespace zelk::command
