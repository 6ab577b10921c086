// cds2dow.cpp - date string to day of the week (0 = Sunday).
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cds2dow"};
}

extern "C" DBAPI int DBStrDateToIntDayWeek(int *dow, char *text, int style) {
    int32_t n = 0;
    int rc = DBStrDateToLong(&n, text, style);
    if (rc < 0) return here.fail(rc, __LINE__);
    rc = DBLongDateToDayOfWeek(dow, n);
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}
