// cds2i.cpp - the date-string parser: text in one of the fifteen styles to
// a date triple.
//
// The parser is deliberately forgiving in the ways xBase programs were:
// single-digit pieces, blanks inside separated dates, a backslash for the
// slash in the American and Julian styles. Pieces are converted with atoi,
// so a piece that is not a number reads as 0 and fails the final check.
// Two-digit years are always 20yy: there is no pivot year.
#include "date.h"

#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/cds2i"};

// How each style is laid out. Fixed-position styles (4, 5) have no
// separator; the others are split at `sep`.
struct StyleRule {
    uint8_t minlen, maxlen;  // length of the text as passed, blanks included
    char sep;                // 0 for the fixed-position styles
    bool backslash;          // '\' stands for '/'
    bool twodigit;           // years 0..99 are 2000..2099
    // Which piece (0, 1, 2) holds the year, month and day. Style 3 has two
    // pieces: year and day of year (in the day slot).
    uint8_t y, m, d;
};

constexpr StyleRule kRules[16] = {
    {},                                     // no style 0
    {6, 8, '/', true, true, 2, 0, 1},       // 1  mm/dd/yy
    {8, 10, '/', true, false, 2, 0, 1},     // 2  mm/dd/yyyy
    {8, 8, '/', true, false, 0, 0, 1},      // 3  yyyy/ddd
    {8, 8, 0, false, false, 0, 1, 2},       // 4  yyyymmdd
    {6, 6, 0, false, true, 2, 1, 0},        // 5  ddmmyy
    {6, 8, '.', false, true, 2, 1, 0},      // 6  dd.mm.yy
    {8, 10, '.', false, false, 2, 1, 0},    // 7  dd.mm.yyyy
    {6, 8, '/', false, true, 2, 1, 0},      // 8  dd/mm/yy
    {8, 10, '/', false, false, 2, 1, 0},    // 9  dd/mm/yyyy
    {6, 8, '/', false, true, 2, 1, 0},      // 10 dd/mm/yy
    {8, 10, '/', false, false, 2, 1, 0},    // 11 dd/mm/yyyy
    {6, 8, '-', false, true, 2, 1, 0},      // 12 dd-mm-yy
    {8, 10, '-', false, false, 2, 1, 0},    // 13 dd-mm-yyyy
    {6, 8, '.', false, true, 0, 1, 2},      // 14 yy.mm.dd
    {8, 10, '.', false, false, 0, 1, 2},    // 15 yyyy.mm.dd
};

// atoi over at most n characters of s (a piece that is not terminated).
int _piece(const char *s, size_t n) {
    char buf[12] = {};
    if (n > sizeof buf - 1) n = sizeof buf - 1;
    std::memcpy(buf, s, n);
    return std::atoi(buf);
}

int _blank(int *year, int *month, int *day) {
    *year = *month = *day = 0;
    // A warning: the composites carry the zeros on to their next step.
    return _DBStatus(DBW_EMPTY);
}
}  // namespace

extern "C" DBAPI int DBStrDateTo3(int *year, int *month, int *day, char *text, int style) {
    if (!year || !month || !day || !text) return here.fail(DBE_NULLPARAM, __LINE__);
    const char *p = text;
    while (*p == ' ') ++p;
    if (*p == '\0') return _blank(year, month, day);
    if (style < 1 || style > 15) return here.fail(DBE_BADCOMMAND, __LINE__);
    const StyleRule &r = kRules[style];
    // The length is that of the text as passed, leading blanks counted.
    const size_t len = std::strlen(text);
    if (len < r.minlen || len > r.maxlen) return here.fail(DBE_BADDATE, __LINE__);

    int piece[3] = {0, 0, 0};
    if (r.sep == 0) {
        // Fixed positions, no blank removal: atoi skips a leading blank in a
        // piece by itself.
        if (style == 4) {
            piece[0] = _piece(text, 4);
            piece[1] = _piece(text + 4, 2);
            piece[2] = _piece(text + 6, 2);
        } else {
            piece[0] = _piece(text, 2);
            piece[1] = _piece(text + 2, 2);
            piece[2] = _piece(text + 4, 2);
        }
    } else {
        // The length test bounds the text to 10 characters.
        char work[11];
        size_t n = 0;
        for (const char *s = text; *s; ++s) {
            if (*s == ' ') continue;
            work[n++] = (r.backslash && *s == '\\') ? '/' : *s;
        }
        work[n] = '\0';
        const bool threeparts = style != 3;
        // Nothing but the separators: a blank date written with them.
        if (threeparts ? (n == 2 && work[0] == r.sep && work[1] == r.sep)
                       : (n == 1 && work[0] == r.sep))
            return _blank(year, month, day);
        const char *s1 = std::strchr(work, r.sep);
        if (!s1) return here.fail(DBE_BADDATE, __LINE__);
        piece[0] = _piece(work, static_cast<size_t>(s1 - work));
        if (threeparts) {
            const char *s2 = std::strchr(s1 + 1, r.sep);
            if (!s2) return here.fail(DBE_BADDATE, __LINE__);
            piece[1] = _piece(s1 + 1, static_cast<size_t>(s2 - s1 - 1));
            piece[2] = std::atoi(s2 + 1);
        } else {
            piece[1] = std::atoi(s1 + 1);
        }
    }

    int y = piece[r.y];
    int m = piece[r.m];
    int d = piece[r.d];
    if (style == 3) {
        // Julian: walk the day of the year through the months of that year.
        // The month bound comes first so DBdpm is never read past December;
        // a day beyond the year leaves month 13 for the final check.
        DBIsLeapYear(y);
        d = piece[1];
        m = 1;
        while (m <= 12 && d > DBdpm[m]) {
            d -= DBdpm[m];
            ++m;
        }
    }
    if (r.twodigit && y >= 0 && y <= 99) y += 2000;
    *year = y;
    *month = m;
    *day = d;
    if (y < 0 || y > 9999) return here.fail(DBE_BADDATE, __LINE__);
    DBIsLeapYear(y);
    if (m < 1 || m > 12 || d < 1 || d > DBdpm[m]) return here.fail(DBE_BADDATE, __LINE__);
    return _DBStatus(DB_OK);
}
