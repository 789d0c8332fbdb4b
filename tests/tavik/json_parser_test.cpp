// The lenient JSON text parser.
#include <gtest/gtest.h>

#include <string.h>

#include <memory>
#include <string>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

using tavik::json;

namespace {

// A heap copy of exactly the text, so that reading past its end is caught by AddressSanitizer.
struct exactText {
    explicit exactText(const std::string& s) : p(new char[s.size() + 1]) {
        memcpy(p, s.c_str(), s.size() + 1);
    }
    ~exactText() { delete[] p; }
    char* p;
};

std::string keys(json& j) {
    std::string out;
    for (unsigned long i = 0; i < j.getKeyCount(); i++) {
        out += std::string(i ? "," : "") + j.getKey(i);
    }
    return out;
}

}  // namespace

TEST(JsonParser, MembersKeepKindOrderAndNestingAndArraysDropScalars) {
    json j(
        "{\"b\":1, \"a\":\"x\", \"n\":null, \"m\":\"null\", \"o\":{\"k\":{\"d\":4}}, "
        "\"l\":[1, \"two\", {\"x\":1}, null, []], \"e\":{}}");
    EXPECT_EQ("b,a,n,m,o,l,e", keys(j));
    EXPECT_STREQ("1", j.get("b", nullptr));
    EXPECT_EQ(tavik::jotValue, j.props.get(const_cast<char*>("b"))->objType());
    EXPECT_EQ(tavik::jotString, j.props.get(const_cast<char*>("a"))->objType());
    // A bare null is a key without node; a quoted one is text.
    EXPECT_TRUE(j.props.exist(const_cast<char*>("n")));
    EXPECT_EQ(nullptr, j.props.get(const_cast<char*>("n")));
    EXPECT_STREQ("d", j.get("n", "d"));
    EXPECT_STREQ("null", j.get("m", "d"));
    EXPECT_EQ(4, j.getInt("o:k:d", 0));
    json::array* l = j.getSubArray("l");
    ASSERT_EQ(2u, l->size());
    EXPECT_EQ(1, l->getJson(0)->getInt("x", 0));
    EXPECT_EQ(0u, l->getArray(1)->size());
    EXPECT_TRUE(j.getSubset("e")->isEmpty());
}

TEST(JsonParser, RejectsTextThatDoesNotOpenWithABrace) {
    json j;
    EXPECT_TRUE(j.generate("   {\"a\":1}  "));
    EXPECT_EQ(1, j.getInt("a", 0));
    for (const char* wrong : {" [{\"a\":1}]", "a{}", "\t{}"}) {  // only blanks are trimmed
        EXPECT_FALSE(j.generate(wrong));
        EXPECT_STREQ(wrong, j.latestWrongPacket.get());
        EXPECT_TRUE(j.isEmpty());
    }
    EXPECT_FALSE(j.generate(""));
    EXPECT_TRUE(j.latestWrongPacket.isEmpty());
    EXPECT_FALSE(j.generate(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(j.generate(static_cast<tavik::byteArr*>(nullptr)));
    // A byte buffer is read for exactly its length.
    unsigned char* bytes = new unsigned char[8];
    memcpy(bytes, "{\"a\":2}X", 8);
    tavik::byteArr data(bytes, 7);
    EXPECT_TRUE(j.generate(&data));
    EXPECT_EQ(2, j.getInt("a", 0));
}

TEST(JsonParser, EscapesDecodeWithoutReadingPastTheText) {
    json j("{\"q\":\"say \\\"hi\\\",\\tyes\"}");
    EXPECT_STREQ("say \"hi\",\tyes", j.get("q", nullptr));
    const char* cases[][2] = {
        {"\\x41 b", "A b"},  {"\\u0041\\u4142", "ABA"},  // low byte first
        {"a\\u4100b", "ab"}, {"\\\\ \\/ \\n\\z", "\\ / \nz"}, {"a\\", "a"}, {"a\\u", "a"},
        {"a\\u4", "a\x04"},  {"a\\u414", "a\x14\x04"},        {"\\x", ""},  {"\\x4", "\x04"}};
    for (auto& c : cases) {
        exactText in(c[0]);
        std::unique_ptr<char[]> out(j.applyEscape(in.p));
        EXPECT_STREQ(c[1], out.get()) << c[0];
    }
}

TEST(JsonParser, TruncatedTextNeverReadsPastItsEnd) {
    json j;
    exactText trailing("{\"a\":\"b\\");
    std::unique_ptr<char[]> cleaned(j.removeGabage(trailing.p));
    EXPECT_STREQ(trailing.p, cleaned.get());
    for (const char* text :
         {"{\"a\":\"b\\", "{\"a\":\"\\u", "{\"a\":[{", "{\"a\":{\"b\":", "{\\"}) {
        exactText in(text);
        j.generate(in.p);
    }
    // An unterminated brace runs to the end as one word: here the value of k.
    exactText unterminated("{\"a\":1} \"k\" {\"b\":2");
    EXPECT_TRUE(j.generate(unterminated.p));
    EXPECT_EQ("a,k", keys(j));
    EXPECT_STREQ("{\"b\":2", j.get("k", nullptr));
}

TEST(JsonParser, LenientTextMergesIntoOneObject) {
    // A repeated key replaces the node at its first position.
    json dup("{\"a\":1,\"b\":2,\"a\":{\"c\":3}}");
    EXPECT_EQ("a,b", keys(dup));
    EXPECT_EQ(3, dup.getInt("a:c", 0));
    // Commas and line breaks inside strings survive; outside they only separate.
    json lines("{\r\n\t\"a\" : \"x, y\r\n\tz\",\n\t\"b\":\"1,2\"\r\n}");
    EXPECT_STREQ("x, y\r\n\tz", lines.get("a", nullptr));
    EXPECT_STREQ("1,2", lines.get("b", nullptr));
    // Objects in a row and trailing words add members; a key without value is dropped.
    json row("{\"a\":1}{\"b\":2} \"c\" \"3\" \"dangling\"");
    EXPECT_EQ("a,b,c", keys(row));
    EXPECT_STREQ("3", row.get("c", nullptr));
    // Arrays take the current key without one of their own, so an object can hold more
    // members than key and value pairs.
    json arrays("{[] \"a\" [] \"b\" [[]] \"c\":1}");
    EXPECT_EQ(",a,b,c", keys(arrays));
    EXPECT_EQ(1u, arrays.getArraySize("b"));

    // Many members, with repeats spread over them: the last value wins at the first position.
    std::string text = "{";
    for (int i = 0; i < 300; i++) {
        text += "\"k" + std::to_string(i % 200) + "\":" + std::to_string(i) + ",";
    }
    json many((text + "}").c_str());
    ASSERT_EQ(200u, many.getKeyCount());
    EXPECT_STREQ("k5", many.getKey(5));
    EXPECT_EQ(205, many.getInt("k5", 0));
    EXPECT_EQ(199, many.getInt("k199", 0));

    // A parsed scalar behaves as any node: its text may be replaced, and it may be replaced.
    many.props.get(const_cast<char*>("k7"))->p = tavik::newString("-7");
    EXPECT_EQ(-7, many.getInt("k7", 0));
    many.add("k8", "eight");
    EXPECT_STREQ("eight", many.get("k8", nullptr));
}

TEST(JsonParser, GroupsNestedBeyondTheDepthLimitAreDropped) {
    auto depth = [](int levels) {
        std::string text = "{";
        for (int i = 0; i < levels; i++) text += "\"k\":{";
        json j((text + std::string(levels + 1, '}')).c_str());
        int d = 0;
        for (json* cur = j.getSubset("k"); cur; cur = cur->getSubset("k")) d++;
        return d;
    };
    EXPECT_EQ(json::kMaxDepth - 1, depth(json::kMaxDepth - 1));
    EXPECT_EQ(json::kMaxDepth - 1, depth(json::kMaxDepth + 40));
    std::string arrays = "{\"a\":" + std::string(5000, '[') + std::string(5000, ']') + "}";
    json deep(arrays.c_str());
    EXPECT_EQ(1u, deep.getArraySize("a"));
}

TEST(JsonParser, DocumentsLargerThanTheKeptScratchParseAndLeaveItUsable) {
    // Past the scratch a thread keeps between parses, the scratch is given back after the
    // call; the document and later parses must not depend on it.
    std::string text = "{\"list\":[";
    for (int i = 0; text.size() < (5u << 20); i++) {
        text += (i ? "," : "") + std::string("{\"n\":") + std::to_string(i) + ",\"s\":\"" +
                std::string(40, 'x') + "\"}";
    }
    json large((text + "]}").c_str());
    unsigned long count = large.getArraySize("list");
    ASSERT_GT(count, 50000u);
    EXPECT_EQ(static_cast<int>(count) - 1,
              large.getSubArray("list")->getJson(count - 1)->getInt("n", -1));
    json small("{\"a\":[{\"b\":\"c\"}]}");
    EXPECT_STREQ("c", small.get("a[0]:b", nullptr));
}
