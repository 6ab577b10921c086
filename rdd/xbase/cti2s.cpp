// cti2s.cpp - time triple to time text.
#include "date.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/cti2s"};
}

extern "C" DBAPI int DBTime3ToStr(char *out, int style, int hour, int minute, int second) {
    if (!out) return here.fail(DBE_NULLPARAM, __LINE__);
    // The time is checked before the style.
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59)
        return here.fail(DBE_BADTIME, __LINE__);
    // In range, "hh:mm:ss" is 8 characters: callers' buffers hold 9.
    switch (style) {
    case 1: std::snprintf(out, 9, "%02d:%02d:%02d", hour, minute, second); break;
    case 2: std::snprintf(out, 9, "%02d%02d", hour, minute); break;
    default: return here.fail(DBE_BADCOMMAND, __LINE__);
    }
    return _DBStatus(DB_OK);
}
