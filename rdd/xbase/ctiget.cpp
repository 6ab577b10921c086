// ctiget.cpp - the local time of day as a triple.
#include "date.h"

#include <ctime>

namespace {
constexpr DBSite here{"rdd/xbase/ctiget"};
}

extern "C" DBAPI int DBGetTime3(int *hour, int *minute, int *second, int *hundredths) {
    if (!hour || !minute || !second || !hundredths) return here.fail(DBE_NULLPARAM, __LINE__);
    struct tm t;
    if (!_DBLocalNow(t)) return here.fail(DBE_BADTIME, __LINE__);
    *hour = t.tm_hour;
    *minute = t.tm_min;
    *second = t.tm_sec;
    // time() counts whole seconds; there are no hundredths to give.
    *hundredths = 0;
    return _DBStatus(DB_OK);
}
