// Protocol records and text filters of the push client: PushMessage, PushUser, the session
// identifier, ansi2utf and utf2ansi.
#include <cctype>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "PushClient/BasePushClient.h"
#include "tavik/tk_common.h"

namespace {

struct filtered {
    int result;
    std::string out;
    int consumed;
};

filtered runAnsi2utf(const std::string& in, int capacity) {
    std::string input = in;
    unsigned char out[64] = {};
    int outLen = capacity;
    int inLen = static_cast<int>(input.size());
    int result = ansi2utf(out, &outLen, reinterpret_cast<unsigned char*>(&input[0]), &inLen);
    return {result, std::string(reinterpret_cast<char*>(out), static_cast<size_t>(outLen)), inLen};
}

filtered runUtf2ansi(const std::string& in, int capacity = 64) {
    unsigned char out[64] = {};
    int outLen = capacity;
    int inLen = static_cast<int>(in.size());
    int result = utf2ansi(out, &outLen, reinterpret_cast<const unsigned char*>(in.data()), &inLen);
    return {result, std::string(reinterpret_cast<char*>(out), static_cast<size_t>(outLen)), inLen};
}

}  // namespace

TEST(PushMessageTest, SkipsLeadingCharacterAndSplitsAtFirstColon) {
    PushMessage m;
    EXPECT_EQ(0, m.taskCode);
    m.set("#1:integrity hello");
    EXPECT_EQ(1, m.taskCode);
    EXPECT_STREQ("integrity hello", m.message.get());

    m.set("#1:a:b");
    EXPECT_STREQ("a:b", m.message.get());
    m.set("12:x");  // the first character is never a digit of the code
    EXPECT_EQ(2, m.taskCode);
    m.set("#:x");
    EXPECT_EQ(0, m.taskCode);
    m.set("#7:");
    EXPECT_EQ(7, m.taskCode);
    EXPECT_STREQ("", m.message.get());
}

TEST(PushMessageTest, BodyWithoutColonLeavesFieldsAlone) {
    PushMessage fresh;
    fresh.set("#1 no colon");
    EXPECT_EQ(0, fresh.taskCode);
    EXPECT_STREQ("", fresh.message.get());
    fresh.set(":");  // the colon is the skipped character
    fresh.set("");
    fresh.set(nullptr);
    EXPECT_EQ(0, fresh.taskCode);

    PushMessage used;
    used.set("#2:true:t");
    used.set("#9");
    EXPECT_EQ(2, used.taskCode);
    EXPECT_STREQ("true:t", used.message.get());
    used.set("#99999999999999999999:x");  // out of range: ignored code
    EXPECT_EQ(0, used.taskCode);
}

TEST(PushUserTest, IdentityPutsUuidInParentheses) {
    EXPECT_STREQ("BOX:(abc)10", PushUser("BOX", "abc", "10").toString());
    EXPECT_STREQ("BOX:10", PushUser("BOX", "", "10").toString());
    EXPECT_STREQ("BOX:10", PushUser("BOX", nullptr, "10").toString());
    EXPECT_STREQ(":", PushUser(nullptr, nullptr, nullptr).toString());
}

TEST(PushUserTest, RandomUuidIsThirtyTwoLowerHexDigitsAndFresh) {
    std::string first = tavik::uuid::randomUUID();
    std::string second = tavik::uuid::randomUUID();
    ASSERT_EQ(32u, first.size());
    for (char c : first) {
        EXPECT_TRUE(isdigit(static_cast<unsigned char>(c)) || (c >= 'a' && c <= 'f')) << first;
    }
    EXPECT_NE(first, second);
}

TEST(CharsetTest, Ansi2utfPassesSevenBitTextAndStopsAtEighthBit) {
    filtered plain = runAnsi2utf("BOX:(x)10\nL\n\n", 64);
    EXPECT_EQ(0, plain.result);
    EXPECT_EQ("BOX:(x)10\nL\n\n", plain.out);
    EXPECT_EQ(13, plain.consumed);

    filtered cut = runAnsi2utf("ab\xe9z", 64);
    EXPECT_EQ(-1, cut.result);
    EXPECT_EQ("ab", cut.out);
    EXPECT_EQ(2, cut.consumed);

    filtered small = runAnsi2utf("abcdefghijklmnopqrst", 10);  // five bytes of headroom
    EXPECT_EQ(0, small.result);
    EXPECT_EQ("abcde", small.out);
    EXPECT_EQ(5, small.consumed);
}

TEST(CharsetTest, Utf2ansiFoldsSevenBitSequencesOnly) {
    EXPECT_EQ(-2, runUtf2ansi("\xc3\xa9").result);
    filtered overlong = runUtf2ansi("\xc1\x81");
    EXPECT_EQ(0, overlong.result);
    EXPECT_EQ("A", overlong.out);
    filtered broken = runUtf2ansi("\xc3\x41");
    EXPECT_EQ(0, broken.result);
    EXPECT_EQ(std::string("\x03", 1), broken.out);
    EXPECT_EQ(2, broken.consumed);

    filtered stray = runUtf2ansi("ok\x80");
    EXPECT_EQ(-2, stray.result);
    EXPECT_EQ("ok", stray.out);
    EXPECT_EQ(-2, runUtf2ansi("\xf8").result);
    filtered shortTail = runUtf2ansi("a\xe0\x80");  // a 3-byte lead with one byte left
    EXPECT_EQ(0, shortTail.result);
    EXPECT_EQ(1, shortTail.consumed);
    filtered full = runUtf2ansi("abc", 2);
    EXPECT_EQ("ab", full.out);
    EXPECT_EQ(2, full.consumed);

    int outLen = 5;
    int inLen = 5;
    unsigned char out[5];
    EXPECT_EQ(0, utf2ansi(out, &outLen, nullptr, &inLen));
    EXPECT_EQ(0, outLen);
    EXPECT_EQ(0, inLen);
}
