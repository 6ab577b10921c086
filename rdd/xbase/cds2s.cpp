// cds2s.cpp - a date string from one style to another.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/cds2s"};
}

extern "C" DBAPI int DBConvertDateStr(char *out, int outstyle, char *in, int instyle) {
    int y = 0, m = 0, d = 0;
    return _DBThen(here, DBStrDateTo3(&y, &m, &d, in, instyle), __LINE__,
                   [&] { return DBDate3ToStr(out, outstyle, y, m, d); }, __LINE__);
}
