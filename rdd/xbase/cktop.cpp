// cktop.cpp - the first key of an NTX index.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/cktop"};
}

// First (last = false) or last entry, for this file and ckbot.cpp.
int _DBclGoEnd(char *key, int32_t *recno, bool last) {
    DBNTXPKT *x = DBcli;
    DBNTXTREE tr;
    const int rc = _DBPathEnd(tr, x->t, x->td, x->tl, x->h.r, last);
    if (rc < 0) return here.fail(rc, __LINE__);
    if (rc != 0) return _DBStatus(rc);
    return _DBclCurrentEntry(key, recno);
}

int _DBclGoFirstKey(char *key, int32_t *recno) { return _DBclGoEnd(key, recno, false); }

// The shape every public move shares: resolve, check, refresh, move, settle.
int _DBclMove(int handle, char *key, int32_t *recno, int (*move)(char *, int32_t *)) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBclRefresh() != 0) return DBerrno;
    const int rc = move(key, recno);
    return _DBclSettle(rc, key, *recno);
}

extern "C" DBAPI int DBclGoFirstKey(int handle, char *key, int32_t *recno) {
    return _DBclMove(handle, key, recno, _DBclGoFirstKey);
}
