// ckcur.cpp - the key at the current position of an NTX index, and finding
// that position again in a shared write-through index.
#include "ntx.h"

int _DBclReposition() {
    DBNTXPKT *x = DBcli;
    if (x->ck.r == 0) {
        x->tl = -1;
        return _DBStatus(DBW_NOMOREKEYS);
    }
    std::memcpy(DBkeybfr2, x->ck.k, static_cast<size_t>(x->h.k) + 1);
    int32_t rec = x->ck.r;
    return _DBclKeySearch(DBkeybfr2, &rec, 2);
}

int _DBclGetCurrentKey(char *key, int32_t *recno) {
    DBNTXPKT *x = DBcli;
    if (x->ph.m.shared && x->ph.m.always_flush && x->ck.k) {
        const int rc = _DBclReposition();
        if (rc < 0 || rc == DBW_EMPTY || x->tl < 0) return rc;
        const int got = _DBclCurrentEntry(key, recno);
        return got != 0 ? got : _DBStatus(rc);
    }
    if (x->tl < 0) return _DBStatus(DBW_NOMOREKEYS);
    return _DBclCurrentEntry(key, recno);
}

extern "C" DBAPI int DBclGetCurrentKey(int handle, char *key, int32_t *recno) {
    const int rc = _DBclMove(handle, key, recno, _DBclGetCurrentKey);
    return rc == DBW_NOMOREKEYS ? _DBStatus(DBW_KEYNOTFOUND) : rc;
}
