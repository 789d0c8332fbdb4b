// The JSON document model: members in first-insertion order, removal, typed and path reads.
#include <gtest/gtest.h>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

using tavik::json;

namespace {

const char kDoc[] =
    "{\"a\":[{\"b\":[{\"x\":\"0\"},{\"x\":\"1\"}]}],\"o\":{\"p\":\"q\",\"n\":7},\"s\":\"text\","
    "\"arr\":[{\"v\":\"first\"}]}";

}  // namespace

TEST(JsonModel, AddReplacesNodeAndKeepsFirstPositionAndReadsAreTyped) {
    json j;
    j.add("a", 1);
    j.add("up", "TRUE");
    j.add("a", "x");
    j.add("big", 1LL << 40);
    j.add("t", true);
    ASSERT_EQ(4u, j.getKeyCount());
    EXPECT_STREQ("a", j.getKey(0));
    EXPECT_EQ(nullptr, j.getKey(4));
    EXPECT_STREQ("x", j.get("a", "d"));
    EXPECT_EQ(tavik::jotString, j.props.get(const_cast<char*>("a"))->objType());
    EXPECT_FALSE(j.getBool("up", true));  // only the exact text "true" is true
    EXPECT_TRUE(j.getBool("t", false));
    EXPECT_EQ(1LL << 40, j.getLongLong("big", 0));
    EXPECT_EQ(-3, j.getInt("nothing", -3));
}

TEST(JsonModel, RemovedKeyStaysListedWithoutNode) {
    json j;
    j.add("k", "v");
    j.add("m", "w");
    j.remove(j.getKey(0));  // the caller may pass the stored key itself
    EXPECT_EQ(2u, j.getKeyCount());
    EXPECT_STREQ("k", j.getKey(0));
    EXPECT_STREQ("d", j.get("k", "d"));
    tavik::smartPtr<tavik::strArr> keys(j.getKeyArray());
    tavik::smartPtr<tavik::strArr> values(j.getValueArray());
    ASSERT_EQ(2u, values->length);
    EXPECT_STREQ("k", (*keys)[0]);
    EXPECT_EQ(nullptr, (*values)[0]);
    EXPECT_STREQ("w", (*values)[1]);
    // Added again, the key is new to the map and is appended once more.
    j.add("k", "again");
    EXPECT_EQ(3u, j.getKeyCount());
    EXPECT_STREQ("again", j.get("k", nullptr));
    j.reset();
    EXPECT_TRUE(j.isEmpty());
}

TEST(JsonModel, PathReadsWalkObjectsAndArrayElements) {
    json j(kDoc);
    EXPECT_STREQ("q", j.get("o:p", "d"));
    EXPECT_EQ(7, j.getInt("o:n", 0));
    EXPECT_STREQ("1", j.get("a[0]:b[1]:x", "d"));
    EXPECT_EQ(2u, j.getArraySize("a[0]:b"));
    EXPECT_EQ(0u, j.getArraySize("o:p"));
    // An object member has no text: null, not the default.
    EXPECT_EQ(nullptr, j.get("o", "d"));
    // A missing element makes a bracketed step fail with null; a missing member with the default.
    EXPECT_EQ(nullptr, j.get("a[0]:b[5]:x", "d"));
    EXPECT_EQ(nullptr, j.get("s[0]:x", "d"));
    EXPECT_STREQ("d", j.get("missing:x", "d"));
    EXPECT_STREQ("d", j.get("s:x", "d"));
    // The last part is a plain key, brackets included.
    EXPECT_STREQ("d", j.get("o:arr[0]", "d"));
    j.add("b[0]", "literal");
    EXPECT_STREQ("literal", j.get("b[0]", "d"));
}

TEST(JsonModel, ArrayElementLookupByPathUsesLastPartPosition) {
    json j(kDoc);
    // "a" is a bracketed step (element 0, as it has no index); b is the last part, at
    // position 1, so element 1 of b is returned whatever index says.
    json* e = j.getSubset("a:b", 7);
    ASSERT_NE(nullptr, e);
    EXPECT_STREQ("1", e->get("x", nullptr));
    EXPECT_EQ(j.getSubArray("arr")->getJson(0), j.getSubset("arr", 0));
    EXPECT_EQ(nullptr, j.getSubset("arr", 1));
    EXPECT_EQ(nullptr, j.getSubset("arr", -1));
    // A middle part starting with 0x01 is a plain member step; any other goes through the
    // bracketed branch, so a plain object there is not found.
    json holder;
    holder.add("\x01p", new json("{\"two\":[{},{\"x\":\"1\"}]}"));
    holder.add("p", new json());
    EXPECT_STREQ("1", holder.getSubset("\x01p:two", 0)->get("x", nullptr));
    EXPECT_EQ(nullptr, holder.getSubset("p:two", 0));
}

TEST(JsonModel, ArrayRemoveUnlinksTheFirstMatchWithoutDeleting) {
    json::array arr;
    auto* a = new json();
    auto* b = new json();
    arr.add(a), arr.add(b), arr.add(a);
    arr.remove(a);
    EXPECT_EQ(b, arr.getJson(0));
    EXPECT_EQ(a, arr.getJson(1));
    EXPECT_EQ(nullptr, arr.getJson(2));
    arr.remove(b);
    delete b;  // ownership came back
}
