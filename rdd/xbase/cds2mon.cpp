// cds2mon.cpp - date string to the name of its month.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cds2mon"};
}

extern "C" DBAPI int DBStrDateToMonth(char *name, char *text, int style) {
    int y = 0, m = 0, d = 0;
    // A blank date brings month 0, which the name lookup refuses.
    return _DBThen(here, DBStrDateTo3(&y, &m, &d, text, style), __LINE__,
                   [&] { return DBMonthToStr(name, m); }, __LINE__);
}
