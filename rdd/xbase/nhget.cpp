// nhget.cpp - the NDX header fields that change while an index is open:
// rereading them (what another process changed) and writing them.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nhget"};
}

int _DBd3GetIndexHeader() {
    DBNDXPKT *x = DBd3i;
    uint8_t b[8];
    if (_DBosReadAt(x->ph.dh, 0, b, sizeof b) != 0) return here.fail(DBerrno, __LINE__);
    int32_t fs = 0;
    if (DBosFileLength(x->ph.dh, &fs) != 0) return here.fail(DBerrno, __LINE__);
    // An NDX header has no change counter: a key added to a node with room
    // changes neither the root nor the block count, so any cached node may
    // be stale. Clean ones are forgotten; a buffered shared index with
    // changes of its own keeps them, they are ours to write.
    if (x->u == 0) {
        _DBPageForget(x->pc);
        x->tl = -1;
        // Blocks we emptied are reused only while nothing else may have
        // happened to the file: another process may have built it anew.
        x->fln = 0;
        x->h.r = static_cast<int32_t>(_DBLoadLE32(b));
        x->h.nb = static_cast<int32_t>(_DBLoadLE32(b + 4));
        x->fs = fs;
    }
    return 0;
}

int _DBd3HeaderChanged() {
    DBNDXPKT *x = DBd3i;
    if (!x->ph.m.always_flush) {
        x->u = 1;
        return 0;
    }
    // The bytes a flush ends with (nflush.cpp).
    if (DBNDXFAM::writeHeader() != 0) return here.fail(DBerrno, __LINE__);
    return 0;
}

extern "C" DBAPI int DBd3GetIndexHeader(int handle) { return _DBClipHeaderCall<DBNDXFAM>(handle); }
