// cflush.cpp - writing an NTX index's dirty pages and its header, and
// forgetting the cached pages of a shared write-through index.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/cflush"};
}

int _DBclFlushIndex() {
    DBNTXPKT *x = DBcli;
    if (x->u) {
        // Another process must not read the header while the pages it
        // describes are half written.
        const bool lock = x->ph.m.shared && x->ph.ls == 0;
        if (lock && _DBclLockIndex() != 0) return DBerrno;
        int rc = _DBPageFlushAll(x->pc, _DBclPageFile());
        if (rc == 0) {
            x->h.version++;
            uint8_t b[10];
            _DBStoreLE16(b, x->h.version);
            _DBStoreLE32(b + 2, static_cast<uint32_t>(x->h.r));
            _DBStoreLE32(b + 6, static_cast<uint32_t>(x->h.ff));
            rc = _DBosWriteAt(x->ph.dh, 2, b, sizeof b, x->ph.flush_disk);
            x->u = 0;
        }
        const int unlocked = lock ? _DBclUnLockIndex() : 0;
        if (rc != 0) return here.fail(rc, __LINE__);
        if (unlocked != 0) return DBerrno;
    }
    DBerrno = 0;
    DBosFlushFile(x->ph.dh);
    return _DBStatus(0);
}

void _DBclClearPageBuffer() {
    DBNTXPKT *x = DBcli;
    if (!x->ph.m.shared || !x->ph.m.always_flush) return;
    x->tl = -1;
    _DBPageForget(x->pc);
}

extern "C" DBAPI int DBclFlushIndex(int handle) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    DBNTXPKT *x = DBcli;
    if (x->ph.m.always_flush) return _DBStatus(DBW_UNBUFFERED);
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (_DBclFlushIndex() != 0) return DBerrno;
    // Emptying the cache only ever acts on a write-through index, which never
    // gets here; it stays for a shared index whose mode says otherwise.
    _DBclClearPageBuffer();
    return _DBStatus(0);
}
