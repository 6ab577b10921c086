// cdl2i.cpp - day number to date triple, the inverse of the average-year
// rule of DBDate3ToLong.
//
// Where the forward rule gives a 31 December and the next 1 January the
// same number, this returns the 1 January. Where the forward rule skips a
// number (a common year that starts 366 numbers before the next one), the
// remainder comes out as 366 in a 365-day year, the month walk runs past
// December and the number is refused as an invalid date.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdl2i"};
}

extern "C" DBAPI int DBLongDateTo3(int *year, int *month, int *day, int32_t daynum) {
    if (!year || !month || !day) return here.fail(DBE_NULLPARAM, __LINE__);
    if (daynum < DBMINDAYNUM || daynum > DBMAXDAYNUM) return here.fail(DBE_BADDATE, __LINE__);
    int32_t y = _DBWholeYears(daynum);
    int32_t rem = daynum - _DBYearDays(y);
    if (rem == 0) {
        // The number closes year y exactly (whole multiples of 400 years).
        // No leap-year test is made on this path: DBdpm[2] keeps whatever
        // the last test left.
        *year = y;
        *month = 12;
        *day = 31;
        return _DBStatus(DB_OK);
    }
    ++y;
    DBIsLeapYear(y);
    if (rem >= 367) return here.fail(DBE_BADDATE, __LINE__);
    int m = 1;
    // The month bound is tested first so DBdpm is never read past December.
    while (m <= 12 && rem > DBdpm[m]) {
        rem -= DBdpm[m];
        ++m;
    }
    if (m > 12) return here.fail(DBE_BADDATE, __LINE__);
    *year = y;
    *month = m;
    *day = rem;
    return _DBStatus(DB_OK);
}
