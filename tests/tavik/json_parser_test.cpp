// The lenient JSON text parser.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

using tavik::json;

TEST(JsonParser, MembersKeepKindOrderAndNestingAndArraysDropScalars) {
    json j(
        "{\"b\":1, \"a\":\"x\", \"n\":null, \"m\":\"null\", \"o\":{\"k\":{\"d\":4}}, "
        "\"l\":[1, \"two\", {\"x\":1}, null, []], \"e\":{}}");
    EXPECT_STREQ(
        "{\"b\":1,\"a\":\"x\",\"n\":null,\"m\":\"null\",\"o\":{\"k\":{\"d\":4}},"
        "\"l\":[{\"x\":1},[]],\"e\":{}}",
        j.getDoc());
    // A bare null is a key without node; a quoted one is text.
    EXPECT_TRUE(j.props.exist(const_cast<char*>("n")));
    EXPECT_STREQ("d", j.get("n", "d"));
}

TEST(JsonParser, RejectsTextThatDoesNotOpenWithABrace) {
    json j("   {\"a\":1}  ");
    EXPECT_EQ(1, j.getInt("a", 0));
    for (const char* wrong : {" [{\"a\":1}]", "a{}", "\t{}"}) {  // only blanks are trimmed
        EXPECT_FALSE(j.generate(wrong));
        EXPECT_STREQ(wrong, j.latestWrongPacket.get());
        EXPECT_TRUE(j.isEmpty());
    }
    EXPECT_FALSE(j.generate(""));
    EXPECT_TRUE(j.latestWrongPacket.isEmpty());
    EXPECT_FALSE(j.generate(static_cast<const char*>(nullptr)) ||
                 j.generate(static_cast<tavik::byteArr*>(nullptr)));
}

TEST(JsonParser, EscapesDecodeWithoutReadingPastTheText) {
    json j("{\"q\":\"say \\\"hi\\\",\\tyes\"}");
    EXPECT_STREQ("say \"hi\",\tyes", j.get("q", nullptr));
    const char* cases[][2] = {
        {"\\x41 b", "A b"},  {"\\u0041\\u4142", "ABA"},  // low byte first
        {"a\\u4100b", "ab"}, {"\\\\ \\/ \\n\\z", "\\ / \nz"}, {"a\\", "a"}, {"a\\u", "a"},
        {"a\\u4", "a\x04"},  {"a\\u414", "a\x14\x04"},        {"\\x", ""},  {"\\x4", "\x04"}};
    for (auto& c : cases) {
        std::unique_ptr<char[]> in(tavik::newString(c[0]));  // exact size, for AddressSanitizer
        std::unique_ptr<char[]> out(j.applyEscape(in.get()));
        EXPECT_STREQ(c[1], out.get()) << c[0];
    }
}

TEST(JsonParser, LenientTextMergesIntoOneObject) {
    // A repeated key replaces the node at its first position.
    EXPECT_STREQ("{\"a\":{\"c\":3},\"b\":2}", json("{\"a\":1,\"b\":2,\"a\":{\"c\":3}}").getDoc());
    // Commas and line breaks inside strings survive; outside they only separate.
    json lines("{\r\n\t\"a\" : \"x, y\r\n\tz\",\n\t\"b\":\"1,2\"\r\n}");
    EXPECT_STREQ("x, y\r\n\tz", lines.get("a", nullptr));
    EXPECT_STREQ("1,2", lines.get("b", nullptr));
    // Objects in a row and trailing words add members; a key without value is dropped.
    json row("{\"a\":1}{\"b\":2} \"c\" \"3\" \"dangling\"");
    EXPECT_STREQ("{\"a\":1,\"b\":2,\"c\":\"3\"}", row.getDoc());
    // An unterminated brace runs to the end as one word: here the value of k.
    json open("{\"a\":1} \"k\" {\"b\":2");
    EXPECT_EQ(2u, open.getKeyCount());
    EXPECT_STREQ("{\"b\":2", open.get("k", nullptr));
    // Arrays take the current key without one of their own, so an object can hold more
    // members than key and value pairs.
    EXPECT_STREQ("{\"\":[],\"a\":[],\"b\":[[]],\"c\":1}",
                 json("{[] \"a\" [] \"b\" [[]] \"c\":1}").getDoc());

    // Many members, with repeats spread over them: the last value wins at the first position.
    // The member map is sorted on the way, so the writer finds most members out of step.
    std::string text = "{", doc = "{";
    for (int i = 0; i < 300; i++) {
        text += "\"k" + std::to_string(i % 200) + "\":" + std::to_string(i) + ",";
        if (i < 200) {
            doc += (i ? ",\"k" : "\"k") + std::to_string(i) +
                   "\":" + std::to_string(i < 100 ? i + 200 : i);
        }
    }
    json many((text + "}").c_str());
    EXPECT_EQ(doc + "}", many.getDoc());

    // A parsed scalar behaves as any node: its text may be replaced, and it may be replaced.
    many.props.get(const_cast<char*>("k7"))->p = tavik::newString("-7");
    EXPECT_EQ(-7, many.getInt("k7", 0));
    many.add("k8", "eight");
    EXPECT_STREQ("eight", many.get("k8", nullptr));
}

TEST(JsonParser, GroupsNestedBeyondTheDepthLimitAreDropped) {
    for (int levels : {json::kMaxDepth - 1, json::kMaxDepth + 40}) {
        std::string text = "{";
        for (int i = 0; i < levels; i++) text += "\"k\":{";
        json j((text + std::string(levels + 1, '}')).c_str());
        int depth = 0;
        for (json* cur = j.getSubset("k"); cur; cur = cur->getSubset("k")) depth++;
        EXPECT_EQ(json::kMaxDepth - 1, depth) << levels;
    }
    std::string arrays = "{\"a\":" + std::string(5000, '[') + std::string(5000, ']') + "}";
    json deep(arrays.c_str());
    EXPECT_EQ(1u, deep.getArraySize("a"));
}

TEST(JsonParser, DocumentsLargerThanTheKeptScratchParseAndLeaveItUsable) {
    // Past the scratch a thread keeps between parses, the scratch is given back after the
    // call; the document and later parses must not depend on it.
    std::string text = "{\"list\":[";
    for (int i = 0; text.size() < (5u << 20); i++) {
        text += (i ? ",{\"n\":" : "{\"n\":") + std::to_string(i) + ",\"s\":\"" +
                std::string(40, 'x') + "\"}";
    }
    text += "]}";
    EXPECT_TRUE(text == json(text.c_str()).getDoc());  // no diff of 5 MB on failure
    EXPECT_STREQ("c", json("{\"a\":[{\"b\":\"c\"}]}").get("a[0]:b", nullptr));
}
