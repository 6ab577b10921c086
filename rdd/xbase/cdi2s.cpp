// cdi2s.cpp - date triple to date string in one of the fifteen styles.
#include "date.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/cdi2s"};

// The longest date string is 10 characters; callers' buffers hold 11.
constexpr size_t kOutSize = 11;
}  // namespace

extern "C" DBAPI int DBDate3ToStr(char *out, int style, int year, int month, int day) {
    if (!out) return here.fail(DBE_NULLPARAM, __LINE__);
    // The date is checked before the style, so a bad date with a bad style
    // reports the date. The check also leaves DBdpm[2] set for this year,
    // which the day-of-year sum of style 3 reads.
    if (!_DBValidDate3(year, month, day)) return here.fail(DBE_BADDATE, __LINE__);
    const int yy = year % 100;
    switch (style) {
    case 1: std::snprintf(out, kOutSize, "%02d/%02d/%02d", month, day, yy); break;
    case 2: std::snprintf(out, kOutSize, "%02d/%02d/%04d", month, day, year); break;
    case 3: {
        int doy = day;
        for (int m = 1; m < month; ++m) doy += DBdpm[m];
        std::snprintf(out, kOutSize, "%04d/%03d", year, doy);
        break;
    }
    case 4: std::snprintf(out, kOutSize, "%04d%02d%02d", year, month, day); break;
    case 5: std::snprintf(out, kOutSize, "%02d%02d%02d", day, month, yy); break;
    case 6: std::snprintf(out, kOutSize, "%02d.%02d.%02d", day, month, yy); break;
    case 7: std::snprintf(out, kOutSize, "%02d.%02d.%04d", day, month, year); break;
    case 8:
    case 10: std::snprintf(out, kOutSize, "%02d/%02d/%02d", day, month, yy); break;
    case 9:
    case 11: std::snprintf(out, kOutSize, "%02d/%02d/%04d", day, month, year); break;
    case 12: std::snprintf(out, kOutSize, "%02d-%02d-%02d", day, month, yy); break;
    case 13: std::snprintf(out, kOutSize, "%02d-%02d-%04d", day, month, year); break;
    case 14: std::snprintf(out, kOutSize, "%02d.%02d.%02d", yy, month, day); break;
    case 15: std::snprintf(out, kOutSize, "%04d.%02d.%02d", year, month, day); break;
    default: return here.fail(DBE_BADCOMMAND, __LINE__);
    }
    return _DBStatus(DB_OK);
}
