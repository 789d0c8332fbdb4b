// The JSON document model: members in first-insertion order, removal, typed and path reads.
#include <gtest/gtest.h>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

using tavik::json;

TEST(JsonModel, AddKeepsFirstPositionReadsAreTypedAndRemovedKeysStayListed) {
    json j;
    j.add("a", 1);
    j.add("up", "TRUE");
    j.add("a", "x");
    j.add("big", 1LL << 40);
    j.add("t", true);
    EXPECT_STREQ("{\"a\":\"x\",\"up\":\"TRUE\",\"big\":1099511627776,\"t\":true}", j.getDoc());
    EXPECT_FALSE(j.getBool("up", true));  // only the exact text "true" is true
    EXPECT_TRUE(j.getBool("t", false));
    EXPECT_EQ(1LL << 40, j.getLongLong("big", 0));

    j.remove(j.getKey(0));  // the caller may pass the stored key itself
    EXPECT_STREQ("d", j.get("a", "d"));
    tavik::smartPtr<tavik::strArr> keys(j.getKeyArray());
    tavik::smartPtr<tavik::strArr> values(j.getValueArray());
    ASSERT_EQ(4u, values->length);
    EXPECT_STREQ("a", (*keys)[0]);
    EXPECT_EQ(nullptr, (*values)[0]);
    EXPECT_STREQ("TRUE", (*values)[1]);
    // Added again, the key is new to the map and is appended once more.
    j.add("a", "again");
    EXPECT_EQ(5u, j.getKeyCount());
    EXPECT_STREQ("again", j.get("a", nullptr));
    j.reset();
    EXPECT_TRUE(j.isEmpty());
}

TEST(JsonModel, PathReadsWalkObjectsAndArrayElements) {
    json j(
        "{\"a\":[{\"b\":[{\"x\":\"0\"},{\"x\":\"1\"}]}],\"o\":{\"p\":\"q\",\"n\":7},"
        "\"s\":\"text\",\"arr\":[{\"v\":\"first\"}]}");
    j.add("b[0]", "literal");
    // An object member has no text: null, not the default. A missing element makes a bracketed
    // step fail with null; a member that is missing or not an object, with the default. The
    // last part is a plain key, brackets included.
    const char* reads[][2] = {{"a[0]:b[1]:x", "1"}, {"o", nullptr}, {"a[0]:b[5]:x", nullptr},
                              {"s[0]:x", nullptr},  {"s:x", "d"},   {"o:arr[0]", "d"},
                              {"b[0]", "literal"},  {"o:n", "7"}};
    for (auto& r : reads) EXPECT_STREQ(r[1], j.get(r[0], "d")) << r[0];
    EXPECT_EQ(2u, j.getArraySize("a[0]:b"));
    EXPECT_EQ(0u, j.getArraySize("o:p"));

    // Array elements by index; with a path, "a" is a bracketed step (element 0, as it has no
    // index) and b the last part, at position 1, so element 1 of b is taken whatever index says.
    EXPECT_EQ(j.getSubArray("arr")->getJson(0), j.getSubset("arr", 0));
    EXPECT_EQ(nullptr, j.getSubset("arr", 1));
    EXPECT_EQ(nullptr, j.getSubset("arr", -1));
    EXPECT_STREQ("1", j.getSubset("a:b", 7)->get("x", nullptr));
    // A middle part starting with 0x01 is a plain member step; any other goes through the
    // bracketed branch, so a plain object there is not found.
    const char two[] = "{\"two\":[{},{\"x\":\"1\"}]}";
    j.add("\x01p", new json(two));
    j.add("p", new json(two));
    EXPECT_STREQ("1", j.getSubset("\x01p:two", 0)->get("x", nullptr));
    EXPECT_EQ(nullptr, j.getSubset("p:two", 0));
}
