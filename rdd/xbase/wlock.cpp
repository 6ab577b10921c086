// wlock.cpp - the FPT memo lock (DBMEMO_LOCKPOS in memo.h says which byte
// and why).
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/wlock"};
}

int _DBfpLockMemo() {
    DBFPTPKT *m = DBfpm;
    if (m->ph.ls & DBMEMO_LOCKED) return 0;  // held already: one lock, one entry
    // fcntl refuses a write lock on a descriptor opened for reading.
    if (m->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    // The file layer answers a granted lock with DBerrno as it stood.
    DBerrno = 0;
    if (DBosLockData(m->ph.dh, 0, DBMEMO_LOCKPOS, DBMEMO_LOCKLEN) != 0) return DBerrno;
    m->ph.ls |= DBMEMO_LOCKED;
    return 0;
}

int _DBfpUnLockMemo() {
    DBFPTPKT *m = DBfpm;
    if (!(m->ph.ls & DBMEMO_LOCKED)) return 0;
    DBerrno = 0;
    if (DBosLockData(m->ph.dh, 1, DBMEMO_LOCKPOS, DBMEMO_LOCKLEN) != 0) return DBerrno;
    m->ph.ls &= static_cast<char>(~DBMEMO_LOCKED);
    return 0;
}

extern "C" DBAPI int DBfpLockMemo(int handle) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBfpLockMemo() != 0) return DBerrno;
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpUnLockMemo(int handle) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBfpUnLockMemo() != 0) return DBerrno;
    return _DBStatus(0);
}
