// Protocol records and text filters of the push client: PushMessage, PushUser, ansi2utf and
// utf2ansi.
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "PushClient/BasePushClient.h"

namespace {

// "result|output|bytes consumed" of one filter run with `capacity` bytes of output room.
template <class Filter>
std::string run(Filter filter, std::string in, int capacity = 64) {
    unsigned char out[64] = {};
    int outLen = capacity;
    int inLen = static_cast<int>(in.size());
    int result = filter(out, &outLen, reinterpret_cast<unsigned char*>(&in[0]), &inLen);
    return std::to_string(result) + "|" + std::string(reinterpret_cast<char*>(out), outLen) + "|" +
           std::to_string(inLen);
}

}  // namespace

TEST(PushMessageTest, SkipsTheLeadingCharacterAndSplitsAtTheFirstColon) {
    std::tuple<const char*, int, const char*> cases[] = {
        {"#1:integrity hello", 1, "integrity hello"},
        {"#1:a:b", 1, "a:b"},
        {"12:x", 2, "x"},
        {"#:x", 0, "x"},
        {"#7:", 7, ""},
        {"#99999999999999999999:x", 0, "x"},  // out of range: no code
    };
    for (auto [body, code, message] : cases) {
        PushMessage m;
        m.set(body);
        EXPECT_EQ(code, m.taskCode) << body;
        EXPECT_STREQ(message, m.message.get()) << body;
    }
    // A body without a colon after its first character leaves the fields as they were.
    PushMessage used;
    used.set("#2:true:t");
    for (const char* body : {"#9", "#1 no colon", ":", "", static_cast<const char*>(nullptr)}) {
        used.set(body);
        EXPECT_EQ(2, used.taskCode);
        EXPECT_STREQ("true:t", used.message.get());
    }
}

TEST(PushUserTest, IdentityPutsTheIdentifierInParentheses) {
    EXPECT_STREQ("BOX:(abc)10", PushUser("BOX", "abc", "10").toString());
    EXPECT_STREQ("BOX:10", PushUser("BOX", "", "10").toString());
    EXPECT_STREQ(":", PushUser(nullptr, nullptr, nullptr).toString());
}

TEST(CharsetTest, Ansi2utfPassesSevenBitTextAndStopsAtTheEighthBit) {
    EXPECT_EQ("0|BOX:(x)10\nL\n\n|13", run(ansi2utf, "BOX:(x)10\nL\n\n"));
    EXPECT_EQ("-1|ab|2", run(ansi2utf, "ab\xe9z"));
    EXPECT_EQ("0|abcde|5", run(ansi2utf, "abcdefghijklmnopqrst", 10));  // 5 bytes kept free
}

TEST(CharsetTest, Utf2ansiFoldsSevenBitSequencesOnly) {
    EXPECT_EQ("-2||0", run(utf2ansi, "\xc3\xa9"));
    EXPECT_EQ("-2||0", run(utf2ansi, "\xf8"));
    EXPECT_EQ("0|A|2", run(utf2ansi, "\xc1\x81"));  // overlong
    EXPECT_EQ("0|\x03|2", run(utf2ansi, "\xc3\x41"));
    EXPECT_EQ("-2|ok|2", run(utf2ansi, "ok\x80"));
    EXPECT_EQ("0|a|1", run(utf2ansi, "a\xe0\x80"));  // a 3-byte lead with one byte left
    EXPECT_EQ("0|ab|2", run(utf2ansi, "abc", 2));
    int outLen = 5, inLen = 5;
    unsigned char out[5];
    EXPECT_EQ(0, utf2ansi(out, &outLen, nullptr, &inLen));
    EXPECT_EQ(0, outLen + inLen);
}
