// oktop.cpp - the first key of a CDX tag or IDX file, and the shape every
// public move shares.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/oktop"};

int _first(char *key, int32_t *recno) { return _DBfpGoEnd(key, recno, false); }
}  // namespace

// First (last = false) or last entry, for this file and okbot.cpp.
int _DBfpGoEnd(char *key, int32_t *recno, bool last) {
    DBCDXTAG *t = DBfpt;
    DBCDXTREE tr{t};
    t->stale = false;
    const int rc = _DBPathEnd(tr, t->page_tree_array, t->td, t->current_btree_page_level, _DBfpRoot(t), last);
    if (rc < 0) return here.fail(rc, __LINE__);
    if (rc != 0) return _DBStatus(rc);
    return _DBfpCurrentEntry(key, recno);
}

int _DBfpMove(int tag, char *key, int32_t *recno, int (*move)(char *, int32_t *)) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBfpRefresh() != 0) return DBerrno;
    const int rc = move(key, recno);
    return _DBfpSettle(rc, key, *recno);
}

extern "C" DBAPI int DBfpGoFirstKey(int tag, char *key, int32_t *recno) { return _DBfpMove(tag, key, recno, _first); }
extern "C" DBAPI int DBfbGoFirstKey(int handle, char *key, int32_t *recno) { return _DBfpMove(handle, key, recno, _first); }
