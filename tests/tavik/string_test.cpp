#include "tavik/tk_string.h"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <memory>
#include <string>
#include <vector>

using tavik::strArr;

namespace {

// The wildcard rules written as the plain recursion they are defined by.
bool referenceWildmask(const char* t, const char* p) {
    if (*p == 0) {
        return true;
    }
    for (; *p; ++p, ++t) {
        if (*p == '*') {
            for (const char* rest = t; *rest; ++rest) {
                if (referenceWildmask(rest, p + 1)) {
                    return true;
                }
            }
            return *t == 0;  // a star meeting the end of the text matches
        }
        if (*t == 0 || (*p == '?' && *t == '.') ||
            (*p != '?' && tolower((unsigned char)*p) != tolower((unsigned char)*t))) {
            return false;
        }
    }
    return *t == 0;
}

std::vector<std::string> piecesOf(const char* text, const char* delim) {
    std::unique_ptr<strArr> parts(tavik::string(text).split(delim));
    std::vector<std::string> out;
    for (size_t i = 0; i < parts->length; ++i) {
        out.push_back((*parts)[i] ? (*parts)[i] : "<null>");
    }
    return out;
}

}  // namespace

TEST(StringTest, NullTextDiffersFromEmptyAndWritersMayReadTheirOwnText) {
    EXPECT_EQ(nullptr, tavik::string(nullptr, 3).get());
    EXPECT_STREQ("", tavik::string(nullptr, 0).get());
    EXPECT_EQ('b', tavik::string("a\0b", 3).get()[2]);

    tavik::string s("held");
    s.set(nullptr, 4);  // releases the old text (the leak checker watches this)
    s += static_cast<const char*>(nullptr);
    s += '\0';
    EXPECT_EQ(nullptr, s.get());
    s = "protocol";
    s = s.get();
    s = s.get() + 3;
    s.set(s.get() + 1, 3);
    s += s.get();
    EXPECT_STREQ("ocooco", s.get());
    EXPECT_EQ(8, s.format("%s%s", s.get(), "!!"));  // the new length
    tavik::string copy(s);
    tavik::string& alias = copy;
    copy = alias;
    EXPECT_STREQ("ocooco!!", copy.get());
    EXPECT_NE(copy.get(), s.get());

    EXPECT_EQ(0, s.format(nullptr));
    EXPECT_STREQ("ocooco!!", s.get());
    // A wide character the C locale cannot encode makes the measuring call fail.
    const wchar_t unencodable[] = {0x10FFFF, 0};
    EXPECT_EQ(5, s.format("%ls", unencodable));
    EXPECT_STREQ("-ERR-", s.get());
}

TEST(StringTest, ReadsClampToTheText) {
    tavik::string s("abcdef");
    EXPECT_EQ(0, s.charAt(6));
    EXPECT_EQ(0, s.charAt(-1));
    char* empty = s.substring(0, 0);
    EXPECT_STREQ("", empty);
    EXPECT_EQ(empty, tavik::string().substring(0, 0));  // one static text, not pooled
    EXPECT_NE(s.get(), s.substring(0, -1));
    const struct {
        const char* got;
        const char* want;
    } slices[] = {
        {s.substring(2, -1), "cdef"}, {s.substring(1, 3), "bc"}, {s.mid(2, 0), "cdef"},
        {s.right(2), "ef"},           {s.cutTail(2), "abcd"},    {s.substring(2, 100), "cdef"},
        {s.substring(10, -1), ""},    {s.substring(4, 2), ""},   {s.left(100), "abcdef"},
        {s.right(100), "abcdef"},     {s.mid(4, 100), "ef"},     {s.cutTail(100), ""},
        {s.cutTail(7), "abcdef"},     {s.cutTail(-3), "abcdef"}, {s.cutTail(INT_MIN), "abcdef"},
    };
    for (const auto& slice : slices) {
        EXPECT_STREQ(slice.want, slice.got);
    }
    EXPECT_EQ(nullptr, tavik::string().left(1));
    EXPECT_EQ(empty, s.cutTail(6));

    // A text taken with its length reads past its NULs, never past its allocation.
    tavik::string held("a\0b", 3);
    const int reads[] = {held.charAt(2), held[1], held[3], held[4], held.charAt(-1), s[6], s[7]};
    EXPECT_EQ((std::vector<int>{'b', 0, 0, 0, 0, 0, 0}), std::vector<int>(reads, reads + 7));
    held.set("xy\0z", 4);
    EXPECT_EQ('z', held.charAt(3));
    held = "q";
    EXPECT_EQ(0, held.charAt(3));
}

TEST(StringTest, AffixesAndSearchesStayInsideTheText) {
    tavik::string s("Hello.TXT");
    EXPECT_TRUE(s.startsWith<true>(".TXT", 5));
    EXPECT_FALSE(s.startsWith<true>("x", 100));
    EXPECT_FALSE(tavik::string().startsWith(""));
    EXPECT_FALSE(s.endsWith("xHello.TXT"));
    EXPECT_FALSE(tavik::string("").endsWith(""));
    EXPECT_EQ(-1, s.indexOf('.', 100));
    EXPECT_EQ(-1, tavik::string().indexOf<true>("a"));
    // Matches never overlap: the search goes on from the end of each one.
    EXPECT_EQ(2, tavik::string("aaaa").lastIndexOf<true>("aa"));
    EXPECT_EQ(0, tavik::string("aaa").lastIndexOf<true>("aa"));
}

TEST(StringTest, SplitDropsInnerAndLeadingEmptyPiecesButKeepsTheLast) {
    using Pieces = std::vector<std::string>;
    EXPECT_EQ((Pieces{"a", "b", ""}), piecesOf(",a,,b,", ","));
    EXPECT_EQ((Pieces{"a", "b", "c"}), piecesOf("abc", ""));
    EXPECT_EQ((Pieces{""}), piecesOf("", ""));
    EXPECT_EQ((Pieces{"k", "v:w", "x"}), piecesOf("k::v:w::::x", "::"));
    EXPECT_EQ((Pieces{"a,b"}), piecesOf("a,b", nullptr));
    EXPECT_EQ(0u, std::unique_ptr<strArr>(tavik::string().split(","))->length);
    EXPECT_EQ(nullptr, tavik::string().split2vector(","));
}

TEST(StringTest, WildmaskIgnoresCaseAndQuestionMarkNeverMatchesDot) {
    EXPECT_TRUE(tavik::string("A.TXT").wildmask("*.txt"));
    EXPECT_FALSE(tavik::string("a.c").wildmask("a?c"));
    EXPECT_TRUE(tavik::string("a").wildmask("a*b"));
    // Patterns with many stars stay fast.
    std::string longText = std::string(4000, 'a') + "b";
    EXPECT_FALSE(tavik::string(longText.c_str()).wildmask("*a*a*a*a*a*a*a*ac"));

    // Every text and pattern of up to four characters over small alphabets.
    auto spell = [](int code, const char* alphabet, int base, char* out) {
        for (; code > 0; code = (code - 1) / base) {
            *out++ = alphabet[(code - 1) % base];
        }
        *out = 0;
    };
    char text[8], pattern[8];
    for (int tc = 0; tc < 4 + 16 + 64 + 256 + 1; ++tc) {
        spell(tc, "abA.", 4, text);
        tavik::string s(text);
        for (int pc = 0; pc < 5 + 25 + 125 + 625 + 1; ++pc) {
            spell(pc, "aB.*?", 5, pattern);
            ASSERT_EQ(referenceWildmask(text, pattern), s.wildmask(pattern))
                << "text '" << text << "' pattern '" << pattern << "'";
        }
    }
}

TEST(StringTest, MatchesThrowsOnBadPattern) {
    tavik::string s("ABc");
    EXPECT_TRUE(s._matches("^ab", false));
    EXPECT_FALSE(s._matches("^ab", true));
    EXPECT_FALSE(tavik::string()._matches("x*", true));
    try {
        s._matches("[", true);
        FAIL() << "no exception";
    } catch (const char* what) {
        EXPECT_STREQ("Can't compliation for given RegEx patterns", what);
    }
}

TEST(StringTest, StrArrCollectsTextsUpToNull) {
    strArr listed("one", "two", static_cast<const char*>(nullptr), "three", nullptr);
    ASSERT_EQ(2u, listed.length);
    std::unique_ptr<strArr> heap(tavik::newStrArr("a", "b", "c", nullptr));
    heap->set("x", "y", nullptr);
    EXPECT_STREQ("c", (*heap)[2]);
    heap->_new(0);
    EXPECT_NE(nullptr, heap->buffer);
}
