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

Pieces piecesOf(tavik::strArr* array) {
    std::unique_ptr<tavik::strArr> parts(array);
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
    EXPECT_EQ(5, s.format("%ls", L"\U0010FFFF"));
    EXPECT_STREQ("-ERR-", s.get());
}

TEST(StringTest, ReadsClampToTheText) {
    tavik::string s("abcdef");
    char* empty = s.substring(0, 0);
    EXPECT_EQ(empty, tavik::string().substring(0, 0));  // one static text, not pooled
    EXPECT_EQ(empty, s.cutTail(6));
    EXPECT_NE(s.get(), s.substring(0, -1));
    const tavik::string blanks("  \ta b\t  ");  // only blanks are trimmed, each side on its own
    const std::pair<const char*, const char*> slices[] = {
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
        {blanks.trim(), "\ta b\t"},     {blanks.ltrim(), "\ta b\t  "},
        {blanks.rtrim(), "  \ta b\t"},  {tavik::string("   ").trim(), ""},
        {tavik::safeVF("%d 100%"), "%%d 100%%"}, {empty, ""},
    };
    for (const auto& [got, want] : slices) EXPECT_STREQ(want, got);
    EXPECT_TRUE(tavik::string().left(1) == nullptr && tavik::string().trim() == nullptr);

    // A text taken with its length reads past its NULs, never past its allocation.
    tavik::string held("a\0b", 3);
    const int reads[] = {held.charAt(2), held[1], held[3], held[4], held.charAt(-1), s[5], s[7]};
    EXPECT_EQ((std::vector<int>{'b', 0, 0, 0, 0, 'f', 0}), std::vector<int>(reads, reads + 7));
    held.set("xy\0z", 4);
    EXPECT_EQ('z', held.charAt(3));
    held = "q";
    EXPECT_EQ(0, held.charAt(3));
}

TEST(StringTest, SearchesSplitsAndWildmasksAgreeWithTheirDefinitions) {
    std::mt19937 random(7);
    for (int i = 0; i < 100000; ++i) {
        const std::string t = randomText(random, "aAb.", 6), s = randomText(random, "aAb.", 3),
                          lt = lower(t), ls = lower(s), pattern = randomText(random, "aB.*?", 5);
        const int from = static_cast<int>(random() % 9) - 1;
        const size_t n = s.size(), at = from < 0 ? 0 : from;
        const char c = "aAbx"[random() % 4];
        const tavik::string text(t.c_str());
        const char* p = s.c_str();
        SCOPED_TRACE("'" + t + "' '" + s + "' '" + pattern + "' from " + std::to_string(from) + c);
        auto starts = [&](auto& a, auto& b) { return from >= 0 && a.find(b, from) == at; };
        auto ends = [&](auto& a, auto& b) {
            return !a.empty() && a.size() >= n && a.rfind(b) == a.size() - n;
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
                                    text.lastIndexOf<true>(p), text.lastIndexOf<false>(p)}));
        ASSERT_EQ(referenceWildmask(t.c_str(), pattern.c_str()), text.wildmask(pattern.c_str()));
        std::unique_ptr<tavik::text_vector> vector(text.split2vector(p));
        Pieces fromVector;
        for (tavik::vectoritem* pos = vector->getFirstPos(); pos;)
            fromVector.push_back(vector->getNext(&pos));
        ASSERT_EQ(referenceSplit(t, s), piecesOf(text.split(p)));
        ASSERT_EQ(referenceSplit(t, s), fromVector);
    }
    const tavik::string none;
    EXPECT_EQ((std::vector<int>{1, 0, 0, -1, 0, -1, -1}),
              (std::vector<int>{none.equals(nullptr), none.equals(""),
                                tavik::string("").equals<false>(nullptr),
                                tavik::string("a").indexOf<true>(nullptr), none.startsWith(""),
                                none.indexOf<true>("a"), none.lastIndexOf('a')}));
    // A null delimiter keeps the text whole; a null string splits into nothing.
    EXPECT_EQ((Pieces{"a,b"}), piecesOf(tavik::string("a,b").split(nullptr)));
    EXPECT_EQ(Pieces{}, piecesOf(none.split(",")));
    EXPECT_EQ(nullptr, none.split2vector(","));
    // Patterns with many stars stay fast.
    const std::string longText = std::string(4000, 'a') + "b";
    EXPECT_FALSE(tavik::string(longText.c_str()).wildmask("*a*a*a*a*a*a*a*ac"));
    EXPECT_TRUE(none.wildmask("") && tavik::string("a").wildmask(nullptr));
}

TEST(StringTest, ConversionsReadAndWriteTextLikeTheCLibrary) {
    EXPECT_STREQ("-2147483648", tavik::string(INT_MIN).get());
    const tavik::string minus(" -12x"), octal("010"), exponent("2.5e1"), wide("4294967296");
    EXPECT_EQ((std::vector<double>{-12, 10, 2, 4294967296.0, 25}),
              (std::vector<double>{double(minus.intValue()), double(octal.longlongValue()),
                                   double(exponent.longValue()), double(wide.longValue()),
                                   exponent.doubleValue()}));
    const tavik::string null;
    EXPECT_EQ(0.0, null.intValue() + null.longValue() + null.longlongValue() + null.doubleValue());
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
    try {
        abc._matches("[", true);
        ADD_FAILURE() << "a bad pattern compiled";
    } catch (const char* what) {
        EXPECT_STREQ("Can't compliation for given RegEx patterns", what);
    }
}

TEST(StringTest, StrArrCollectsTextsUpToNull) {
    tavik::strArr listed("one", "two", static_cast<const char*>(nullptr), "three", nullptr);
    ASSERT_EQ(2u, listed.length);
    tavik::strArr* heap = tavik::newStrArr("a", "b", "c", nullptr);
    heap->set("x", "y", nullptr);
    EXPECT_STREQ("y", heap->get(1)->get());
    EXPECT_EQ(nullptr, heap->get(3));
    EXPECT_EQ((Pieces{"x", "y", "c"}), piecesOf(heap));
    listed._new(0);
    EXPECT_NE(nullptr, listed.buffer);
}
