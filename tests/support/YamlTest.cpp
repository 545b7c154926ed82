#include <gtest/gtest.h>

#include "support/Format.h"
#include "support/Yaml.h"

using namespace ferrow;
using nlohmann::json;

TEST(Yaml, ResolvesPlainScalarsButKeepsQuotedOnesAsStrings) {
    auto v = parseYaml(R"(
a: 1
b: -2.5
c: true
d: ~
e: "true"
f: '12'
g: 1.2.3
h: [x, 2, {k: v}]
big: 4294967296
)");
    ASSERT_TRUE(v);
    EXPECT_EQ((*v)["a"], 1);
    EXPECT_DOUBLE_EQ((*v)["b"].get<double>(), -2.5);
    EXPECT_EQ((*v)["c"], true);
    EXPECT_TRUE((*v)["d"].is_null());
    EXPECT_EQ((*v)["e"], "true");
    EXPECT_EQ((*v)["f"], "12");
    EXPECT_EQ((*v)["g"], "1.2.3");
    EXPECT_EQ((*v)["h"], json::parse(R"(["x", 2, {"k": "v"}])"));
    EXPECT_EQ((*v)["big"].get<std::int64_t>(), 4294967296);
}

TEST(Yaml, AliasesAndMergeKeysResolve) {
    auto v = parseYaml("base: &b {x: 1, y: 2}\nother:\n  <<: *b\n  y: 3\n");
    ASSERT_TRUE(v);
    EXPECT_EQ((*v)["other"], json::parse(R"({"x":1,"y":3})"));
}

TEST(Yaml, ErrorsCarryAPosition) {
    YamlError err;
    EXPECT_FALSE(parseYaml("a: [1, 2\nb: 3\n", &err));
    EXPECT_FALSE(err.message.empty());
    EXPECT_GE(err.line, 1u);
}

TEST(Yaml, EmitRoundTripsAwkwardStrings) {
    json v = json::parse(R"({"title":"Apple — Éclair notes","colon":"a: b","yes":"true","num":"42",
        "empty":"","list":[{"id":1,"t":"#x"},[]],"obj":{},"f":2.0,"n":null})");
    auto text = emitYaml(v);
    auto back = parseYaml(text);
    ASSERT_TRUE(back) << text;
    EXPECT_EQ(*back, v) << text;
}

TEST(Format, DecimalAlwaysShowsAFraction) {
    EXPECT_EQ(decimal(2.0), "2.0");
    EXPECT_EQ(decimal(0.25), "0.25");
    EXPECT_EQ(decimal(1200), "1200.0");
    EXPECT_EQ(decimal(-1.5), "-1.5");
}
