// The lenient JSON text parser, its steps, the writer and the listing, against the plain
// step-by-step parser of json_reference.h on random texts and on documents edited by hand.
// JSON_CHECK_TEXTS sets how many random texts are checked (20000 by default).
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tests/tavik/json_reference.h"

using ref::node;
using tavik::json;

namespace {

std::string printed(json& j, const char* prompt, int detail) {
    json::setDisplayAllDetail(detail);
    testing::internal::CaptureStdout();
    j.displayAll(prompt);
    json::setDisplayAllDetail(0);
    return testing::internal::GetCapturedStdout();
}

// The text given as bytes, then edited by hand (a member replaced, one removed, an array of
// scalars added) in the library and in the reference, written, and printed at a detail level.
std::string editedAndPrinted(const std::string& text, int detail) {
    tavik::byteArr bytes(new unsigned char[text.size()], text.size());
    memcpy(bytes.buffer, text.data(), text.size());
    json j;
    j.generate(&bytes);
    ref::parsed want = ref::generate(text);
    if (j.getKeyCount() > 1) {
        j.add(j.getKey(0), "replaced");
        j.remove(j.getKey(1));
        auto* list = new json::array();
        list->add(new tavik::jsonObject("s\"", false));
        list->add(new tavik::jsonObject());
        list->add(nullptr);
        j.add("added", list);
        want.doc.kids[0] = node(node::text, "replaced");
        want.doc.kids[1] = node(node::none);
        want.doc.add("added", node(node::array));
        want.doc.kids.back().kids = {node(node::text, "s\""), node(node::text), node(node::none)};
    }
    if (ref::getDoc(want.doc) != j.getDoc()) return "getDoc";
    bool alike = printed(j, "p", detail) == ref::display(want.doc, want.wrong, "p", detail);
    return alike ? "" : "displayAll";
}

}  // namespace

TEST(JsonParser, BuildsWritesAndListsWhatTheStepByStepParserDoes) {
    const char* count = getenv("JSON_CHECK_TEXTS");
    unsigned long texts = count ? strtoul(count, nullptr, 10) : 20000;
    ref::textGenerator random(1);
    for (unsigned long i = 0; i < texts; i++) {
        std::string text = random.next();
        std::string difference = ref::check(text);
        if (difference.empty() && i % 4 == 0) {
            // The steps on the text as it is, as the parser cuts it once cleaned, or as the
            // one element of an array.
            difference = ref::checkSteps(i % 12 == 0   ? ref::removeGabage(text)
                                         : i % 12 == 4 ? text
                                                       : "[" + text + "]");
        }
        if (difference.empty() && i % 16 == 1) {
            difference = editedAndPrinted(text, static_cast<int>(i / 16 % 4));
        }
        ASSERT_EQ("", difference) << "text " << i << ": " << testing::PrintToString(text);
    }
}

TEST(JsonParser, NullTextsAreRejectedAndParsedScalarsActAsAnyNode) {
    // A parsed scalar's text may be replaced.
    json j("{\"k7\":1,\"k8\":2}");
    j.props.get(const_cast<char*>("k7"))->p = tavik::newString("-7");
    EXPECT_EQ(-7, j.getInt("k7", 0));
    // The printed listing is a format: double percents fold. A rejected text is listed once.
    j.add("rate", "100%% of %s %d %");
    EXPECT_EQ("JSON: %%p\r\n\trate:100% of %s %d %\r\n", printed(j, "%%%p", 2));
    EXPECT_FALSE(j.generate("not json"));
    EXPECT_STREQ("not json\r\n", j.getDisplay());
    EXPECT_STREQ("", j.getDisplay());
    EXPECT_FALSE(j.generate(static_cast<const char*>(nullptr)) ||
                 j.generate(static_cast<tavik::byteArr*>(nullptr)));
}

TEST(JsonParser, DeepDocumentsAreReadToTheDepthLimitWrittenListedAndFreedOnASmallStack) {
    // On a thread with a small stack, so that whatever recursed once per level would overflow it.
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 512 << 10);
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, &attr, [](void*) -> void* {
        // Objects and arrays taking turns, 9,998 levels, then objects two and three deep:
        // kMaxDepth levels are all read; a group one level deeper is dropped with its key.
        std::string open, close;
        for (int i = 0; i < json::kMaxDepth / 2 - 1; i++) {
            open += "{\"k\":[";
            close += "]}";
        }
        json j((open + "{\"k\":{\"v\":1},\"d\":{\"v\":{}}}" + close).c_str());
        EXPECT_TRUE(open + "{\"k\":{\"v\":1},\"d\":{}}" + close == j.getDoc());
        EXPECT_STREQ("\tk:array\r\n\t\t[0]\r\n\t\t\tk:array\r\n\t\t\t\t[0]\r\n", j.getDisplay());
        return nullptr;
    }, nullptr));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

TEST(JsonParser, LargeDocumentsParseLeaveTheScratchUsableAndGiveTheirMemoryBack) {
    std::string text = "{\"list\":[{}";
    while (text.size() < (5u << 20)) text += ",{\"n\":7,\"s\":\"" + std::string(40, 'x') + "\"}";
    text += "]}";
    EXPECT_TRUE(text == json(text.c_str()).getDoc());  // no diff of 5 MB on failure
    // A dropped document gives its memory back: a daemon parses one per message.
    auto inUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const size_t before = inUse();
    for (int i = 0; i < 3; i++) json(text.c_str()).getInt("none", 0);
    EXPECT_LT(inUse(), before + (1u << 20));
    EXPECT_STREQ("c", json("{\"a\":[{\"b\":\"c\"}]}").get("a[0]:b", nullptr));
}
