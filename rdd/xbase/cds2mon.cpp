// cds2mon.cpp - date string to the name of its month.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cds2mon"};
}

extern "C" DBAPI int DBStrDateToMonth(char *name, char *text, int style) {
    int y = 0, m = 0, d = 0;
    int rc = DBStrDateTo3(&y, &m, &d, text, style);
    if (rc < 0) return here.fail(rc, __LINE__);
    // A blank date brings month 0, which the name lookup refuses.
    rc = DBMonthToStr(name, m);
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}
