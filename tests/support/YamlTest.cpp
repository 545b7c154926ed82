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

// The bounds hold while parsing, so each of these fails fast, small, and at the place it breaks.
TEST(YamlLimits, NestingFailsAtTheFirstLevelTooDeepWithItsPlace) {
    YamlError err;
    EXPECT_FALSE(parseYaml(std::string(40'000, '['), &err));
    EXPECT_EQ(err.message, "nesting deeper than 100 levels");
    EXPECT_EQ(err.line, 1u);
    EXPECT_EQ(err.column, 101u);
    EXPECT_EQ(err.describe(), "line 1, column 101: nesting deeper than 100 levels");

    std::string blocks;  // block style, one level per line
    for (int i = 0; i < 150; ++i)
        blocks += std::string(static_cast<std::size_t>(i) * 2, ' ') + "k:\n";
    EXPECT_FALSE(parseYaml(blocks, &err));
    EXPECT_EQ(err.line, 101u);

    std::string ok = std::string(100, '[') + std::string(100, ']');
    EXPECT_TRUE(parseYaml(ok, &err)) << err.describe();
}

TEST(YamlLimits, AliasesCountEveryValueTheyCopy) {
    // Nine levels of ten copies each: a billion values if expanded.
    std::string bomb = "a: &a [x, x, x, x, x, x, x, x, x, x]\n";
    for (char c = 'b'; c <= 'j'; ++c) {
        std::string prev(1, static_cast<char>(c - 1));
        bomb += std::string(1, c) + ": &" + c + " [";
        for (int i = 0; i < 10; ++i)
            bomb += (i ? ", *" : "*") + prev;
        bomb += "]\n";
    }
    YamlError err;
    EXPECT_FALSE(parseYaml(bomb, &err));
    EXPECT_EQ(err.message, "more than 1000000 values (aliases count every value they copy)");
    EXPECT_GE(err.line, 6u);  // the level whose copies cross the budget, not "line 0"

    // One long string copied many times breaks the text budget instead.
    std::string wide = "s: &s " + std::string(1000, 'w') + "\nl: [";
    for (int i = 0; i < 200; ++i)
        wide += (i ? ", *s" : "*s");
    wide += "]\n";
    YamlLimits small;
    small.maxTextBytes = 100'000;
    EXPECT_FALSE(parseYaml(wide, &err, small));
    EXPECT_EQ(err.message, "more than 100000 bytes of text (aliases count every byte they copy)");
    EXPECT_EQ(err.line, 2u);

    // Within the budget aliases still resolve.
    small.maxTextBytes = 1'000'000;
    auto v = parseYaml(wide, &err, small);
    ASSERT_TRUE(v) << err.describe();
    EXPECT_EQ((*v)["l"].size(), 200u);
    EXPECT_EQ((*v)["l"][199], (*v)["s"]);
}

TEST(YamlLimits, TextLongerThanTheCapIsRefusedBeforeParsing) {
    YamlLimits limits;
    limits.maxBytes = 10;
    YamlError err;
    EXPECT_FALSE(parseYaml("a: 12345678901", &err, limits));
    EXPECT_EQ(err.describe(), "longer than 10 bytes");
    EXPECT_TRUE(parseYaml("a: 1234567", &err, limits));
}

TEST(YamlShape, OneDocumentScalarKeysAndEachKeyOnce) {
    YamlError err;
    EXPECT_FALSE(parseYaml("apps: []\nname: x\napps: [1]\n", &err));
    EXPECT_EQ(err.describe(), "line 3, column 1: duplicate key 'apps'");

    EXPECT_FALSE(parseYaml("a: {b: 1, b: 2}\n", &err));
    EXPECT_EQ(err.describe(), "line 1, column 11: duplicate key 'b'");

    EXPECT_FALSE(parseYaml("? [1, 2]\n: x\n", &err));
    EXPECT_EQ(err.describe(), "line 1, column 3: a mapping key must be a scalar");

    EXPECT_FALSE(parseYaml("k: &k {a: 1}\n*k : 2\n", &err));
    EXPECT_EQ(err.message, "a mapping key must be a scalar");

    EXPECT_FALSE(parseYaml("a: 1\n---\nb: 2\n", &err));
    EXPECT_EQ(err.describe(), "line 2, column 1: more than one document");

    EXPECT_FALSE(parseYaml("a: *nowhere\n", &err));
    EXPECT_EQ(err.describe(), "line 1, column 4: unknown alias '*nowhere'");

    EXPECT_FALSE(parseYaml("a: 1\nb: [1, 2\nc: 3\n", &err));
    EXPECT_EQ(err.line, 3u);  // libyaml's own errors keep their real place

    auto empty = parseYaml("", &err);
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->is_null());
    auto tagged = parseYaml("a: !!str 12\nb: 12\n", &err);
    ASSERT_TRUE(tagged);
    EXPECT_EQ((*tagged)["a"], "12");
    EXPECT_EQ((*tagged)["b"], 12);
}

TEST(YamlShape, MergeKeysTakeAMappingOrAListAndNeverOverrideTheirOwnKeys) {
    auto v = parseYaml("a: &a {x: 1, y: 1}\nb: &b {y: 2, z: 2}\nc:\n  <<: [*a, *b]\n  x: 3\n");
    ASSERT_TRUE(v);
    EXPECT_EQ((*v)["c"], json::parse(R"({"x":3,"y":1,"z":2})"));
    YamlError err;
    EXPECT_FALSE(parseYaml("c:\n  <<: 5\n", &err));
    EXPECT_EQ(err.message, "a merge key '<<' takes a mapping or a list of mappings");
}
