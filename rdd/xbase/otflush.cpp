// otflush.cpp - writing a CDX or IDX file's pending pages and header on
// request.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/otflush"};
}

// Every tag of the file is flushed, whichever handle names it: the free
// list and the change counter belong to the file, and a header written
// ahead of another tag's pages would describe a tree not yet on disk.
extern "C" DBAPI int DBfpFlushIndex(int handle) {
    if (_DBfpLockIndexStruc(handle) != 0) return DBerrno;
    DBCDXPKT *x = DBfpi;
    if (x->ph.m.always_flush) return _DBStatus(DBW_UNBUFFERED);
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    const bool take = x->ph.m.shared && !x->ph.ls;
    if (take && _DBfpLockIndex(0) != 0) return DBerrno;
    int rc = _DBfpFlushIndex();
    if (take) {
        const int u = _DBfpUnLockIndex();
        if (rc == 0) rc = u;
        _DBfpClearPageBuffer();
    }
    return rc != 0 ? here.fail(rc, __LINE__) : _DBStatus(0);
}

extern "C" DBAPI int DBfbFlushIndex(int handle) { return DBfpFlushIndex(handle); }
