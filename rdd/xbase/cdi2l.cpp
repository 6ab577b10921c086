// cdi2l.cpp - date triple to day number.
//
// The day number is not a true calendar count: it starts each year at the
// whole days in (year - 1) average years of 365.2425 days. So some
// 31 December shares its number with the next 1 January, and elsewhere a
// number belongs to no date. Index keys hold these numbers, so the rule is
// kept exactly as it is.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdi2l"};
}

extern "C" DBAPI int DBDate3ToLong(int32_t *daynum, int year, int month, int day) {
    if (!daynum) return here.fail(DBE_NULLPARAM, __LINE__);
    if (!_DBValidDate3(year, month, day)) return here.fail(DBE_BADDATE, __LINE__);
    // Year 0 gives -1 average years: -365.2425 truncates toward zero to -365.
    int32_t n = _DBYearDays(year - 1) + day;
    for (int m = 1; m < month; ++m) n += DBdpm[m];
    *daynum = n;
    return _DBStatus(DB_OK);
}
