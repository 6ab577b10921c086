// otbfrsz.cpp - the number of page buffers of a CDX tag or IDX file: read
// it, or change it.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/otbfrsz"};
}

extern "C" DBAPI int DBfpGetSetCacheSize(int tag, short *size, int op) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!size) return here.fail(DBE_NULLPARAM, __LINE__);
    DBCDXTAG *t = DBfpt;
    if (op == 1) {
        *size = t->cp.np;
        return _DBStatus(0);
    }
    if (op != 0) return here.fail(DBE_BADCOMMAND, __LINE__);
    int16_t want = *size;
    const int rc = _DBPageResize(t->cp, _DBfpPageFile(t), &want);
    *size = want;
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}

extern "C" DBAPI int DBfbGetSetCacheSize(int handle, short *size, int op) { return DBfpGetSetCacheSize(handle, size, op); }
