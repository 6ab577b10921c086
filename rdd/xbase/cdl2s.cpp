// cdl2s.cpp - day number to date string.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdl2s"};
}

extern "C" DBAPI int DBLongDateToStr(char *out, int style, int32_t daynum) {
    int y = 0, m = 0, d = 0;
    int rc = DBLongDateTo3(&y, &m, &d, daynum);
    if (rc < 0) return here.fail(rc, __LINE__);
    rc = DBDate3ToStr(out, style, y, m, d);
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}
