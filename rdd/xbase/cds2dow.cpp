// cds2dow.cpp - date string to day of the week (0 = Sunday).
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cds2dow"};
}

extern "C" DBAPI int DBStrDateToIntDayWeek(int *dow, char *text, int style) {
    int32_t n = 0;
    return _DBThen(here, DBStrDateToLong(&n, text, style), __LINE__,
                   [&] { return DBLongDateToDayOfWeek(dow, n); }, __LINE__);
}
