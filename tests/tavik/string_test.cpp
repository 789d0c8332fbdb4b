#include "tavik/tk_string.h"

#include "tavik/tk_list.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <memory>

using tavik::strArr;
using tavik::text_vector;

namespace {

// The wildcard rules written as the plain recursion they are defined by.
bool referenceWildmask(const char* t, const char* p) {
    if (*p == 0) {
        return true;
    }
    for (; *p; ++p) {
        if (*p == '*') {
            if (*t == 0) {
                return true;
            }
            for (; *t; ++t) {
                if (referenceWildmask(t, p + 1)) {
                    return true;
                }
            }
            return false;
        }
        if (*t == 0 || (*p == '?' && *t == '.') ||
            (*p != '?' && tolower((unsigned char)*p) != tolower((unsigned char)*t))) {
            return false;
        }
        ++t;
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

using Pieces = std::vector<std::string>;

}  // namespace

TEST(StringTest, ConstructionTellsNoTextFromEmptyText) {
    EXPECT_EQ(nullptr, tavik::string(static_cast<const char*>(nullptr)).get());
    EXPECT_EQ(nullptr, tavik::string(nullptr, 3).get());
    tavik::string empty(nullptr, 0);
    ASSERT_NE(nullptr, empty.get());
    EXPECT_TRUE(empty.isEmpty());
    tavik::string withNul("a\0b", 3);
    EXPECT_EQ(1u, withNul.getLength());
    EXPECT_EQ('b', withNul.get()[2]);
    EXPECT_STREQ("-42", tavik::string(-42).get());
}

TEST(StringTest, AssignmentAndAppendMayReadTheirOwnText) {
    tavik::string s("abcdef");
    s.set("abc", 0);
    EXPECT_EQ(nullptr, s.get());
    s = "held";
    s.set(nullptr, 4);  // releases the old text (the leak checker watches this)
    EXPECT_EQ(nullptr, s.get());
    s += static_cast<const char*>(nullptr);
    s += '\0';
    EXPECT_EQ(nullptr, s.get());

    s = "protocol";
    s = s.get();
    s = s.get() + 3;
    EXPECT_STREQ("tocol", s.get());
    s.set(s.get() + 1, 3);
    s += s.get();
    s += '\0';
    EXPECT_STREQ("ocooco", s.get());
    EXPECT_EQ(8, s.format("%s%s", s.get(), "!!"));
    tavik::string copy(s);
    tavik::string& alias = copy;
    copy = alias;
    EXPECT_STREQ("ocooco!!", copy.get());
    EXPECT_NE(copy.get(), s.get());
}

TEST(StringTest, FormatReturnsNewLength) {
    tavik::string s("old");
    EXPECT_EQ(3, s.format("%d-%s", 7, "x"));
    EXPECT_STREQ("7-x", s.get());
    EXPECT_EQ(0, s.format(nullptr));
    EXPECT_STREQ("7-x", s.get());
    EXPECT_EQ(1, s.format("a%cb", 0));
    // A wide character the C locale cannot encode makes the measuring call fail.
    const wchar_t unencodable[] = {0x10FFFF, 0};
    EXPECT_EQ(5, s.format("%ls", unencodable));
    EXPECT_STREQ("-ERR-", s.get());
}

TEST(StringTest, ReadingToleratesNoTextAndOutOfRangeIndices) {
    tavik::string none;
    EXPECT_TRUE(none.isEmpty());
    EXPECT_EQ(0, none.intValue());
    EXPECT_EQ(nullptr, none.cloneText());
    EXPECT_EQ(0, none.charAt(0));
    tavik::string s("abc");
    EXPECT_EQ('c', s[2]);
    EXPECT_EQ(0, s.charAt(3));
    EXPECT_EQ(0, s.charAt(-1));
    EXPECT_TRUE(tavik::string("True").boolValue());
    EXPECT_FALSE(tavik::string("1").boolValue());
    EXPECT_FALSE(tavik::string("yes").boolValue());
}

TEST(StringTest, AffixesNeedTextAtTheirPlace) {
    tavik::string s("Hello.TXT");
    EXPECT_TRUE(s.equals<false>("hello.txt"));
    EXPECT_FALSE(s.equals("hello.txt"));
    EXPECT_TRUE(tavik::string().equals(nullptr));
    EXPECT_FALSE(tavik::string().equals(""));
    EXPECT_TRUE(s.startsWith<true>(".TXT", 5));
    EXPECT_FALSE(s.startsWith<true>(".TXTX", 5));
    EXPECT_FALSE(s.startsWith<true>("x", 100));
    EXPECT_FALSE(tavik::string().startsWith(""));
    EXPECT_TRUE(s.endsWith<false>(".txt"));
    EXPECT_FALSE(s.endsWith("xHello.TXT"));
    EXPECT_FALSE(tavik::string("").endsWith(""));
}

TEST(StringTest, SearchesNeverOverlapMatches) {
    EXPECT_EQ(2, tavik::string("aaaa").lastIndexOf<true>("aa"));
    EXPECT_EQ(0, tavik::string("aaa").lastIndexOf<true>("aa"));
    tavik::string line("key=value; Key=other");
    EXPECT_EQ(-1, line.lastIndexOf('x'));
    EXPECT_EQ(14, line.indexOf('=', 4));
    EXPECT_EQ(-1, line.indexOf('=', 100));
    EXPECT_EQ(-1, line.indexOf<true>("key", 1));
    EXPECT_EQ(11, line.lastIndexOf<false>("key"));
    EXPECT_EQ(15, line.indexOf<true>("other"));
    EXPECT_EQ(-1, line.indexOf<true>("otherx"));
    EXPECT_EQ(20, line.indexOf<true>(""));
    EXPECT_EQ(-1, tavik::string().indexOf<true>("a"));
}

TEST(StringTest, ScratchSlicesClampToTheText) {
    tavik::string s("abcdef");
    char* empty = s.substring(0, 0);
    EXPECT_STREQ("", empty);
    EXPECT_EQ(empty, tavik::string().substring(0, 0));  // one static text, not pooled
    EXPECT_NE(s.get(), s.substring(0, -1));
    EXPECT_STREQ("cdef", s.substring(2, -1));
    EXPECT_STREQ("bc", s.substring(1, 3));
    EXPECT_STREQ("cdef", s.mid(2, 0));
    EXPECT_STREQ("ef", s.right(2));
    EXPECT_STREQ("abcd", s.cutTail(2));

    EXPECT_STREQ("cdef", s.substring(2, 100));
    EXPECT_STREQ("", s.substring(10, -1));
    EXPECT_STREQ("", s.substring(4, 2));
    EXPECT_STREQ("abcdef", s.left(100));
    EXPECT_STREQ("abcdef", s.right(100));
    EXPECT_STREQ("ef", s.mid(4, 100));
    EXPECT_STREQ("", s.cutTail(100));
    EXPECT_EQ(nullptr, tavik::string().left(1));
}

TEST(StringTest, FiltersCopyAndCaseChangesWorkInPlace) {
    tavik::string s("  a b  ");
    EXPECT_STREQ("a b", s.trim());
    EXPECT_STREQ("  a b  ", s.get());
    EXPECT_EQ(nullptr, tavik::string().trim());
    EXPECT_STREQ("ab", tavik::string("a-b-").killToken('-'));
    tavik::string mixed("MiXeD 1");
    EXPECT_EQ(mixed.get(), mixed.toLower());
    EXPECT_STREQ("mixed 1", mixed.get());
}

TEST(StringTest, SplitKeepsTrailingEmptyPiece) {
    EXPECT_EQ((Pieces{"a", "b", ""}), piecesOf("a,,b,", ","));
    EXPECT_EQ((Pieces{"a"}), piecesOf(",a", ","));
    EXPECT_EQ((Pieces{"abc"}), piecesOf("abc", ","));
    EXPECT_EQ((Pieces{""}), piecesOf("", ","));
    EXPECT_EQ((Pieces{""}), piecesOf(",,", ","));
    EXPECT_EQ((Pieces{"a", "b", "c"}), piecesOf("abc", ""));
    EXPECT_EQ((Pieces{"a"}), piecesOf("a", ""));
    EXPECT_EQ((Pieces{""}), piecesOf("", ""));
    EXPECT_EQ((Pieces{"k", "v:w", "x"}), piecesOf("k::v:w::::x", "::"));
    EXPECT_EQ((Pieces{"a,b"}), piecesOf("a,b", nullptr));

    std::unique_ptr<strArr> none(tavik::string().split(","));
    EXPECT_EQ(0u, none->length);
    EXPECT_EQ(nullptr, tavik::string().split2vector(","));

    std::unique_ptr<text_vector> vec(tavik::string("a,,b,").split2vector(","));
    ASSERT_NE(nullptr, vec);
    ASSERT_EQ(3u, vec->size());
    auto pos = vec->getFirstPos();
    EXPECT_STREQ("a", vec->getNext(&pos));
    EXPECT_STREQ("b", vec->getNext(&pos));
    EXPECT_STREQ("", vec->getNext(&pos));
}

TEST(StringTest, WildmaskIgnoresCaseAndQuestionMarkNeverMatchesDot) {
    EXPECT_TRUE(tavik::string("A.TXT").wildmask("*.txt"));
    EXPECT_TRUE(tavik::string("abc").wildmask("a?c"));
    EXPECT_FALSE(tavik::string("a.c").wildmask("a?c"));
    EXPECT_TRUE(tavik::string("anything").wildmask(""));
    EXPECT_TRUE(tavik::string("a").wildmask("a*b"));
    EXPECT_FALSE(tavik::string("ac").wildmask("a*b"));
    // Patterns with many stars stay fast.
    std::string longText = std::string(4000, 'a') + "b";
    EXPECT_FALSE(tavik::string(longText.c_str()).wildmask("*a*a*a*a*a*a*a*ac"));
    longText.back() = 'c';
    EXPECT_TRUE(tavik::string(longText.c_str()).wildmask("*a*a*a*a*a*a*a*ac"));

    // Every text and pattern of up to four characters over small alphabets.
    auto spell = [](int code, int len, const char* alphabet, char* out) {
        const int base = static_cast<int>(strlen(alphabet));
        for (int i = 0; i < len; ++i, code /= base) {
            out[i] = alphabet[code % base];
        }
        out[len] = 0;
    };
    char text[5], pattern[5];
    for (int tl = 0, tn = 1; tl <= 4; ++tl, tn *= 4) {
        for (int tc = 0; tc < tn; ++tc) {
            spell(tc, tl, "abA.", text);
            tavik::string s(text);
            for (int pl = 0, pn = 1; pl <= 4; ++pl, pn *= 5) {
                for (int pc = 0; pc < pn; ++pc) {
                    spell(pc, pl, "aB.*?", pattern);
                    ASSERT_EQ(referenceWildmask(text, pattern), s.wildmask(pattern))
                        << "text '" << text << "' pattern '" << pattern << "'";
                }
            }
        }
    }
}

TEST(StringTest, MatchesThrowsOnBadPattern) {
    tavik::string s("ABc");
    EXPECT_TRUE(s._matches("^ab", false));
    EXPECT_FALSE(s._matches("^ab", true));
    EXPECT_TRUE(s._matches("B", true));
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
    EXPECT_STREQ("two", listed[1]);
    EXPECT_EQ(nullptr, listed[2]);
    EXPECT_EQ(nullptr, listed.get(2));

    std::unique_ptr<strArr> heap(tavik::newStrArr("a", "b", "c", nullptr));
    ASSERT_EQ(3u, heap->length);
    heap->set("x", "y", "z", "beyond", nullptr);
    EXPECT_STREQ("z", heap->ref(2).get());
    heap->set("only", nullptr);
    EXPECT_STREQ("only", (*heap)[0]);
    EXPECT_STREQ("y", heap->get(1)->get());

    heap->_new(0);
    EXPECT_EQ(0u, heap->length);
    EXPECT_NE(nullptr, heap->buffer);
    strArr sized(static_cast<size_t>(2));
    EXPECT_EQ(nullptr, sized[0]);
    tavik::list<const char*> texts;
    texts.addTail("p");
    texts.addTail("q");
    texts.toClassArr(&sized);
    EXPECT_STREQ("q", sized[1]);
}
