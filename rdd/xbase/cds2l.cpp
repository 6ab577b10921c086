// cds2l.cpp - date string to day number.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cds2l"};
}

extern "C" DBAPI int DBStrDateToLong(int32_t *daynum, char *text, int style) {
    int y = 0, m = 0, d = 0;
    // A blank date (202) is not a failure of the parser: its zeros go on to
    // the conversion, which refuses year 0 month 0 as an invalid date.
    return _DBThen(here, DBStrDateTo3(&y, &m, &d, text, style), __LINE__,
                   [&] { return DBDate3ToLong(daynum, y, m, d); }, __LINE__);
}
