// tlock.cpp - the memo lock of both memo families (DBMEMO_LOCKPOS in memo.h
// says which byte and why), the lock a write takes with it, and the DBT
// lock functions.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/tlock"};
}

int _DBMemoLock(DBPKTHDR &ph, const DBSite &site, int line) {
    if (ph.ls & DBMEMO_LOCKED) return 0;  // held already: one lock, one entry
    // fcntl refuses a write lock on a descriptor opened for reading.
    if (ph.m.read_only) return site.fail(DBE_READONLY, line);
    // The file layer answers a granted lock with DBerrno as it stood.
    DBerrno = 0;
    if (DBosLockData(ph.dh, 0, DBMEMO_LOCKPOS, DBMEMO_LOCKLEN) != 0) return DBerrno;
    ph.ls |= DBMEMO_LOCKED;
    return 0;
}

int _DBMemoUnLock(DBPKTHDR &ph) {
    if (!(ph.ls & DBMEMO_LOCKED)) return 0;
    DBerrno = 0;
    if (DBosLockData(ph.dh, 1, DBMEMO_LOCKPOS, DBMEMO_LOCKLEN) != 0) return DBerrno;
    ph.ls &= static_cast<char>(~DBMEMO_LOCKED);
    return 0;
}

int _DBMemoWriteLock(DBPKTHDR &ph, char held, bool *taken, const DBSite &site, int line) {
    *taken = false;
    if (!ph.m.shared || (ph.ls & held)) return 0;
    if (!ph.m.auto_locks) return site.fail(DBE_NOTLOCKED, line);
    if (_DBMemoLock(ph, site, line) != 0) return DBerrno;
    *taken = true;
    return 0;
}

int _DBMemoWriteUnlock(DBPKTHDR &ph, bool taken, int rc) {
    if (!taken) return rc;
    const int saved = DBerrno;
    const int urc = _DBMemoUnLock(ph);
    if (rc == 0) return urc;
    DBerrno = saved;
    return rc;
}

extern "C" DBAPI int DBxbLockMemo(int handle) {
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBMemoLock(DBxbm->ph, here, __LINE__) != 0) return DBerrno;
    return _DBStatus(0);
}

extern "C" DBAPI int DBxbUnLockMemo(int handle) {
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBMemoUnLock(DBxbm->ph) != 0) return DBerrno;
    return _DBStatus(0);
}
