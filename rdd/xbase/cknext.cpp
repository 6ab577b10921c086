// cknext.cpp - the next key of an NTX index.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/cknext"};
}

// One step from the current position (this file and ckprev.cpp). A shared
// write-through index lost its cached path after the last call: the
// position is found again from the saved key first.
int _DBclStep(char *key, int32_t *recno, bool forward) {
    DBNTXPKT *x = DBcli;
    if (x->ph.m.shared && x->ph.m.always_flush && x->ck.k) {
        const int rc = _DBclReposition();
        if (rc < 0 || rc == DBW_EMPTY) return rc;
        if (rc == DBW_NOMOREKEYS && x->tl < 0) return _DBStatus(DBW_KEYNOTFOUND);
        // The saved entry is gone (another process deleted it): the position
        // is now on the entry before it, which is already the previous one;
        // or, below every key, on the first, which is already the next one.
        if ((rc == DBW_KEYNOTFOUND && !forward) || (rc == DBW_NOMOREKEYS && forward))
            return _DBclCurrentEntry(key, recno);
    }
    DBNTXTREE tr;
    const int rc = _DBPathStep(tr, x->t, x->td, x->tl, x->h.r, forward);
    if (rc < 0) return here.fail(rc, __LINE__);
    if (rc == DBW_EMPTY) return _DBStatus(rc);
    if (_DBclCurrentEntry(key, recno) != 0) return DBerrno;
    return _DBStatus(rc);
}

int _DBclGoNextKey(char *key, int32_t *recno) { return _DBclStep(key, recno, true); }

extern "C" DBAPI int DBclGoNextKey(int handle, char *key, int32_t *recno) {
    return _DBclMove(handle, key, recno, _DBclGoNextKey);
}
