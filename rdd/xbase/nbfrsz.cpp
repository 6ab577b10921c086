// nbfrsz.cpp - the number of NDX node buffers: read it, or change it.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nbfrsz"};
}

extern "C" DBAPI int DBd3GetSetCacheSize(int handle, short *size, int op) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!size) return here.fail(DBE_NULLPARAM, __LINE__);
    DBNDXPKT *x = DBd3i;
    if (op == 1) {
        *size = x->pc.np;
        return _DBStatus(0);
    }
    if (op != 0) return here.fail(DBE_BADCOMMAND, __LINE__);
    // A write-through index keeps its three buffers whatever is asked.
    if (x->ph.m.always_flush) return _DBStatus(0);
    int16_t want = *size;
    const int rc = _DBPageResize(x->pc, _DBd3PageFile(), &want);
    *size = want;
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}
