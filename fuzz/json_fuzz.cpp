// Parses arbitrary bytes as a JSON document and checks the document, its text, its listing and
// the parser's separate steps against the plain step-by-step parser of
// tests/tavik/json_reference.h; then writes it, parses the text again, and reads and lists it.
// An input "\x7f" opener "\x7f" middle "\x7f" closer is also parsed nested thousands of levels
// deep, around the parser's depth limit: the opener (16 bytes at most) 9,000 to 12,000 times,
// the middle once, the closer as many times as the opener.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "tests/tavik/json_reference.h"

namespace {

// The reference parser cuts every level again and recurses once per level; deeper texts are
// checked by the library alone.
bool shallow(const std::string& text) {
    auto opens = [](char c) { return c == '{' || c == '['; };
    return std::count_if(text.begin(), text.end(), opens) < 200;
}

// With reference, the edited document is also written and listed by the reference.
void exercise(tavik::json& doc, bool reference) {
    tavik::json second(doc.getDoc());
    second.getDisplay();
    // Reads by every key, also as paths, and a removal in the middle.
    for (unsigned long i = 0; i < second.getKeyCount(); i++) {
        const char* key = second.getKey(i);
        second.get(key, "d");
        second.getArraySize(key);
        second.getSubset(key, 0);
    }
    if (second.getKeyCount() > 0) {
        second.remove(second.getKey(0));
        ref::node edited = reference ? ref::generate(doc.getDoc()).doc : ref::node();
        if (!edited.kids.empty()) edited.kids[0] = ref::node(ref::node::none);
        if (reference && (ref::getDoc(edited) != second.getDoc() ||
                          ref::display(edited, "", nullptr, 0) != second.getDisplay())) {
            fprintf(stderr, "written or listed unlike the reference after a removal\n");
            abort();
        }
        delete second.getValueArray();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    unsigned char* copy = new unsigned char[size + 1];
    memcpy(copy, data, size);
    tavik::byteArr bytes(copy, size);
    tavik::json first;
    first.generate(&bytes);
    // The byte array is parsed up to its first zero byte.
    std::string text(reinterpret_cast<const char*>(data), size);
    text.resize(std::min(text.find('\0'), text.size()));
    if (size > 0 && shallow(text)) {
        std::string difference = ref::check(text);
        bool alike = ref::getDoc(ref::generate(text).doc) == first.getDoc();
        difference += alike ? "" : "document from bytes";
        if (text.size() <= 512) {  // the steps cost the reference most
            difference += ref::checkSteps(text) + ref::checkSteps(ref::removeGabage(text));
        }
        if (!difference.empty()) {
            fprintf(stderr, "differs from the reference: %s\n", difference.c_str());
            abort();
        }
    }
    exercise(first, size > 0 && shallow(text));
    if (size > 1 && data[0] == 0x7f) {
        std::string part[3];
        for (size_t i = 1, k = 0; i < text.size(); i++) {
            if (text[i] == 0x7f) {
                k = std::min<size_t>(k + 1, 2);
            } else {
                part[k] += text[i];
            }
        }
        if (part[0].size() > 16 || part[2].size() > 16) {
            return 0;
        }
        std::string opening, closing;
        for (size_t i = 0; i < 9000 + 1000 * (size % 4); i++) {
            opening += part[0];
            closing += part[2];
        }
        tavik::json nested((opening + part[1] + closing).c_str());
        nested.getDoc();
        nested.getDisplay();
    }
    return 0;
}
