// cdiget.cpp - today's local date as a triple and a day of the week, and the
// local clock that the date and time functions read.
#include "date.h"

#include <ctime>

namespace {
constexpr DBSite here{"rdd/xbase/cdiget"};
}

bool _DBLocalNow(struct tm &now) {
    const time_t t = time(nullptr);
    // localtime hands back shared storage: copy from it at once.
    const struct tm *lt = localtime(&t);
    if (!lt) return false;
    now = *lt;
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
