// Writing a JSON document built by hand back to text, and its debug listing. Parsed documents
// are written and listed in json_parser_test.
#include <gtest/gtest.h>

#include <string>

#include "tavik/tk_json.h"

using tavik::json;

namespace {

std::string printed(json& j, const char* prompt, int detail) {
    json::setDisplayAllDetail(detail);
    testing::internal::CaptureStdout();
    j.displayAll(prompt);
    json::setDisplayAllDetail(0);
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(JsonWriter, WritesMembersInOrderEscapesAfterQuotingAndMissingNodesAsNull) {
    json j;
    EXPECT_STREQ("{}", j.getDoc());
    j.add("a", 1);
    j.add("e", "");
    j.add("v", new tavik::jsonObject("", true));
    // A quote gets two backslashes: the quote escaping runs before the backslash doubling.
    j.add("t", "a\"b\\c\nd\te\rf");
    j.add("k\\\n\"", new tavik::jsonObject("1", true));
    j.add("gone", "v");
    j.add("n", static_cast<tavik::jsonObject*>(nullptr));
    j.remove("gone");
    auto* arr = new json::array();
    arr->add(new json());
    auto* inner = new json::array();
    inner->add(new json());
    arr->add(inner);
    arr->add(new tavik::jsonObject("s", false));
    arr->add(nullptr);
    j.add("l", arr);
    EXPECT_STREQ(
        "{\"a\":1,\"e\":\"\",\"v\":,\"t\":\"a\\\\\"b\\\\c\\nd\\te\\rf\",\"k\\\\\\n\"\":1,"
        "\"gone\":null,\"n\":null,\"l\":[{},[{}],\"s\",null]}",
        j.getDoc());
    // The listing leaves bare values out and shows texts as they are.
    EXPECT_STREQ(
        "\te:\r\n\tt:a\"b\\c\nd\te\rf\r\n\tgone:null\r\n\tn:null\r\n\tl:array\r\n"
        "\t\t[0]\r\n\t\t[1]\r\n\t\t[2]\r\n\t\t[3]\r\n",
        j.getDisplay());
}

TEST(JsonWriter, PrintedListingFoldsDoublePercentsAndARejectedTextIsListedOnce) {
    json rate;
    rate.add("rate", "100%% of %s %d %");
    EXPECT_EQ("JSON: %%p\r\n\trate:100% of %s %d %\r\n", printed(rate, "%%%p", 2));
    EXPECT_FALSE(rate.generate("not json"));
    EXPECT_STREQ("not json\r\n", rate.getDisplay());
    EXPECT_STREQ("", rate.getDisplay());
}
