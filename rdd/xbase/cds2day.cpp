// cds2day.cpp - date string to the name of its day of the week.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cds2day"};
}

extern "C" DBAPI int DBStrDateToDayOfWeek(char *name, char *text, int style) {
    int dow = 0;
    int rc = DBStrDateToIntDayWeek(&dow, text, style);
    if (rc < 0) return here.fail(rc, __LINE__);
    rc = DBDayOfWeek(name, dow);
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}
