// ctsdiff.cpp - seconds between two time texts.
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/ctsdiff"};
}

extern "C" DBAPI int DBSecondsBetweenStr(int32_t *seconds, char *text1, int style1, char *text2,
                                         int style2) {
    // Both texts are parsed before the output is looked at, so a bad text
    // is reported as such even when the output pointer is missing too.
    int h1 = 0, m1 = 0, s1 = 0, h2 = 0, m2 = 0, s2 = 0;
    int rc = DBStrTimeTo3(&h1, &m1, &s1, text1, style1);
    if (rc < 0) return here.fail(rc, __LINE__);
    rc = DBStrTimeTo3(&h2, &m2, &s2, text2, style2);
    if (rc < 0) return here.fail(rc, __LINE__);
    if (!seconds) return here.fail(DBE_NULLPARAM, __LINE__);
    const int32_t a = h1 * 3600 + m1 * 60 + s1;
    const int32_t b = h2 * 3600 + m2 * 60 + s2;
    *seconds = a > b ? a - b : b - a;
    return _DBStatus(DB_OK);
}
