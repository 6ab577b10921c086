// nflush.cpp - writing an NDX index's dirty nodes and its header.
#include "ndx.h"

// The end of a flush: root and block count (8 bytes at 0). The header has
// no change counter.
int DBNDXFAM::writeHeader() {
    DBNDXPKT *x = DBd3i;
    uint8_t b[8];
    _DBStoreLE32(b, static_cast<uint32_t>(x->h.r));
    _DBStoreLE32(b + 4, static_cast<uint32_t>(x->h.nb));
    return _DBosWriteAt(x->ph.dh, 0, b, sizeof b, x->ph.flush_disk);
}

extern "C" DBAPI int DBd3FlushIndex(int handle) { return _DBClipFlushCall<DBNDXFAM>(handle); }
