// nslock.cpp - the NDX read lock: a shared lock on byte 2,147,483,647, the
// byte NTX readers take. It is released only when the file is closed (an
// unlock releases the write byte alone).
#include "ndx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/nslock"};
}

int _DBd3RLockIndex() {
    DBNDXPKT *x = DBd3i;
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, 2, DBNDX_RLOCK, 1) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.ls = DBNDX_LOCKED;
    if (_DBd3GetIndexHeader() != 0) return DBerrno;
    x->ph.m.read_header_information = 0;
    return 0;
}

extern "C" DBAPI int DBd3RLockIndex(int handle) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!DBd3i->ph.m.shared || DBd3i->ph.ls) return _DBStatus(0);
    return _DBd3RLockIndex() != 0 ? DBerrno : _DBStatus(0);
}
