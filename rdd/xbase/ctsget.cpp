// ctsget.cpp - the local time of day as a time text.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/ctsget"};
}

extern "C" DBAPI int DBGetTimeStr(char *out, int style) {
    int h = 0, m = 0, s = 0, hs = 0;
    // localtime may report a leap second as :60, which the conversion
    // refuses as an invalid time.
    return _DBThen(here, DBGetTime3(&h, &m, &s, &hs), __LINE__,
                   [&] { return DBTime3ToStr(out, style, h, m, s); }, __LINE__);
}
