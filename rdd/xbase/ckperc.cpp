// ckperc.cpp - where a key lies in an NTX index as a whole percentage, and
// the key at a percentage: each level of the path weighs its position by
// the share of the tree one of its child positions covers.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/ckperc"};
}

extern "C" DBAPI int DBclGetKeyPercent(int handle, int *percent, char *key, int32_t recno) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!percent || !key) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBclRefresh() != 0) return DBerrno;
    DBNTXPKT *x = DBcli;
    const size_t n = strnlen(key, static_cast<size_t>(x->h.k));
    std::memcpy(DBkeybfr1, key, n);
    DBkeybfr1[n] = '\0';
    int32_t rec = recno;
    int rc = _DBclKeySearch(DBkeybfr1, &rec, recno != 0 ? 2 : 1);
    *percent = 0;
    if (rc >= 0 && x->tl >= 0) {
        DBNTXTREE tr;
        double at = 0.0, top = 0.0;
        const int frc = _DBPathFraction(tr, x->t, x->tl, 100.0, &at, &top);
        if (frc != 0) rc = here.fail(frc, __LINE__);
        else *percent = static_cast<int>(at + 0.49);
    }
    return _DBclSettle(rc, DBkeybfr1, rec);
}

extern "C" DBAPI int DBclGetKeyAtPercent(int handle, int percent, char *key, int32_t *recno) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBclRefresh() != 0) return DBerrno;
    DBNTXPKT *x = DBcli;
    DBNTXTREE tr;
    int rc = _DBPathAtPercent(tr, x->t, x->td, x->tl, x->h.r, percent);
    if (rc < 0) rc = here.fail(rc, __LINE__);
    else if (rc == 0) rc = _DBclCurrentEntry(key, recno);
    return _DBclSettle(rc, key, *recno);
}
