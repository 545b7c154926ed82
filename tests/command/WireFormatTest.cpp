#include <gtest/gtest.h>

#include "command/Framing.h"
#include "command/WireText.h"
#include "command/ZelkRequest.h"
#include "command/ZelkResponse.h"

namespace zelk::command {
namespace {

using nlohmann::json;

std::optional<ZelkRequest> decode(const std::string& text) {
    return decodeRequest(std::string_view(text));
}

TEST(WireText, Utf8ValidationRejectsOverlongSurrogatesAndTruncation) {
    EXPECT_TRUE(isValidUtf8("plain"));
    EXPECT_TRUE(isValidUtf8("Caf\xC3\xA9 \xE2\x8C\x98 \xF0\x9F\x98\x80"));
    EXPECT_FALSE(isValidUtf8("\xC0\xAF"));          // overlong slash
    EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));      // surrogate
    EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80"));  // above U+10FFFF
    EXPECT_FALSE(isValidUtf8("ab\xE2\x8C"));        // cut short
    EXPECT_FALSE(isValidUtf8("\x80"));
}

TEST(WireText, RepairReplacesEachBadPartOnce) {
    EXPECT_EQ(repairUtf8("ok"), "ok");
    EXPECT_EQ(repairUtf8("a\xFF"
                         "b"),
              "a\xEF\xBF\xBD"
              "b");
    // A truncated three-byte sequence is one bad part, not two.
    EXPECT_EQ(repairUtf8("x\xE2\x8Cy"), "x\xEF\xBF\xBDy");
    EXPECT_TRUE(isValidUtf8(repairUtf8("\xC0\xAF\xED\xA0\x80\xF4\x90")));
}

TEST(WireText, NestingDepthIgnoresBracketsInStrings) {
    EXPECT_EQ(jsonNestingDepth(R"({"a":[1,{"b":2}]})"), 3u);
    EXPECT_EQ(jsonNestingDepth(R"({"a":"[[[[\"{{"})"), 1u);
}

TEST(RequestDecoding, EveryCommandRawStringDecodesAndUnknownOnesFail) {
    EXPECT_EQ(allCommands().size(), 47u);  // the protocol's 46 and the debug dump
    for (ZelkCommand c : allCommands()) {
        auto r = decode(json{{"command", std::string(rawValue(c))}}.dump());
        ASSERT_TRUE(r) << rawValue(c);
        EXPECT_EQ(r->command, c);
    }
    EXPECT_FALSE(decode(R"({"command":"Status"})"));
    EXPECT_FALSE(decode(R"({"command":"list_apps"})"));
    EXPECT_FALSE(decode(R"({"command":"listApps"})"));
    EXPECT_EQ(rawValue(ZelkCommand::debugSendCmdN), "debug-send-cmd-n");
    EXPECT_EQ(rawValue(ZelkCommand::moveWindowToSpace), "move-window-to-space");
}

TEST(RequestDecoding, MissingNullOrWronglyTypedCommandFails) {
    EXPECT_FALSE(decode(R"({})"));
    EXPECT_FALSE(decode(R"({"command":null})"));
    EXPECT_FALSE(decode(R"({"command":1})"));
    EXPECT_FALSE(decode(R"({"command":["status"]})"));
    EXPECT_FALSE(decode(R"(["status"])"));
    EXPECT_FALSE(decode(R"("status")"));
    EXPECT_FALSE(decode(""));
    EXPECT_FALSE(decode(R"({"command":"status")"));  // truncated
    EXPECT_FALSE(decode(R"({"command":"status"} trailing)"));
}

TEST(RequestDecoding, WindowIDMustBeAWholeNumberInUnsigned32BitRange) {
    for (auto [text, id] : {std::pair{R"({"command":"focus-window","windowID":0})", 0u},
                            std::pair{R"({"command":"focus-window","windowID":4294967295})", 4294967295u},
                            std::pair{R"({"command":"focus-window","windowID":7.0})", 7u}}) {
        auto r = decode(text);
        ASSERT_TRUE(r) << text;
        EXPECT_EQ(r->windowID, id) << text;
    }
    EXPECT_FALSE(decode(R"({"command":"focus-window","windowID":4294967296})"));
    EXPECT_FALSE(decode(R"({"command":"focus-window","windowID":18446744073709551615})"));
    EXPECT_FALSE(decode(R"({"command":"focus-window","windowID":1e30})"));
    EXPECT_FALSE(decode(R"({"command":"focus-window","windowID":-1})"));
    EXPECT_FALSE(decode(R"({"command":"focus-window","windowID":1.5})"));
    EXPECT_FALSE(decode(R"({"command":"focus-window","windowID":"12"})"));
    EXPECT_FALSE(decode(R"({"command":"focus-window","windowID":true})"));
}

TEST(RequestDecoding, SpaceIndexIsASignedWholeNumber) {
    for (auto [text, index] : {std::pair{R"({"command":"switch-space","spaceIndex":-3})", -3},
                               std::pair{R"({"command":"switch-space","spaceIndex":2.0})", 2}}) {
        auto r = decode(text);
        ASSERT_TRUE(r) << text;
        EXPECT_EQ(r->spaceIndex, index) << text;
    }
    EXPECT_FALSE(decode(R"({"command":"switch-space","spaceIndex":2.5})"));
    EXPECT_FALSE(decode(R"({"command":"switch-space","spaceIndex":9223372036854775808})"));
    EXPECT_FALSE(decode(R"({"command":"switch-space","spaceIndex":"2"})"));
}

TEST(RequestDecoding, BooleansStringsAndDoublesKeepTheirTypes) {
    auto r = decode(R"({"command":"focus-app","query":"Mail","hideOthers":true,"padding":4,"seconds":1.5})");
    ASSERT_TRUE(r);
    EXPECT_EQ(r->query, "Mail");
    EXPECT_TRUE(r->hideOthers);
    EXPECT_EQ(r->padding, 4.0);
    EXPECT_EQ(r->seconds, 1.5);
    EXPECT_FALSE(decode(R"({"command":"focus-app","hideOthers":"true"})"));
    EXPECT_FALSE(decode(R"({"command":"focus-app","hideOthers":1})"));
    EXPECT_FALSE(decode(R"({"command":"search","windowsOnly":"false"})"));
    EXPECT_FALSE(decode(R"({"command":"list-stages","includeWindows":0})"));
    EXPECT_FALSE(decode(R"({"command":"focus-app","query":42})"));
    EXPECT_FALSE(decode(R"({"command":"focus-app","query":["Mail"]})"));
    EXPECT_FALSE(decode(R"({"command":"place-window","padding":"4"})"));
    EXPECT_FALSE(decode(R"({"command":"osd","surface":{"x":1}})"));
}

TEST(RequestDecoding, NullIsAbsentAndUnknownKeysAreIgnored) {
    auto r = decode(
        R"({"command":"focus-app","query":null,"hideOthers":null,"windowID":null,"extra":[1,2],"v":2})");
    ASSERT_TRUE(r);
    EXPECT_FALSE(r->query);
    EXPECT_FALSE(r->hideOthers);
    EXPECT_FALSE(r->windowID);
}

TEST(RequestDecoding, InvalidUtf8AndHostileNestingFail) {
    EXPECT_FALSE(decode("{\"command\":\"focus-app\",\"query\":\"Mai\xFF\"}"));
    EXPECT_FALSE(decode("{\"command\":\"status\",\"x\":\"\xED\xA0\x80\"}"));
    // Objects built in memory (the replay bench) get the same check.
    json object{{"command", "focus-app"}, {"query", std::string("\xC0\xAF")}};
    EXPECT_FALSE(decodeRequest(object));
    std::string deep =
        R"({"command":"status","x":)" + std::string(100000, '[') + std::string(100000, ']') + "}";
    EXPECT_FALSE(decode(deep));
    std::string fine = R"({"command":"status","x":)" + std::string(10, '[') + std::string(10, ']') + "}";
    EXPECT_TRUE(decode(fine));
}

TEST(RequestDecoding, MoreThanSixteenMebibytesIsRefusedUnread) {
    std::string padded = R"({"command":"status"})";
    padded.resize(kMaxMessageBytes + 1, ' ');
    EXPECT_FALSE(decode(padded));
    padded.resize(kMaxMessageBytes);
    EXPECT_TRUE(decode(padded));
}

TEST(RequestDecoding, EncodingRoundTripsAndLeavesDefaultsOut) {
    ZelkRequest r;
    r.command = ZelkCommand::placeWindow;
    r.position = "left-half";
    r.windowID = 4294967295u;
    r.padding = 8;
    r.includeWindows = true;
    json j = toJson(r);
    EXPECT_EQ(j["command"], "place-window");
    EXPECT_FALSE(j.contains("hideOthers"));
    EXPECT_FALSE(j.contains("query"));
    EXPECT_EQ(decodeRequest(j), r);
}

TEST(ResponseEncoding, FieldNamesAndOptionalsAsOnTheWire) {
    auto r = ZelkResponse::success();
    ZelkWindowInfo w;
    w.id = 1001;
    w.title = "Apple";
    w.appName = "Safari";
    w.bundleID = "com.apple.Safari";
    w.pid = 101;
    w.isFocused = true;
    r.windows = std::vector{w};
    r.apps = std::vector<ZelkAppInfo>{};
    json j = toJson(r);
    EXPECT_EQ(j, json::parse(R"({"ok":true,"apps":[],"windows":[{"id":1001,"title":"Apple","appName":"Safari",
        "bundleID":"com.apple.Safari","pid":101,"isFocused":true,"isMinimized":false}]})"));
    // On the wire, keys follow the records' field order.
    std::string wire = encodeResponse(r);
    EXPECT_LT(wire.find("\"ok\""), wire.find("\"apps\""));
    EXPECT_LT(wire.find("\"id\""), wire.find("\"title\""));
    EXPECT_LT(wire.find("\"title\""), wire.find("\"isMinimized\""));
}

TEST(ResponseEncoding, FailureCarriesOnlyOkAndError) {
    EXPECT_EQ(encodeResponse(ZelkResponse::failure(kInvalidRequest)),
              R"({"ok":false,"error":"invalid request"})");
}

TEST(ResponseEncoding, StatusNestsItsRecordsAndOmitsWhatIsUnknown) {
    ZelkStatusInfo s;
    s.version = "0.1.0";
    s.pid = 7;
    s.triggerKeysApp = "R⌘";
    s.activeSpace = ZelkSpaceInfo{2, 5, true};
    s.totalSpaces = 3;
    json j = toJson(s);
    EXPECT_EQ(j["activeSpace"], json::parse(R"({"index":2,"id":5,"isActive":true})"));
    EXPECT_FALSE(j.contains("frontmostApp"));
    EXPECT_FALSE(j.contains("focusedWindow"));
    EXPECT_FALSE(j.contains("activeStage"));
    EXPECT_EQ(j["triggerKeysWindow"], "");
}

TEST(ResponseEncoding, InvalidUtf8InATitleIsRepairedNotFatal) {
    auto r = ZelkResponse::success();
    ZelkWindowInfo w;
    w.title = "Report \xFF\xFE draft";
    r.windows = std::vector{w};
    std::string wire = encodeResponse(r);
    EXPECT_TRUE(isValidUtf8(wire));
    auto back = json::parse(wire);
    EXPECT_EQ(back["windows"][0]["title"], "Report \xEF\xBF\xBD\xEF\xBF\xBD draft");
    EXPECT_EQ(toJson(r)["windows"][0]["title"], back["windows"][0]["title"]);
}

TEST(Framing, LengthPrefixIsBigEndianAndMessagesSplitAnywhere) {
    std::string framed = frameMessage("hello");
    EXPECT_EQ(framed, std::string("\0\0\0\5hello", 9));
    std::string stream = frameMessage("one") + frameMessage("") + frameMessage(std::string(300, 'x'));
    FrameReader reader;
    std::vector<std::string> got;
    std::string msg;
    for (char c : stream) {
        reader.append(&c, 1);
        while (reader.next(msg) == FrameReader::Result::message)
            got.push_back(msg);
    }
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0], "one");
    EXPECT_EQ(got[1], "");
    EXPECT_EQ(got[2].size(), 300u);
    EXPECT_FALSE(reader.midMessage());
}

TEST(Framing, AnnouncedLengthOverTheLimitIsRefusedBeforeItArrives) {
    FrameReader reader(16);
    std::string header("\0\0\0\x11", 4);  // 17 bytes announced
    reader.append(header.data(), header.size());
    std::string msg;
    EXPECT_EQ(reader.next(msg), FrameReader::Result::tooLarge);
    FrameReader exact(16);
    std::string ok = frameMessage(std::string(16, 'a'));
    exact.append(ok.data(), ok.size());
    EXPECT_EQ(exact.next(msg), FrameReader::Result::message);
}

}  // namespace
}  // namespace zelk::command
