// cdsleap.cpp - whether the year of a date string is a leap year.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdsleap"};
}

extern "C" DBAPI int DBIsStrLeapYear(char *text, int style) {
    int y = 0, m = 0, d = 0;
    const int rc = DBStrDateTo3(&y, &m, &d, text, style);
    if (rc < 0) return here.fail(rc, __LINE__);
    // A blank date carries year 0, which is leap: the answer is then 1,
    // with DBerrno holding the parser's 202.
    return DBIsLeapYear(y);
}
