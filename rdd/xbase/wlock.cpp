// wlock.cpp - the FPT lock functions (the memo lock itself is tlock.cpp's,
// shared by both memo families).
#include "memo.h"

namespace {
constexpr DBSite here{"rdd/xbase/wlock"};
}

extern "C" DBAPI int DBfpLockMemo(int handle) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBMemoLock(DBfpm->ph, here, __LINE__) != 0) return DBerrno;
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpUnLockMemo(int handle) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBMemoUnLock(DBfpm->ph) != 0) return DBerrno;
    return _DBStatus(0);
}
