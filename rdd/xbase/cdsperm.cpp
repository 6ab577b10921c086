// cdsperm.cpp - the length of the month of a date string.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdsperm"};
}

extern "C" DBAPI int DBDaysInMonthStr(int *days, char *text, int style) {
    int y = 0, m = 0, d = 0;
    return _DBThen(here, DBStrDateTo3(&y, &m, &d, text, style), __LINE__,
                   [&] { return DBDaysInMonth(days, y, m); }, __LINE__);
}
