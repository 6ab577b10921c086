// cdiget.cpp - today's local date as a triple and a day of the week, and the
// local clock that the date and time functions read.
#include "date.h"

#include <ctime>

namespace {
constexpr DBSite here{"rdd/xbase/cdiget"};
}

// Every flush of a table stamps its header with today's date, many times a
// second when records stream in, and each localtime call reads the zone
// file again: the answer for the last second asked is kept.
bool _DBLocalNow(struct tm &now) {
    static time_t last = -1;
    static struct tm kept;
    const time_t t = time(nullptr);
    if (t != last) {
        // localtime hands back shared storage: copy from it at once.
        const struct tm *lt = localtime(&t);
        if (!lt) return false;
        kept = *lt;
        last = t;
    }
    now = kept;
    return true;
}

extern "C" DBAPI int DBGetDate3(int *year, int *month, int *day, int *dow) {
    if (!year || !month || !day || !dow) return here.fail(DBE_NULLPARAM, __LINE__);
    struct tm t;
    if (!_DBLocalNow(t)) return here.fail(DBE_BADDATE, __LINE__);
    *year = t.tm_year + 1900;
    *month = t.tm_mon + 1;
    *day = t.tm_mday;
    *dow = t.tm_wday;
    return _DBStatus(DB_OK);
}
