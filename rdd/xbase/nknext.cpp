// nknext.cpp - the next key of an NDX index, and the one step that next and
// previous share.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nknext"};
}

// One step from the current position. A shared index may have forgotten its
// path since the last call: the position is found again from the saved key
// first.
int _DBd3Step(char *key, int32_t *recno, bool forward) {
    DBNDXPKT *x = DBd3i;
    if (x->ck.k) {
        const int rc = _DBd3Reposition();
        if (rc < 0 || rc == DBW_EMPTY) return rc;
        // No saved place (x->tl < 0 now): the step below starts at an end.
        // The saved entry is gone (another process deleted it): the position
        // is on the entry before it, which is already the previous one; or,
        // below every key, on the first, which is already the next one.
        if ((rc == DBW_KEYNOTFOUND && !forward) || (rc == DBW_NOMOREKEYS && forward && x->tl >= 0)) return _DBd3CurrentEntry(key, recno);
    }
    DBNDXTREE tr;
    const int rc = _DBPathStep(tr, x->t, x->td, x->tl, _DBd3Offset(static_cast<uint32_t>(x->h.r)), forward);
    if (rc < 0) return here.fail(rc, __LINE__);
    if (rc == DBW_EMPTY) return _DBStatus(rc);
    if (_DBd3CurrentEntry(key, recno) != 0) return DBerrno;
    return _DBStatus(rc);
}

static int _next(char *key, int32_t *recno) { return _DBd3Step(key, recno, true); }

extern "C" DBAPI int DBd3GoNextKey(int handle, char *key, int32_t *recno) { return _DBd3Move(handle, key, recno, _next); }
