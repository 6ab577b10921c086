// okperc.cpp - where the current key of a CDX tag or IDX file lies as a
// whole percentage, and the key at a percentage: each level of the path
// weighs its position by the share of the tree one of its children covers,
// scaled so that the first key reads 0 and the last one 100.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/okperc"};
}

extern "C" DBAPI int DBfpGetKeyPercent(int tag, int *percent) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!percent) return here.fail(DBE_NULLPARAM, __LINE__);
    *percent = 0;
    if (_DBfpRefresh() != 0) return DBerrno;
    DBCDXTAG *t = DBfpt;
    char key[DBCDXMAXKEY + 1];
    int32_t rec = 0;
    int rc = 0;
    if (_DBfpMustReposition()) {
        rc = _DBfpReposition();
        if (rc < 0 || rc == DBW_EMPTY) return _DBfpSettle(rc, nullptr, 0);
    }
    if (t->current_btree_page_level < 0) return _DBfpSettle(DBW_KEYNOTFOUND, nullptr, 0);
    if (_DBfpCurrentEntry(key, &rec) != 0) return _DBfpSettle(DBerrno, nullptr, 0);
    DBCDXTREE tr{t};
    double at = 0.0, top = 0.0;
    const int frc = _DBPathFraction(tr, t->page_tree_array, t->current_btree_page_level, 100.0, &at, &top);
    if (frc != 0) return _DBfpSettle(here.fail(frc, __LINE__), nullptr, 0);
    *percent = top > 0.0 ? static_cast<int>(at * 100.0 / top + 0.5) : 0;
    return _DBfpSettle(rc == DBW_KEYNOTFOUND || rc == DBW_NOMOREKEYS ? DBW_KEYNOTFOUND : 0, key, rec);
}

extern "C" DBAPI int DBfpGetKeyAtPercent(int tag, int percent, char *key, int32_t *recno) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBfpRefresh() != 0) return DBerrno;
    DBCDXTAG *t = DBfpt;
    DBCDXTREE tr{t};
    t->stale = false;
    int rc = _DBPathAtPercent(tr, t->page_tree_array, t->td, t->current_btree_page_level, _DBfpRoot(t), percent);
    if (rc < 0) rc = here.fail(rc, __LINE__);
    else if (rc == 0) rc = _DBfpCurrentEntry(key, recno);
    return _DBfpSettle(rc, key, *recno);
}

extern "C" DBAPI int DBfbGetKeyPercent(int handle, int *percent) { return DBfpGetKeyPercent(handle, percent); }
extern "C" DBAPI int DBfbGetKeyAtPercent(int handle, int percent, char *key, int32_t *recno) {
    return DBfpGetKeyAtPercent(handle, percent, key, recno);
}
