// nlock.cpp - the NDX write lock and its release.
//
// The locks are one byte each at the addresses the NTX family uses: the
// write lock at 1,000,000,000, the read lock at 2,147,483,647 (nslock.cpp),
// so that a program guarding both kinds of index the same way keeps working.
// POSIX record locks belong to the process: two handles of one process on
// one index do not keep each other out, and closing any descriptor of the
// file drops every lock the process holds on it. A lock taken here is
// followed by a reread of the header: while it was not held, other writers
// may have moved the root, grown the file or changed any node.
#include "ndx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/nlock"};
}

int _DBd3LockIndex() {
    DBNDXPKT *x = DBd3i;
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, 0, DBNDX_WLOCK, 1) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.ls = DBNDX_LOCKED;
    if (_DBd3GetIndexHeader() != 0) return DBerrno;
    x->ph.m.read_header_information = 0;
    return 0;
}

int _DBd3UnLockIndex() {
    DBNDXPKT *x = DBd3i;
    if (x->ph.ls == 0) return 0;
    // Only the write byte is released, after a read lock too: the read byte
    // stays locked until the file is closed, as for NTX.
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, 1, DBNDX_WLOCK, 1) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.ls = 0;
    if (x->ph.m.shared) x->ph.m.read_header_information = 1;
    return 0;
}

extern "C" DBAPI int DBd3LockIndex(int handle) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!DBd3i->ph.m.shared || DBd3i->ph.ls) return _DBStatus(0);
    return _DBd3LockIndex() != 0 ? DBerrno : _DBStatus(0);
}

extern "C" DBAPI int DBd3UnLockIndex(int handle) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!DBd3i->ph.m.shared) return _DBStatus(0);
    return _DBd3UnLockIndex() != 0 ? DBerrno : _DBStatus(0);
}
