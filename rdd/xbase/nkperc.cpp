// nkperc.cpp - where a key lies in an NDX index as a whole percentage, and
// the key at a percentage: each level of the path weighs its position by
// the share of the tree one of its child positions covers.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nkperc"};
}

extern "C" DBAPI int DBd3GetKeyPercent(int handle, int *percent, char *key, int32_t recno) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!percent || !key) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBd3Refresh() != 0) return DBerrno;
    DBNDXPKT *x = DBd3i;
    char k[DBNDXBLOCK];
    std::memcpy(k, key, x->h.type == 1 ? 8 : strnlen(key, x->h.k));
    k[x->h.type == 1 ? 8 : strnlen(key, x->h.k)] = '\0';
    int32_t rec = recno;
    int rc = _DBd3KeySearch(k, &rec, recno != 0 ? 2 : 1);
    *percent = 0;
    if (rc >= 0 && x->tl >= 0) {
        DBNDXTREE tr;
        double at = 0.0, top = 0.0;
        const int frc = _DBPathFraction(tr, x->t, x->tl, 100.0, &at, &top);
        if (frc != 0) rc = here.fail(frc, __LINE__);
        else *percent = static_cast<int>(at + 0.49);
    }
    return _DBd3Settle(rc, k, rec);
}

extern "C" DBAPI int DBd3GetKeyAtPercent(int handle, int percent, char *key, int32_t *recno) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBd3Refresh() != 0) return DBerrno;
    DBNDXPKT *x = DBd3i;
    DBNDXTREE tr;
    int rc = _DBPathAtPercent(tr, x->t, x->td, x->tl, _DBd3Offset(static_cast<uint32_t>(x->h.r)), percent);
    if (rc < 0) rc = here.fail(rc, __LINE__);
    else if (rc == 0) rc = _DBd3CurrentEntry(key, recno);
    return _DBd3Settle(rc, key, *recno);
}
