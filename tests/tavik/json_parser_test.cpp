// The lenient JSON text parser and its internal steps.
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

TEST(JsonParser, ScalarsKeepTheirKindAndOrder) {
    json j("{\"b\":1, \"a\":\"x\", \"c\": true}");
    EXPECT_EQ("b,a,c", keys(j));
    EXPECT_STREQ("1", j.get("b", nullptr));
    EXPECT_EQ(tavik::jotValue, j.props.get(const_cast<char*>("b"))->objType());
    EXPECT_STREQ("x", j.get("a", nullptr));
    EXPECT_EQ(tavik::jotString, j.props.get(const_cast<char*>("a"))->objType());
    EXPECT_TRUE(j.getBool("c", false));
}

TEST(JsonParser, NullIsAKeyWithoutNode) {
    json j("{\"n\":null,\"m\":\"null\"}");
    EXPECT_EQ(2u, j.getKeyCount());
    EXPECT_TRUE(j.props.exist(const_cast<char*>("n")));
    EXPECT_EQ(nullptr, j.props.get(const_cast<char*>("n")));
    EXPECT_STREQ("d", j.get("n", "d"));
    EXPECT_STREQ("null", j.get("m", "d"));
}

TEST(JsonParser, NestedObjectsAndArrays) {
    json j("{\"o\":{\"k\":\"v\",\"i\":{\"d\":4}},\"l\":[{\"x\":1},[]],\"e\":{}}");
    EXPECT_EQ("o,l,e", keys(j));
    EXPECT_STREQ("v", j.get("o:k", nullptr));
    EXPECT_EQ(4, j.getInt("o:i:d", 0));
    json::array* l = j.getSubArray("l");
    ASSERT_NE(nullptr, l);
    ASSERT_EQ(2u, l->size());
    EXPECT_EQ(1, l->getJson(0)->getInt("x", 0));
    EXPECT_EQ(0u, l->getArray(1)->size());
    EXPECT_TRUE(j.getSubset("e")->isEmpty());
}

TEST(JsonParser, ScalarsInsideArraysAreDropped) {
    json j("{\"l\":[1, \"two\", true, null, {\"k\":1}]}");
    ASSERT_EQ(1u, j.getArraySize("l"));
    EXPECT_EQ(1, j.getSubArray("l")->getJson(0)->getInt("k", 0));
}

TEST(JsonParser, RejectsTextThatDoesNotOpenWithABrace) {
    json j;
    EXPECT_TRUE(j.generate("   {\"a\":1}  "));
    EXPECT_EQ(1, j.getInt("a", 0));
    EXPECT_FALSE(j.generate(" [{\"a\":1}]"));
    EXPECT_STREQ(" [{\"a\":1}]", j.latestWrongPacket.get());
    EXPECT_TRUE(j.isEmpty());
    EXPECT_FALSE(j.generate("a{}"));
    EXPECT_STREQ("a{}", j.latestWrongPacket.get());
    EXPECT_FALSE(j.generate("\t{}"));  // only blanks are trimmed
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

TEST(JsonParser, EscapesDecode) {
    json j(
        "{\"t\":\"a\\tb\",\"q\":\"say \\\"hi\\\"\",\"x\":\"\\x41 b\",\"u\":\"\\u0041\\u4142\","
        "\"s\":\"\\\\ \\/ \\n\\z\"}");
    EXPECT_STREQ("a\tb", j.get("t", nullptr));
    EXPECT_STREQ("say \"hi\"", j.get("q", nullptr));
    EXPECT_STREQ("A b", j.get("x", nullptr));
    EXPECT_STREQ("ABA", j.get("u", nullptr));  // low byte first
    EXPECT_STREQ("\\ / \nz", j.get("s", nullptr));
    std::unique_ptr<char[]> zero(j.applyEscape("a\\u4100b"));
    EXPECT_STREQ("ab", zero.get());  // a zero low byte writes nothing
    std::unique_ptr<char[]> quoted(j.applyEscape("\"\\t\"\\t"));
    EXPECT_STREQ("\"\\t\"\t", quoted.get());  // inside quotes a backslash is copied
    std::unique_ptr<char[]> empty(j.applyEscape(nullptr));
    EXPECT_STREQ("", empty.get());
}

TEST(JsonParser, EscapesAtTheVeryEndNeverReadPastTheText) {
    json j;
    const char* cases[][2] = {{"a\\", "a"},       {"a\\u", "a"},
                              {"a\\u4", "a\x04"}, {"a\\u414", "a\x14\x04"},
                              {"\\x", ""},        {"\\x4", "\x04"}};
    for (auto& c : cases) {
        exactText in(c[0]);
        std::unique_ptr<char[]> out(j.applyEscape(in.p));
        EXPECT_STREQ(c[1], out.get()) << c[0];
    }
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
    EXPECT_TRUE(j.generate("{\"a\":{\"b\":1}"));
    EXPECT_TRUE(j.isEmpty());  // a key with no value is dropped
}

TEST(JsonParser, DuplicateKeyReplacesNodeAtFirstPosition) {
    json j("{\"a\":1,\"b\":2,\"a\":{\"c\":3}}");
    EXPECT_EQ("a,b", keys(j));
    EXPECT_EQ(3, j.getInt("a:c", 0));
}

TEST(JsonParser, CommasAndLineBreaksInsideStringsSurvive) {
    json j("{\r\n\t\"a\" : \"x, y\r\n\tz\",\n\t\"b\":\"1,2\"\r\n}");
    EXPECT_STREQ("x, y\r\n\tz", j.get("a", nullptr));
    EXPECT_STREQ("1,2", j.get("b", nullptr));
}

TEST(JsonParser, ObjectsInARowAndTrailingTextMerge) {
    json j("{\"a\":1}{\"b\":2} \"c\" \"3\" \"dangling\"");
    EXPECT_EQ("a,b,c", keys(j));
    EXPECT_STREQ("3", j.get("c", nullptr));
}

TEST(JsonParser, InternalSteps) {
    json j;
    tavik::smartPtr<tavik::strArr> t(j.getTokens("\"a b\":[1 [2]] {\"}\":1} w\\ x"));
    ASSERT_EQ(5u, t->length);
    EXPECT_STREQ("\"a b\"", (*t)[0]);
    EXPECT_STREQ(":", (*t)[1]);
    EXPECT_STREQ("[1 [2]]", (*t)[2]);
    EXPECT_STREQ("{\"}\":1}", (*t)[3]);
    EXPECT_STREQ("w\\ x", (*t)[4]);
    EXPECT_EQ(nullptr, j.getTokens("   "));
    std::unique_ptr<char[]> cleaned(j.removeGabage("{\"a,\t\":1,\t\"b\":2}\r\n"));
    EXPECT_STREQ("{\"a,\t\":1 \"b\":2}", cleaned.get());
    EXPECT_TRUE(j.isBraceString("{}", '{', '}'));
    EXPECT_TRUE(j.isBraceString("{\"}\"\\}}", '{', '}'));
    EXPECT_FALSE(j.isBraceString("{", '{', '}'));
    EXPECT_FALSE(j.isBraceString("{}{}", '{', '}'));
    EXPECT_FALSE(j.isBraceString("{a}}", '{', '}'));
    std::unique_ptr<char[]> q(j.removeBrace("\"v\"", '"', '"', false));
    EXPECT_STREQ("v", q.get());
    std::unique_ptr<char[]> kept(j.removeBrace("{a}{b}", '{', '}', false));
    EXPECT_STREQ("{a}{b}", kept.get());
    std::unique_ptr<char[]> forced(j.removeBrace("{a}{b}", '{', '}', true));
    EXPECT_STREQ("a}{b", forced.get());
    EXPECT_EQ(nullptr, j.removeBrace(nullptr, '"', '"', false));
    json target;
    tavik::smartPtr<tavik::strArr> pair(j.getTokens("\"k\" : \"v\""));
    EXPECT_EQ(&target, j.subProcess(&target, pair));
    EXPECT_STREQ("v", target.get("k", nullptr));
}

TEST(JsonParser, GroupsNestedBeyondTheDepthLimitAreDropped) {
    auto nested = [](int levels) {
        std::string text = "{";
        for (int i = 0; i < levels; i++) {
            text += "\"k\":{";
        }
        return text + std::string(levels + 1, '}');
    };
    auto depth = [](json& j) {
        int d = 0;
        for (json* cur = j.getSubset("k"); cur; cur = cur->getSubset("k")) {
            d++;
        }
        return d;
    };
    json kept(nested(json::kMaxDepth - 1).c_str());
    EXPECT_EQ(json::kMaxDepth - 1, depth(kept));
    json cut(nested(json::kMaxDepth + 40).c_str());
    EXPECT_EQ(json::kMaxDepth - 1, depth(cut));
    std::string arrays = "{\"a\":" + std::string(5000, '[') + std::string(5000, ']') + "}";
    json deep(arrays.c_str());
    EXPECT_EQ(1u, deep.getArraySize("a"));
}
