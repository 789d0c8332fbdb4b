// The JSON document model: members in first-insertion order, removal, typed and path reads.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

using tavik::json;

TEST(JsonModel, AddFormatsEachKindKeepsFirstPositionAndReadsAreTyped) {
    json j;
    j.add("i", -7);
    j.add("up", "TRUE");
    j.add("i", "x");  // replaced in place, now quoted text
    j.add("i", -7);
    j.add("l", 4000000000L);
    j.add("big", -3000000000LL);
    j.add("d", 2.5);
    j.add("t", true);
    j.add("f", false);
    j.add("oct", "010");
    j.add("o", new json("{\"n\":\"5\"}"));
    EXPECT_STREQ(
        "{\"i\":-7,\"up\":\"TRUE\",\"l\":4000000000,\"big\":-3000000000,\"d\":2.500000,"
        "\"t\":true,\"f\":false,\"oct\":\"010\",\"o\":{\"n\":\"5\"}}",
        j.getDoc());
    // Every typed read, with defaults no member holds: int long long-long double bool bool.
    // Only the exact text "true" is true; numbers read in base 10; an object member, a
    // missing one and a removed one give the defaults.
    j.remove("f");
    std::ostringstream all;
    for (const char* key : {"i", "up", "big", "d", "t", "oct", "o:n", "o", "none", "f"}) {
        all << j.getInt(key, -1) << ' ' << j.getLong(key, -2) << ' ' << j.getLongLong(key, -3)
            << ' ' << j.getDouble(key, -4.5) << ' ' << j.getBool(key, true)
            << j.getBool(key, false) << '|';
    }
    EXPECT_EQ(
        "-7 -7 -7 -7 00|0 0 0 0 00|1294967296 -3000000000 -3000000000 -3e+09 00|2 2 2 2.5 00|"
        "0 0 0 0 11|10 10 10 10 00|5 5 5 5 00|-1 -2 -3 -4.5 10|-1 -2 -3 -4.5 10|"
        "-1 -2 -3 -4.5 10|",
        all.str());

    // Removed and added again, a key is new to the map and is appended once more.
    j.remove(j.getKey(0));  // the caller may pass the stored key itself
    j.add("i", "again");
    tavik::smartPtr<tavik::strArr> keys(j.getKeyArray()), values(j.getValueArray());
    ASSERT_EQ(10u, values->length);
    std::string listed;
    for (size_t i = 0; i < 10; i++) {
        listed += std::string((*keys)[i]) + "=" + ((*values)[i] ? (*values)[i] : "-") + " ";
    }
    EXPECT_EQ("i=again up=TRUE l=4000000000 big=-3000000000 d=2.500000 t=true f=- oct=010 o=- "
              "i=again ",
              listed);
    EXPECT_EQ(nullptr, j.getKey(10));
    j.reset();
    EXPECT_TRUE(j.isEmpty());
    EXPECT_STREQ("d", j.get("up", "d"));
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
                              {"b[0]", "literal"},  {"o:n", "7"},   {"a:b:x", "d"}};
    for (auto& r : reads) EXPECT_STREQ(r[1], j.get(r[0], "d")) << r[0];
    EXPECT_EQ(2u, j.getArraySize("a[0]:b"));
    EXPECT_EQ(1u, j.getArraySize("a"));
    EXPECT_EQ(0u, j.getArraySize("o:p"));
    EXPECT_EQ(0u, j.getArraySize(nullptr));
    EXPECT_EQ(nullptr, j.getSubArray("s"));
    EXPECT_EQ(nullptr, j.getSubset("s"));

    // Array elements by index; with a path, "a" is a bracketed step (element 0, as it has no
    // index) and b the last part, at position 1, so element 1 of b is taken whatever index says.
    json::array* arr = j.getSubArray("arr");
    EXPECT_EQ(arr->getJson(0), j.getSubset("arr", 0));
    EXPECT_EQ(nullptr, j.getSubset("arr", 1));
    EXPECT_EQ(nullptr, j.getSubset("arr", -1));
    EXPECT_STREQ("1", j.getSubset("a:b", 7)->get("x", nullptr));
    // Elements are read by kind: an object is no array and an array no object.
    json::array* inner = new json::array;
    arr->add(inner);
    arr->add(new tavik::jsonObject("s", false));
    for (unsigned long e = 0; e < 3; e++) {
        EXPECT_EQ(e == 0 ? arr->getAt(0) : nullptr, arr->getJson(e)) << e;
        EXPECT_EQ(e == 1 ? inner : nullptr, arr->getArray(e)) << e;
    }
    arr->remove(inner);  // unlinked, not deleted: ours again
    delete inner;
    EXPECT_EQ(2u, j.getArraySize("arr"));
    EXPECT_STREQ("s", arr->getAt(1)->get());
    // A middle part starting with 0x01 is a plain member step (any other, as "a" above, goes
    // through the bracketed branch).
    j.add("\x01p", new json("{\"two\":[{},{\"x\":\"1\"}]}"));
    EXPECT_STREQ("1", j.getSubset("\x01p:two", 0)->get("x", nullptr));
}
