// cdsdiff.cpp - days between two date strings.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdsdiff"};
}

extern "C" DBAPI int DBDaysBetweenStr(int32_t *days, char *text1, int style1, char *text2,
                                      int style2) {
    if (!days) return here.fail(DBE_NULLPARAM, __LINE__);
    int32_t a = 0, b = 0;
    int rc = DBStrDateToLong(&a, text1, style1);
    if (rc < 0) return here.fail(rc, __LINE__);
    rc = DBStrDateToLong(&b, text2, style2);
    if (rc < 0) return here.fail(rc, __LINE__);
    // Both lie in 1..3652059, so the difference cannot overflow.
    *days = a > b ? a - b : b - a;
    return _DBStatus(DB_OK);
}
