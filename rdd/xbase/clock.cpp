// clock.cpp - the NTX write lock and its release.
//
// The locks are one byte each at the addresses Clipper and Harbour agree on:
// the write lock at 1,000,000,000, the read lock at 2,147,483,647 (cslock.cpp).
// POSIX record locks belong to the process, so two handles of one process on
// the same index do not keep each other out; and closing any descriptor of
// the file drops every lock the process holds on it. A lock taken here is
// followed by a reread of the header: while it was not held, other writers
// may have moved the root and the free list.
#include "ntx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/clock"};
}

int _DBclLockIndex() {
    DBNTXPKT *x = DBcli;
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, 0, DBNTX_WLOCK, 1) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.ls = DBNTX_LOCKED;
    if (_DBclGetIndexHeader() != 0) return DBerrno;
    x->ph.m.read_header_information = 0;
    return 0;
}

int _DBclUnLockIndex() {
    DBNTXPKT *x = DBcli;
    if (x->ph.ls == 0) return 0;
    // Only the write byte is released, after a read lock too: the read byte
    // stays locked until the file is closed, as it always has.
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, 1, DBNTX_WLOCK, 1) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.ls = 0;
    if (x->ph.m.shared) x->ph.m.read_header_information = 1;
    return 0;
}

extern "C" DBAPI int DBclLockIndex(int handle) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!DBcli->ph.m.shared || DBcli->ph.ls) return _DBStatus(0);
    return _DBclLockIndex() != 0 ? DBerrno : _DBStatus(0);
}

extern "C" DBAPI int DBclUnLockIndex(int handle) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!DBcli->ph.m.shared) return _DBStatus(0);
    return _DBclUnLockIndex() != 0 ? DBerrno : _DBStatus(0);
}
