// Writing a JSON document back to text and its debug listing.
#include <gtest/gtest.h>

#include <string>

#include "tavik/tk_json.h"

using tavik::json;

namespace {

const char kDoc[] =
    "{\"s\":\"x\",\"n\":1,\"o\":{\"a\":\"1\",\"b\":{\"c\":\"2\"},\"l\":[{}]},"
    "\"l\":[{\"y\":\"z\",\"q\":[{}]},{}],\"z\":null}";

const char kTopLines[] = "\ts:x\r\n\to:object\r\n";
const char kObjectContents[] = "\t\ta:1\r\n\t\tb:object\r\n\t\tl:array\r\n\t\t\t[0]\r\n";
const char kArrayLines[] = "\tl:array\r\n";
const char kArrayContents[] = "\t\t[0]\r\n\t\t\ty:z\r\n\t\t\tq:array\r\n\t\t\t\t[0]\r\n\t\t[1]\r\n";
const char kNullLine[] = "\tz:null\r\n";

std::string printed(json& j, const char* prompt) {
    testing::internal::CaptureStdout();
    j.displayAll(prompt);
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(JsonWriter, WritesMembersInOrderOnOneLine) {
    json j;
    EXPECT_STREQ("{}", j.getDoc());
    j.add("a", 1);
    j.add("b", "x");
    j.add("e", "");
    j.add("v", new tavik::jsonObject("", true));
    EXPECT_STREQ("{\"a\":1,\"b\":\"x\",\"e\":\"\",\"v\":}", j.getDoc());
    json parsed(kDoc);
    EXPECT_STREQ(kDoc, parsed.getDoc());
}

TEST(JsonWriter, EscapesAfterQuotingSoAQuoteGetsTwoBackslashes) {
    json j;
    j.add("t", "a\"b\\c\nd\te\rf");
    j.add("k\\\n\"", new tavik::jsonObject("1", true));
    EXPECT_STREQ("{\"t\":\"a\\\\\"b\\\\c\\nd\\te\\rf\",\"k\\\\\\n\"\":1}", j.getDoc());
    EXPECT_STREQ("a\\\"b\\\"", j.getSafeDoubleQuotation("a\"b\""));
    EXPECT_EQ(nullptr, j.getSafeDoubleQuotation(nullptr));
}

TEST(JsonWriter, KeysWithoutNodeAndElementsOfOtherKinds) {
    json j;
    j.add("gone", "v");
    j.add("n", static_cast<tavik::jsonObject*>(nullptr));
    j.remove("gone");
    auto* arr = new json::array();
    arr->add(new json());
    auto* inner = new json::array();
    inner->add(new json());
    arr->add(inner);
    arr->add(new tavik::jsonObject("s", false));
    arr->add(new tavik::jsonObject(2L));
    arr->add(nullptr);
    j.add("l", arr);
    EXPECT_STREQ("{\"gone\":null,\"n\":null,\"l\":[{},[{}],\"s\",2,null]}", j.getDoc());
    EXPECT_STREQ(
        "\tgone:null\r\n\tn:null\r\n\tl:array\r\n\t\t[0]\r\n\t\t[1]\r\n\t\t[2]\r\n"
        "\t\t[3]\r\n\t\t[4]\r\n",
        j.getDisplay());
}

TEST(JsonWriter, DisplayListsStringsObjectsAndArrays) {
    json j(kDoc);
    std::string full =
        std::string(kTopLines) + kObjectContents + kArrayLines + kArrayContents + kNullLine;
    EXPECT_EQ(full, j.getDisplay());
    std::string top = std::string(kTopLines) + kArrayLines + kNullLine;
    json::setDisplayAllDetail(0);
    EXPECT_EQ("", printed(j, "p"));
    json::setDisplayAllDetail(1);
    EXPECT_EQ("JSON: p\r\n", printed(j, "p"));
    json::setDisplayAllDetail(2);
    EXPECT_EQ("JSON: p\r\n" + top, printed(j, "p"));
    json::setDisplayAllDetail(3);
    EXPECT_EQ("JSON: p\r\n" + full, printed(j, "p"));
    json::setDisplayAllDetail(0);
}

TEST(JsonWriter, DisplayShowsRejectedTextOnce) {
    json j;
    EXPECT_FALSE(j.generate("not json"));
    EXPECT_STREQ("not json\r\n", j.getDisplay());
    EXPECT_STREQ("", j.getDisplay());
}

TEST(JsonWriter, DisplayAllFoldsDoublePercentOnly) {
    json j;
    j.add("rate", "100%% of %s %d %");
    json::setDisplayAllDetail(2);
    EXPECT_EQ("JSON: %%p\r\n\trate:100% of %s %d %\r\n", printed(j, "%%%p"));
    json::setDisplayAllDetail(0);
}
