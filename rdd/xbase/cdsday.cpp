// cdsday.cpp - the name of a day of the week, and the day-name table.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdsday"};
}

const char *const qd_daystr[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};

extern "C" DBAPI int DBDayOfWeek(char *name, int dow) {
    if (!name) return here.fail(DBE_NULLPARAM, __LINE__);
    if (dow < 0 || dow > 6) return here.fail(DBE_BADDATE, __LINE__);
    // At most "Wednesday" and its NUL: 10 bytes.
    std::strcpy(name, qd_daystr[dow]);
    return _DBStatus(DB_OK);
}
