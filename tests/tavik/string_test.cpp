#include "tavik/tk_string.h"
#include "tavik/tk_common.h"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

using tavik::strArr;
using Pieces = std::vector<std::string>;

namespace {

std::string randomText(std::mt19937& random, const char* alphabet, unsigned most) {
    std::string text;
    for (unsigned n = random() % (most + 1); n > 0; --n)
        text += alphabet[random() % strlen(alphabet)];
    return text;
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

// The wildcard rules written as the plain recursion they are defined by.
bool referenceWildmask(const char* t, const char* p) {
    if (*p == 0)
        return true;
    for (; *p; ++p, ++t) {
        if (*p == '*') {
            for (const char* rest = t; *rest; ++rest)
                if (referenceWildmask(rest, p + 1))
                    return true;
            return *t == 0;  // a star meeting the end of the text matches
        }
        if (*t == 0 || (*p == '?' ? *t == '.' : tolower(*p) != tolower(*t)))
            return false;
    }
    return *t == 0;
}

// Cutting as defined: at every match of d (an empty d matches before each byte but the
// first), empty pieces skipped, and whatever follows the last match always kept.
Pieces referenceSplit(const std::string& t, const std::string& d) {
    Pieces out;
    size_t cursor = 0;
    for (size_t m = d.empty() ? 1 : t.find(d); m < t.size();
         m = d.empty() ? m + 1 : t.find(d, cursor)) {
        if (m > cursor)
            out.push_back(t.substr(cursor, m - cursor));
        cursor = m + d.size();
    }
    out.push_back(t.substr(cursor));
    return out;
}

// Search as defined: from `from` while the rest is long enough, the first byte (the
// terminator for an empty s) and then the whole of s compare equal.
int referenceIndexOf(const std::string& t, const std::string& s, int from) {
    for (size_t p = from < 0 ? 0 : from; t.size() >= s.size() + p; ++p)
        if (t.c_str()[p] == s.c_str()[0] && t.compare(p, s.size(), s) == 0)
            return int(p);
    return -1;
}

// Searches on from the end of each match; the start of the last one.
int referenceLastIndexOf(const std::string& t, const std::string& s) {
    int found = referenceIndexOf(t, s, 0);
    for (int next = found; !s.empty() && next >= 0; next = referenceIndexOf(t, s, found + s.size()))
        found = next;
    return found;
}

Pieces piecesOf(const tavik::string& text, const char* delim) {
    std::unique_ptr<strArr> parts(text.split(delim));
    Pieces out;
    for (size_t i = 0; i < parts->length; ++i) out.push_back((*parts)[i] ? (*parts)[i] : "<null>");
    return out;
}

}  // namespace

TEST(StringTest, NullTextDiffersFromEmptyAndWritersMayReadTheirOwnText) {
    EXPECT_EQ(nullptr, tavik::string(nullptr, 3).get());
    EXPECT_STREQ("", tavik::string(nullptr, 0).get());

    tavik::string s("held");
    s.set(nullptr, 4);  // releases the old text (the leak checker watches this)
    s += static_cast<const char*>(nullptr);
    s += '\0';
    EXPECT_EQ(nullptr, s.get());
    s += '\xe9';
    s += "!";  // onto a one-byte text
    EXPECT_STREQ("\xe9!", s.get());
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
    char* empty = s.substring(0, 0);
    EXPECT_STREQ("", empty);
    EXPECT_EQ(empty, tavik::string().substring(0, 0));  // one static text, not pooled
    EXPECT_EQ(empty, s.cutTail(6));
    EXPECT_NE(s.get(), s.substring(0, -1));
    const struct {
        const char* got;
        const char* want;
    } slices[] = {
        {s.substring(2, -1), "cdef"},   {s.substring(1, 3), "bc"},
        {s.mid(2, 0), "cdef"},          {s.right(2), "ef"},
        {s.cutTail(2), "abcd"},         {s.substring(2, 99), "cdef"},
        {s.substring(9, -1), ""},       {s.substring(4, 2), ""},
        {s.left(99), "abcdef"},         {s.right(99), "abcdef"},
        {s.mid(4, 99), "ef"},           {s.cutTail(99), ""},
        {s.cutTail(7), "abcdef"},       {s.cutTail(-3), "abcdef"},
        {s.cutTail(INT_MIN), "abcdef"}, {s.left(3), "abc"},
        {s.mid(-2, 2), "ab"},           {s.substring(-1, 2), "ab"},
        {s.killToken('c'), "abdef"},    {s.replaceWith('c', 'C'), "abCdef"},
    };
    for (const auto& slice : slices) EXPECT_STREQ(slice.want, slice.got);
    // Only blanks are trimmed, each side by its own function.
    tavik::string blanks("  \ta b\t  ");
    EXPECT_EQ((Pieces{"\ta b\t", "\ta b\t  ", "  \ta b\t"}),
              (Pieces{blanks.trim(), blanks.ltrim(), blanks.rtrim()}));
    EXPECT_STREQ("", tavik::string("   ").trim());
    EXPECT_STREQ("%%d 100%%", tavik::safeVF("%d 100%"));
    EXPECT_EQ(nullptr, tavik::string().left(1));
    EXPECT_EQ(nullptr, tavik::string().trim());

    // A text taken with its length reads past its NULs, never past its allocation.
    tavik::string held("a\0b", 3);
    const int reads[] = {held.charAt(2), held[1], held[3], held[4], held.charAt(-1), s[5], s[7]};
    EXPECT_EQ((std::vector<int>{'b', 0, 0, 0, 0, 'f', 0}), std::vector<int>(reads, reads + 7));
    held.set("xy\0z", 4);
    EXPECT_EQ('z', held.charAt(3));
    held = "q";
    EXPECT_EQ(0, held.charAt(3));
}

TEST(StringTest, SearchesAndAffixesAgreeWithTheirDefinitions) {
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        const std::string t = randomText(random, "aAb", 6), s = randomText(random, "aAb", 3),
                          lt = lower(t), ls = lower(s);
        const int from = static_cast<int>(random() % 9) - 1;
        const size_t n = s.size(), at = from < 0 ? 0 : from;
        const char c = "aAbx"[random() % 4];
        const tavik::string text(t.c_str());
        const char* p = s.c_str();
        auto starts = [&](const std::string& a, const std::string& b) {
            return from >= 0 && a.size() >= n + from && a.compare(from, n, b) == 0;
        };
        auto ends = [&](const std::string& a, const std::string& b) {
            return !a.empty() && a.size() >= n && a.compare(a.size() - n, n, b) == 0;
        };
        ASSERT_EQ((std::vector<int>{t == s, lt == ls, starts(t, s), starts(lt, ls), ends(t, s),
                                    ends(lt, ls), int(t.find(c, at)), int(t.rfind(c)),
                                    referenceIndexOf(t, s, from), referenceIndexOf(lt, ls, from),
                                    referenceLastIndexOf(t, s), referenceLastIndexOf(lt, ls)}),
                  (std::vector<int>{text.equals<true>(p), text.equals<false>(p),
                                    text.startsWith<true>(p, from), text.startsWith<false>(p, from),
                                    text.endsWith<true>(p), text.endsWith<false>(p),
                                    text.indexOf(c, from), text.lastIndexOf(c),
                                    text.indexOf<true>(p, from), text.indexOf<false>(p, from),
                                    text.lastIndexOf<true>(p), text.lastIndexOf<false>(p)}))
            << "'" << t << "' '" << s << "' from " << from << " '" << c << "'";
    }
    const tavik::string none;
    EXPECT_TRUE(none.equals(nullptr));
    EXPECT_FALSE(none.equals(""));
    EXPECT_FALSE(tavik::string("").equals<false>(nullptr));
    EXPECT_EQ(-1, tavik::string("a").indexOf<true>(static_cast<const char*>(nullptr), 0));
    EXPECT_FALSE(none.startsWith(""));
    EXPECT_EQ(-1, none.indexOf<true>("a"));
    EXPECT_EQ(-1, none.lastIndexOf('a'));
}

TEST(StringTest, ConversionsReadAndWriteTextLikeTheCLibrary) {
    EXPECT_STREQ("-2147483648", tavik::string(INT_MIN).get());
    tavik::string f;
    EXPECT_EQ(3, f.format("%d-%s", 7, "x"));
    EXPECT_STREQ("7-x", f.get());
    const tavik::string minus(" -12x"), octal("010"), exponent("2.5e1"), wide("4294967296");
    EXPECT_EQ((std::vector<double>{-12, 10, 2, 4294967296.0, 25}),
              (std::vector<double>{double(minus.intValue()), double(octal.longlongValue()),
                                   double(exponent.longValue()), double(wide.longValue()),
                                   exponent.doubleValue()}));
    for (const char* yes : {"true", "TRUE", "True"}) EXPECT_TRUE(tavik::string(yes).boolValue());
    for (const char* no : {"1", "yes", "truex", "", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(tavik::string(no).boolValue());

    // Case conversion in place, every byte: only what the C library calls a letter changes.
    std::string all, upper, lowered;
    for (int c = 1; c < 256; ++c)
        all += char(c), upper += char(toupper(c)), lowered += char(tolower(c));
    tavik::string s(all.c_str());
    char* buffer = s.get();
    EXPECT_EQ(upper, s.toCapital());
    EXPECT_EQ(lowered, s.toLower());
    EXPECT_EQ(buffer, s.get());
    EXPECT_EQ(nullptr, tavik::string().toLower());

    // Regular expressions search unanchored, ignore case on request, and throw when bad.
    const tavik::string abc("ABc");
    EXPECT_TRUE(abc._matches("^ab", false));
    EXPECT_FALSE(abc._matches("^ab", true) || tavik::string()._matches("x*", true));
    const char* thrown = "nothing";
    try {
        abc._matches("[", true);
    } catch (const char* what) {
        thrown = what;
    }
    EXPECT_STREQ("Can't compliation for given RegEx patterns", thrown);
}

TEST(StringTest, SplitDropsInnerAndLeadingEmptyPiecesButKeepsTheLast) {
    EXPECT_EQ((Pieces{"a", "b", ""}), piecesOf(",a,,b,", ","));
    EXPECT_EQ((Pieces{"a,b"}), piecesOf("a,b", nullptr));
    EXPECT_EQ(0u, std::unique_ptr<strArr>(tavik::string().split(","))->length);
    EXPECT_EQ(nullptr, tavik::string().split2vector(","));
    // Both forms against the definition, over texts full of delimiters.
    std::mt19937 random(11);
    const char* delims[] = {",", ",,", ";,", "", "a"};
    for (int i = 0; i < 5000; ++i) {
        const std::string t = randomText(random, "a,;", 8);
        const char* delim = delims[random() % 5];
        const tavik::string text(t.c_str());
        std::unique_ptr<tavik::text_vector> vector(text.split2vector(delim));
        Pieces fromVector;
        for (tavik::vectoritem* pos = vector->getFirstPos(); pos;)
            fromVector.push_back(vector->getNext(&pos));
        ASSERT_EQ(referenceSplit(t, delim), piecesOf(text, delim)) << t << " at " << delim;
        ASSERT_EQ(referenceSplit(t, delim), fromVector) << t << " at " << delim;
    }
}

TEST(StringTest, WildmaskIgnoresCaseAndQuestionMarkNeverMatchesDot) {
    // Patterns with many stars stay fast.
    std::string longText = std::string(4000, 'a') + "b";
    EXPECT_FALSE(tavik::string(longText.c_str()).wildmask("*a*a*a*a*a*a*a*ac"));
    EXPECT_TRUE(tavik::string().wildmask(""));
    std::mt19937 random(13);
    for (int i = 0; i < 100000; ++i) {
        const std::string text = randomText(random, "abA.", 5),
                          pattern = randomText(random, "aB.*?", 5);
        ASSERT_EQ(referenceWildmask(text.c_str(), pattern.c_str()),
                  tavik::string(text.c_str()).wildmask(pattern.c_str()))
            << "text '" << text << "' pattern '" << pattern << "'";
    }
}

TEST(StringTest, StrArrCollectsTextsUpToNull) {
    strArr listed("one", "two", static_cast<const char*>(nullptr), "three", nullptr);
    ASSERT_EQ(2u, listed.length);
    std::unique_ptr<strArr> heap(tavik::newStrArr("a", "b", "c", nullptr));
    heap->set("x", "y", nullptr);
    EXPECT_STREQ("x", (*heap)[0]);
    EXPECT_STREQ("c", (*heap)[2]);
    EXPECT_STREQ("y", heap->get(1)->get());
    EXPECT_EQ(nullptr, heap->get(3));
    heap->_new(0);
    EXPECT_NE(nullptr, heap->buffer);
}
