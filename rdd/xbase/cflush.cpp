// cflush.cpp - writing an NTX index's dirty pages and its header.
#include "ntx.h"

// The end of a flush: the change counter goes up by one, so that other
// processes know their cached pages may be stale; root and free list follow
// it (10 bytes at 2).
int DBNTXFAM::writeHeader() {
    DBNTXPKT *x = DBcli;
    x->h.version++;
    uint8_t b[10];
    _DBStoreLE16(b, x->h.version);
    _DBStoreLE32(b + 2, static_cast<uint32_t>(x->h.r));
    _DBStoreLE32(b + 6, static_cast<uint32_t>(x->h.ff));
    return _DBosWriteAt(x->ph.dh, 2, b, sizeof b, x->ph.flush_disk);
}

extern "C" DBAPI int DBclFlushIndex(int handle) { return _DBClipFlushCall<DBNTXFAM>(handle); }
