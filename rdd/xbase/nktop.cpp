// nktop.cpp - the first key of an NDX index, and the shape every public
// move shares.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nktop"};
}

// First (last = false) or last entry, for this file and nkbot.cpp.
int _DBd3GoEnd(char *key, int32_t *recno, bool last) {
    DBNDXPKT *x = DBd3i;
    DBNDXTREE tr;
    const int rc = _DBPathEnd(tr, x->t, x->td, x->tl, _DBd3Offset(static_cast<uint32_t>(x->h.r)), last);
    if (rc < 0) return here.fail(rc, __LINE__);
    if (rc != 0) return _DBStatus(rc);
    return _DBd3CurrentEntry(key, recno);
}

static int _first(char *key, int32_t *recno) { return _DBd3GoEnd(key, recno, false); }

// Resolve, check, refresh, move, settle.
int _DBd3Move(int handle, char *key, int32_t *recno, int (*move)(char *, int32_t *)) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBd3Refresh() != 0) return DBerrno;
    const int rc = move(key, recno);
    return _DBd3Settle(rc, key, *recno);
}

extern "C" DBAPI int DBd3GoFirstKey(int handle, char *key, int32_t *recno) { return _DBd3Move(handle, key, recno, _first); }
