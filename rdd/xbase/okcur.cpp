// okcur.cpp - the key at the current position of a CDX tag or IDX file.
#include "cdx.h"

namespace {
int _current(char *key, int32_t *recno) {
    DBCDXTAG *t = DBfpt;
    if (_DBfpMustReposition()) {
        const int rc = _DBfpReposition();
        if (rc < 0 || rc == DBW_EMPTY || t->current_btree_page_level < 0) return rc;
        const int got = _DBfpCurrentEntry(key, recno);
        // Not found again: the entry went, the one after it is reported.
        if (got != 0) return got;
        return _DBStatus(rc == 0 ? 0 : DBW_KEYNOTFOUND);
    }
    if (t->current_btree_page_level < 0) return _DBStatus(DBW_NOMOREKEYS);
    return _DBfpCurrentEntry(key, recno);
}

int _public(int tag, char *key, int32_t *recno) {
    const int rc = _DBfpMove(tag, key, recno, _current);
    return rc == DBW_NOMOREKEYS ? _DBStatus(DBW_KEYNOTFOUND) : rc;
}
}  // namespace

extern "C" DBAPI int DBfpGetCurrentKey(int tag, char *key, int32_t *recno) { return _public(tag, key, recno); }
extern "C" DBAPI int DBfbGetCurrentKey(int handle, char *key, int32_t *recno) { return _public(handle, key, recno); }
