// tlock.cpp - the DBT memo lock (DBMEMO_LOCKPOS in memo.h says which byte
// and why).
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/tlock"};
}

int _DBxbLockMemo() {
    DBDBTPKT *m = DBxbm;
    if (m->ph.ls & DBMEMO_LOCKED) return 0;  // held already: one lock, one entry
    if (m->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    // The file layer answers a granted lock with DBerrno as it stood.
    DBerrno = 0;
    if (DBosLockData(m->ph.dh, 0, DBMEMO_LOCKPOS, DBMEMO_LOCKLEN) != 0) return DBerrno;
    m->ph.ls |= DBMEMO_LOCKED;
    return 0;
}

int _DBxbUnLockMemo() {
    DBDBTPKT *m = DBxbm;
    if (!(m->ph.ls & DBMEMO_LOCKED)) return 0;
    DBerrno = 0;
    if (DBosLockData(m->ph.dh, 1, DBMEMO_LOCKPOS, DBMEMO_LOCKLEN) != 0) return DBerrno;
    m->ph.ls &= static_cast<char>(~DBMEMO_LOCKED);
    return 0;
}

extern "C" DBAPI int DBxbLockMemo(int handle) {
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBxbLockMemo() != 0) return DBerrno;
    return _DBStatus(0);
}

extern "C" DBAPI int DBxbUnLockMemo(int handle) {
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBxbUnLockMemo() != 0) return DBerrno;
    return _DBStatus(0);
}
