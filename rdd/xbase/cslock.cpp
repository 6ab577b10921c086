// cslock.cpp - the NTX read lock: a shared lock on byte 2,147,483,647, which
// readers of the Clipper family take. It is released only when the file is
// closed (an unlock releases the write byte alone).
#include "ntx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/cslock"};
}

int _DBclRLockIndex() {
    DBNTXPKT *x = DBcli;
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, 2, DBNTX_RLOCK, 1) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.ls = DBNTX_LOCKED;
    if (_DBclGetIndexHeader() != 0) return DBerrno;
    x->ph.m.read_header_information = 0;
    return 0;
}

extern "C" DBAPI int DBclRLockIndex(int handle) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!DBcli->ph.m.shared || DBcli->ph.ls) return _DBStatus(0);
    return _DBclRLockIndex() != 0 ? DBerrno : _DBStatus(0);
}
