// cdl2dow.cpp - day of the week of a day number.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdl2dow"};
}

extern "C" DBAPI int DBLongDateToDayOfWeek(int *dow, int32_t daynum) {
    if (!dow) return here.fail(DBE_NULLPARAM, __LINE__);
    if (daynum < DBMINDAYNUM || daynum > DBMAXDAYNUM) return here.fail(DBE_BADDATE, __LINE__);
    // Day 1 (1 January 1) is a Monday, so the plain remainder counts from
    // Sunday = 0.
    *dow = static_cast<int>(daynum % 7);
    return _DBStatus(DB_OK);
}
