// cdsmonth.cpp - the name of a month, and the month-name table.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdsmonth"};
}

const char *const qd_monstr[12] = {"January", "February", "March",     "April",
                                   "May",     "June",     "July",      "August",
                                   "September", "October", "November", "December"};

extern "C" DBAPI int DBMonthToStr(char *name, int month) {
    if (!name) return here.fail(DBE_NULLPARAM, __LINE__);
    if (month < 1 || month > 12) return here.fail(DBE_BADDATE, __LINE__);
    // At most "September" and its NUL: 10 bytes.
    std::strcpy(name, qd_monstr[month - 1]);
    return _DBStatus(DB_OK);
}
