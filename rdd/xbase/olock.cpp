// olock.cpp - the whole-index lock of CDX and IDX files and its release.
//
// The lock is one byte: 0x7FFFFFFE in compact files, 0x40000000 in
// non-compact IDX files, exclusive to change the file, shared to read it.
// POSIX record locks belong to the process: two handles of one process on
// the same file do not keep each other out, a shared lock asked for on a
// byte the process holds exclusively turns that lock into a shared one, and
// closing any descriptor of the file drops every lock the process holds on
// it. While the lock was not held, other processes may have changed any
// page, the roots and the free list: taking it rereads the header and every
// open tag's root, and forgets every cached page.
#include "cdx.h"
#include "os.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/olock"};

int32_t _byte() { return _DBfpIsCompact(static_cast<uint8_t>(DBfpi->file_type)) ? DBCDX_LOCKBYTE : DBIDX_LOCKBYTE; }

void _trace(const char *what, const char *srcfile, int line) {
    if (g_logging && vorn_debugf)
        vorn_debugf("%s %s handle %s:%d\n", what, DBfpi->ph.n, srcfile ? srcfile : "?", line);
}
}  // namespace

int _DBfpLockIndex(int type) {
    DBCDXPKT *x = DBfpi;
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, type, _byte(), 1) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.ls = DBCDX_LOCKED;
    x->ph.m.read_header_information = 0;
    if (!x->ph.m.shared) return 0;
    // Changes of our own not yet written (made without the lock) are ours
    // to write: they are kept, and the header in memory with them.
    if (_DBfpPending(x)) return 0;
    DBCDXTAG *saved = DBfpt;
    int rc = 0;
    for (int s = 0; s < DBCDXTAGS; s++) {
        DBCDXTAG *t = x->tt[s];
        if (!t) continue;
        _DBfpForgetTag(t);
        t->stale = true;
        DBfpt = t;
        if (rc == 0) rc = _DBfpGetIndexHeader();
    }
    DBfpt = saved;
    if (rc != 0) {
        // A lock whose header could not be read is given back: kept, it
        // would make every later call skip locking (and never unlock).
        DBosLockData(x->ph.dh, 1, _byte(), 1);
        x->ph.ls = 0;
        x->ph.m.read_header_information = 1;
        return here.fail(rc, __LINE__);
    }
    return 0;
}

int _DBfpUnLockIndex() {
    DBCDXPKT *x = DBfpi;
    if (x->ph.ls == 0) return 0;
    // What was changed under the lock is written while it is still held.
    const int flushed = _DBfpFlushIndex();
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, 1, _byte(), 1) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.ls = 0;
    if (x->ph.m.shared) x->ph.m.read_header_information = 1;
    return flushed != 0 ? here.fail(flushed, __LINE__) : 0;
}

int DBCDXAUTOLOCK::take() {
    DBCDXPKT *x = DBfpi;
    if (!x->ph.m.auto_locks || x->ph.ls) return 0;
    if (_DBfpLockIndex(0) != 0) return DBerrno;
    x_ = x;
    tag_ = DBtag;
    return 0;
}

DBCDXAUTOLOCK::~DBCDXAUTOLOCK() {
    if (!x_) return;
    const int rc = DBerrno;
    DBCDXPKT *sp = DBfpi;
    DBCDXTAG *st = DBfpt;
    const int16_t stag = DBtag;
    DBfpi = x_;
    DBfpt = x_->tt[tag_] ? x_->tt[tag_] : x_->tt[0];
    _DBfpUnLockIndex();
    // Unlocked now: a shared file keeps nothing cached.
    _DBfpClearPageBuffer();
    DBfpi = sp;
    DBfpt = st;
    DBtag = stag;
    DBerrno = rc;
}

extern "C" DBAPI int DBfpLockIndex(int handle, int type, char *srcfile, int line) {
    if (_DBfpLockIndexStruc(handle) != 0) return DBerrno;
    if (type != 0 && type != 2) return here.fail(DBE_BADCOMMAND, __LINE__);
    _trace(type == 0 ? "lock" : "read lock", srcfile, line);
    if (!DBfpi->ph.m.shared || DBfpi->ph.ls) return _DBStatus(0);
    return _DBfpLockIndex(type) != 0 ? DBerrno : _DBStatus(0);
}

extern "C" DBAPI int DBfpUnLockIndex(int handle, char *srcfile, int line) {
    if (_DBfpLockIndexStruc(handle) != 0) return DBerrno;
    _trace("unlock", srcfile, line);
    if (!DBfpi->ph.m.shared) return _DBStatus(0);
    const int rc = _DBfpUnLockIndex();
    const int cleared = _DBfpClearPageBuffer();
    if (rc != 0) return _DBStatus(rc);
    return _DBStatus(cleared);
}

extern "C" DBAPI int DBfbLockIndex(int handle) { return DBfpLockIndex(handle, 0, nullptr, 0); }
extern "C" DBAPI int DBfbUnLockIndex(int handle) { return DBfpUnLockIndex(handle, nullptr, 0); }
