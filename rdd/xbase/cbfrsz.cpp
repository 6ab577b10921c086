// cbfrsz.cpp - the number of NTX page buffers: read it, or change it.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/cbfrsz"};
}

extern "C" DBAPI int DBclGetSetCacheSize(int handle, short *size, int op) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!size) return here.fail(DBE_NULLPARAM, __LINE__);
    DBNTXPKT *x = DBcli;
    if (op == 1) {
        *size = x->pc.np;
        return _DBStatus(0);
    }
    if (op != 0) return here.fail(DBE_BADCOMMAND, __LINE__);
    // A write-through index keeps its three buffers whatever is asked.
    if (x->ph.m.always_flush) return _DBStatus(0);
    int16_t want = *size;
    const int rc = _DBPageResize(x->pc, _DBclPageFile(), &want);
    *size = want;
    if (rc < 0) return here.fail(rc, __LINE__);
    return _DBStatus(rc);
}
