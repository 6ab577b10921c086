// cdiperm.cpp - the length of a month.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdiperm"};
}

extern "C" DBAPI int DBDaysInMonth(int *days, int year, int month) {
    if (!days) return here.fail(DBE_NULLPARAM, __LINE__);
    // Unlike the triple check, year 0 is refused here.
    if (year < 1 || year > 9999 || month < 1 || month > 12) return here.fail(DBE_BADDATE, __LINE__);
    // Only February needs the leap-year test; other months leave DBdpm[2]
    // as the last test left it.
    if (month == 2) DBIsLeapYear(year);
    *days = DBdpm[month];
    return _DBStatus(DB_OK);
}
