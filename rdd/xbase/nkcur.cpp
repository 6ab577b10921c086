// nkcur.cpp - the key at the current position of an NDX index, and finding
// that position again in a shared index.
#include "ndx.h"

int _DBd3Reposition() {
    DBNDXPKT *x = DBd3i;
    if (x->ck.r == 0) {
        x->tl = -1;
        return _DBStatus(DBW_NOMOREKEYS);
    }
    std::memcpy(DBkeybfr2, x->ck.k, static_cast<size_t>(x->h.k) + 1);
    int32_t rec = x->ck.r;
    return _DBd3Find(DBkeybfr2, x->h.k, 2, rec, DBkeybfr2, &rec);
}

int _DBd3GetCurrentKey(char *key, int32_t *recno) {
    DBNDXPKT *x = DBd3i;
    if (x->ck.k) {
        const int rc = _DBd3Reposition();
        if (rc < 0 || rc == DBW_EMPTY || x->tl < 0) return rc;
        const int got = _DBd3CurrentEntry(key, recno);
        return got != 0 ? got : _DBStatus(rc);
    }
    if (x->tl < 0) return _DBStatus(DBW_NOMOREKEYS);
    return _DBd3CurrentEntry(key, recno);
}

extern "C" DBAPI int DBd3GetCurrentKey(int handle, char *key, int32_t *recno) {
    const int rc = _DBd3Move(handle, key, recno, _DBd3GetCurrentKey);
    return rc == DBW_NOMOREKEYS ? _DBStatus(DBW_KEYNOTFOUND) : rc;
}
