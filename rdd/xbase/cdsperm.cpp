// cdsperm.cpp - the length of the month of a date string.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdsperm"};
}

extern "C" DBAPI int DBDaysInMonthStr(int *days, char *text, int style) {
    int y = 0, m = 0, d = 0;
    int rc = DBStrDateTo3(&y, &m, &d, text, style);
    if (rc < 0) return here.fail(rc, __LINE__);
    rc = DBDaysInMonth(days, y, m);
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}
