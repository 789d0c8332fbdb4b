// string2date of tk_time.h: taking apart the date of a mail or web header.
#include <stdlib.h>
#include <string.h>

#include "tavik/tk_common.h"
#include "tavik/tk_string.h"
#include "tavik/tk_time.h"

namespace tavik {

namespace {

const char* const daysInDate[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
const char* const mons[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// A text with its length; every piece is clipped to it, so no read leaves the text.
struct span {
    const char* text;
    long length;

    long find(char c, long from) const {
        for (long i = from < 0 ? 0 : from; i < length; i++) {
            if (text[i] == c) {
                return i;
            }
        }
        return -1;
    }

    // atoi of the characters from begin up to, not including, end.
    int number(long begin, long end) const {
        if (end > length) {
            end = length;
        }
        if (begin < 0 || end <= begin) {
            return 0;
        }
        string piece(text + begin, static_cast<unsigned int>(end - begin));
        return atoi(piece.get());
    }
};

}  // namespace

string2date::string2date(const char* text)
    : positive(true), year(0), mon(0), day(0), hour(0), min(0), sec(0), gmtHour(0), gmtMin(0) {
    if (text == nullptr) {
        return;
    }
    span s{text, static_cast<long>(strlen(text))};
    long p = 0;
    if (s.find(',', 0) >= 0) {
        p = s.find(' ', 0) + 1;  // past the weekday; 0 when there is no blank
    }
    long blank1 = s.find(' ', p);
    long blank2 = s.find(' ', blank1 + 1);
    long blank3 = s.find(' ', blank2 + 1);
    long colon = s.find(':', blank3 + 1);
    if (blank1 < 0 || blank2 < 0 || blank3 < 0 || colon < 0) {
        return;  // every field stays 0
    }
    day = s.number(p, blank1);
    string monthText(text + blank1 + 1, static_cast<unsigned int>(blank2 - blank1 - 1));
    mon = getMonth(monthText.get());
    year = s.number(blank2 + 1, blank3);
    hour = s.number(blank3 + 1, colon);

    p = colon + 1;
    long e;
    long secondColon = s.find(':', p);
    if (secondColon < 0) {
        // No seconds: sec keeps its value. Without a blank after the minutes there is no
        // room for an offset either.
        e = s.find(' ', p);
        min = s.number(p, e < 0 ? s.length : e);
        if (e < 0) {
            return;
        }
    } else {
        min = s.number(p, secondColon);
        p = secondColon + 1;
        e = s.find(' ', p);
        if (e < 0) {
            e = p + 2;  // seconds that end the text
        }
        sec = s.number(p, e);
    }

    p = e + 1;
    if (p >= s.length) {
        return;
    }
    if (text[p] == '-') {
        positive = false;
    } else if (text[p] != '+') {
        return;
    }
    gmtHour = s.number(p + 1, p + 3);
    gmtMin = s.number(p + 3, p + 5);
}

char* string2date::getDateString(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    for (const char* name : daysInDate) {
        const char* last = nullptr;
        for (const char* hit = strstr(text, name); hit != nullptr; hit = strstr(hit + 3, name)) {
            last = hit;
        }
        if (last != nullptr) {
            return makeString(last);
        }
    }
    const char* semicolon = strstr(text, "; ");
    return semicolon ? makeString(semicolon + 2) : nullptr;
}

int string2date::getMonth(const char* name) const {
    if (name == nullptr) {
        return -1;
    }
    for (int i = 0; i < 12; i++) {
        if (strcmp(name, mons[i]) == 0) {
            return i + 1;
        }
    }
    return -1;
}

void string2date::getDate(datetime*) {
    throw "Invalid locale";
}

char* string2date::getString(datetime*) {
    throw "invalid locale";
}

}  // namespace tavik
