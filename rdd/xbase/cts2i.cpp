// cts2i.cpp - the time-text parser.
//
// Rather than describe every bad form, the parser reads the pieces with
// atoi, prints them again in the style's one canonical form and accepts
// the text only if it is that reprint, byte for byte. Wrong digit counts,
// stray characters and missing leading zeros all fail that comparison. The
// one latitude: a leading blank may stand for the hour's leading zero.
#include "date.h"

#include <cstdio>
#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/cts2i"};

// atoi over at most n characters of s.
int _piece(const char *s, size_t n) {
    char buf[12] = {};
    if (n > sizeof buf - 1) n = sizeof buf - 1;
    std::memcpy(buf, s, n);
    return std::atoi(buf);
}
}  // namespace

extern "C" DBAPI int DBStrTimeTo3(int *hour, int *minute, int *second, char *text, int style) {
    if (!hour || !minute || !second || !text) return here.fail(DBE_NULLPARAM, __LINE__);
    // Wide enough for any reprint of the int values the pieces can hold
    // ("%02d" of a 6-character piece such as -99999 and so on).
    char reprint[48];
    const size_t len = std::strlen(text);
    if (style == 1) {
        if (len != 8) return here.fail(DBE_BADTIME, __LINE__);
        char work[9];
        std::memcpy(work, text, 8);
        work[8] = '\0';
        const char *c1 = static_cast<const char *>(std::memchr(work, ':', 8));
        if (!c1) return here.fail(DBE_BADTIME, __LINE__);
        // The second colon is looked for in the 5 characters after the
        // first, and never past the 8 copied.
        const size_t from = static_cast<size_t>(c1 - work) + 1;
        const size_t span = 8 - from < 5 ? 8 - from : 5;
        const char *c2 = static_cast<const char *>(std::memchr(work + from, ':', span));
        if (!c2) return here.fail(DBE_BADTIME, __LINE__);
        *hour = _piece(work, static_cast<size_t>(c1 - work));
        *minute = _piece(c1 + 1, static_cast<size_t>(c2 - c1 - 1));
        *second = std::atoi(c2 + 1);
        std::snprintf(reprint, sizeof reprint, "%02d:%02d:%02d", *hour, *minute, *second);
        if (text[0] == ' ') reprint[0] = ' ';
    } else if (style == 2) {
        if (len != 4) return here.fail(DBE_BADTIME, __LINE__);
        *hour = _piece(text, 2);
        *minute = _piece(text + 2, 2);
        *second = 0;
        std::snprintf(reprint, sizeof reprint, "%02d%02d", *hour, *minute);
    } else {
        return here.fail(DBE_BADCOMMAND, __LINE__);
    }
    if (std::strcmp(text, reprint) != 0) return here.fail(DBE_BADTIME, __LINE__);
    if (*hour < 0 || *hour > 23 || *minute < 0 || *minute > 59 || *second < 0 || *second > 59)
        return here.fail(DBE_BADTIME, __LINE__);
    return _DBStatus(DB_OK);
}
