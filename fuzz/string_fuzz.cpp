// Feeds arbitrary texts, delimiters, patterns and offsets to tavik::string's cutting,
// searching and slicing members; the sanitizers catch any read past a text.
#include "tavik/tk_string.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    // Layout: two offset bytes, then "text\0needle" (the needle is a delimiter and a pattern).
    const int a = static_cast<int8_t>(data[0]);
    const int b = static_cast<int8_t>(data[1]);
    std::string rest(reinterpret_cast<const char*>(data) + 2, size - 2);
    const size_t cut = rest.find('\0');
    const std::string text = rest.substr(0, cut);
    const std::string needle = cut == std::string::npos ? "," : rest.substr(cut + 1).c_str();
    tavik::string s(text.c_str());

    std::unique_ptr<tavik::strArr> pieces(s.split(needle.c_str()));
    if (pieces->length == 0) {
        abort();
    }
    std::unique_ptr<tavik::text_vector> vec(s.split2vector(needle.c_str()));
    if (vec == nullptr || vec->size() != pieces->length) {
        abort();
    }

    const int found = s.indexOf<true>(needle.c_str(), a);
    if (found >= 0 && text.compare(found, needle.size(), needle) != 0) {
        abort();
    }
    const int last = s.lastIndexOf<true>(needle.c_str());
    if ((last < 0) != (s.indexOf<true>(needle.c_str()) < 0)) {
        abort();
    }
    s.indexOf<false>(needle.c_str(), b);
    s.indexOf(needle.empty() ? 'x' : needle[0], a);
    s.startsWith<true>(needle.c_str(), a);
    s.endsWith<false>(needle.c_str());
    s.charAt(a);
    if (needle.size() < 64) {
        s.wildmask(needle.c_str());
    }

    const size_t length = s.getLength();
    if (strlen(s.substring(a, b)) > length ||
        strlen(s.mid(a, static_cast<size_t>(b & 0xff))) > length ||
        strlen(s.left(static_cast<size_t>(a & 0xff))) > length ||
        strlen(s.right(static_cast<size_t>(b & 0xff))) > length || strlen(s.cutTail(a)) > length) {
        abort();
    }
    s += needle.c_str();
    s.format("%s|%d", text.c_str(), a);
    return 0;
}
