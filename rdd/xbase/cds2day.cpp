// cds2day.cpp - date string to the name of its day of the week.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cds2day"};
}

extern "C" DBAPI int DBStrDateToDayOfWeek(char *name, char *text, int style) {
    int dow = 0;
    return _DBThen(here, DBStrDateToIntDayWeek(&dow, text, style), __LINE__,
                   [&] { return DBDayOfWeek(name, dow); }, __LINE__);
}
