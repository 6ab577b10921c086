// oknext.cpp - the next key of a CDX tag or IDX file. Moves follow the
// descent path, not the sibling pointers: the path is what a search leaves,
// and it needs no page beyond the ones it names.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/oknext"};

int _next(char *key, int32_t *recno) { return _DBfpStep(key, recno, true); }
}  // namespace

// One step from the current position (this file and okprev.cpp). A shared
// file lost its cached path since the last call: the position is found
// again from the saved key first.
int _DBfpStep(char *key, int32_t *recno, bool forward) {
    DBCDXTAG *t = DBfpt;
    // Without a saved place the old path may name pages that changed: the
    // step starts again from an end.
    if (_DBfpMustReposition() && t->ck.r == 0) {
        t->current_btree_page_level = -1;
        t->stale = false;
    }
    if (_DBfpMustReposition()) {
        const int rc = _DBfpReposition();
        if (rc < 0 || rc == DBW_EMPTY) return rc;
        // The saved entry is gone (another process deleted it): the position
        // is now on the entry after it, which is already the next one; or,
        // past every entry, on the last, which is already the previous one.
        if ((rc == DBW_KEYNOTFOUND && forward) || (rc == DBW_NOMOREKEYS && !forward))
            return _DBfpCurrentEntry(key, recno);
    }
    DBCDXTREE tr{t};
    const int rc = _DBPathStep(tr, t->page_tree_array, t->td, t->current_btree_page_level, _DBfpRoot(t), forward);
    if (rc < 0) return here.fail(rc, __LINE__);
    if (rc == DBW_EMPTY) return _DBStatus(rc);
    if (_DBfpCurrentEntry(key, recno) != 0) return DBerrno;
    return _DBStatus(rc);
}

extern "C" DBAPI int DBfpGoNextKey(int tag, char *key, int32_t *recno) { return _DBfpMove(tag, key, recno, _next); }
extern "C" DBAPI int DBfbGoNextKey(int handle, char *key, int32_t *recno) { return _DBfpMove(handle, key, recno, _next); }
