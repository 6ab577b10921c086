// cdsget.cpp - today's local date as a date string.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cdsget"};
}

extern "C" DBAPI int DBGetDateStr(char *out, int style) {
    int y = 0, m = 0, d = 0, dow = 0;
    return _DBThen(here, DBGetDate3(&y, &m, &d, &dow), __LINE__,
                   [&] { return DBDate3ToStr(out, style, y, m, d); }, __LINE__);
}
