// cdsget.cpp - today's local date as a date string.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdsget"};
}

extern "C" DBAPI int DBGetDateStr(char *out, int style) {
    int y = 0, m = 0, d = 0, dow = 0;
    int rc = DBGetDate3(&y, &m, &d, &dow);
    if (rc < 0) return here.fail(rc, __LINE__);
    rc = DBDate3ToStr(out, style, y, m, d);
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}
