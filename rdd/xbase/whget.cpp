// whget.cpp - rereading the FPT header (next free block and block size).
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/whget"};
}

int _DBfpGetMemoHeader() {
    DBFPTPKT *m = DBfpm;
    uint8_t raw[8];
    if (DBosSetFilePosition(m->ph.dh, 0) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosReadData(m->ph.dh, raw, 8) != 0) return DBerrno;
    DBFPTHDR h{static_cast<int32_t>(_DBLoadBE32(raw)), static_cast<int32_t>(_DBLoadBE32(raw + 4))};
    if (_DBfpCheckHeader(h) != 0) return DBerrno;
    m->h = h;
    return 0;
}

extern "C" DBAPI int DBfpGetMemoHeader(int handle) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    // Only a shared file can have changed under us.
    if (DBfpm->ph.m.shared && _DBfpGetMemoHeader() != 0) return DBerrno;
    return _DBStatus(0);
}
