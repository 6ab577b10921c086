// cdl2s.cpp - day number to date string.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdl2s"};
}

extern "C" DBAPI int DBLongDateToStr(char *out, int style, int32_t daynum) {
    int y = 0, m = 0, d = 0;
    return _DBThen(here, DBLongDateTo3(&y, &m, &d, daynum), __LINE__,
                   [&] { return DBDate3ToStr(out, style, y, m, d); }, __LINE__);
}
