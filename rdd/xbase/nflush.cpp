// nflush.cpp - writing an NDX index's dirty nodes and its header, and
// forgetting the cached nodes of a shared write-through index.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nflush"};
}

int _DBd3FlushIndex() {
    DBNDXPKT *x = DBd3i;
    if (x->u) {
        // Another process must not read the header while the nodes it
        // describes are half written.
        const bool lock = x->ph.m.shared && x->ph.ls == 0;
        if (lock && _DBd3LockIndex() != 0) return DBerrno;
        int rc = _DBPageFlushAll(x->pc, _DBd3PageFile());
        if (rc == 0) {
            uint8_t b[8];
            _DBStoreLE32(b, static_cast<uint32_t>(x->h.r));
            _DBStoreLE32(b + 4, static_cast<uint32_t>(x->h.nb));
            rc = _DBosWriteAt(x->ph.dh, 0, b, sizeof b, x->ph.flush_disk);
            x->u = 0;
        }
        const int unlocked = lock ? _DBd3UnLockIndex() : 0;
        if (rc != 0) return here.fail(rc, __LINE__);
        if (unlocked != 0) return DBerrno;
    }
    DBerrno = 0;
    DBosFlushFile(x->ph.dh);
    return _DBStatus(0);
}

void _DBd3ClearPageBuffer() {
    DBNDXPKT *x = DBd3i;
    if (!x->ph.m.shared || !x->ph.m.always_flush) return;
    x->tl = -1;
    _DBPageForget(x->pc);
}

extern "C" DBAPI int DBd3FlushIndex(int handle) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    DBNDXPKT *x = DBd3i;
    if (x->ph.m.always_flush) return _DBStatus(DBW_UNBUFFERED);
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    return _DBd3FlushIndex() != 0 ? DBerrno : _DBStatus(0);
}
