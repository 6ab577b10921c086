// chget.cpp - the NTX header fields that change while an index is open:
// rereading them (what another process changed) and writing the root.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/chget"};
}

int _DBclGetIndexHeader() {
    DBNTXPKT *x = DBcli;
    uint8_t b[10];
    if (_DBosReadAt(x->ph.dh, 2, b, sizeof b) != 0) return here.fail(DBerrno, __LINE__);
    int32_t fs = 0;
    if (DBosFileLength(x->ph.dh, &fs) != 0) return here.fail(DBerrno, __LINE__);
    const uint16_t version = _DBLoadLE16(b);
    // Another writer's change shows in the counter. Pages we cached before it
    // may be stale; clean ones are simply forgotten (a buffered shared index
    // with changes of its own keeps them: they are ours to write).
    if (version != x->h.version && x->u == 0) {
        _DBPageForget(x->pc);
        x->tl = -1;
    }
    x->h.version = version;
    x->h.r = static_cast<int32_t>(_DBLoadLE32(b + 2));
    x->h.ff = static_cast<int32_t>(_DBLoadLE32(b + 6));
    x->fs = fs;
    return 0;
}

int _DBclWriteRoot() {
    DBNTXPKT *x = DBcli;
    x->h.version++;
    uint8_t b[6];
    _DBStoreLE16(b, x->h.version);
    _DBStoreLE32(b + 2, static_cast<uint32_t>(x->h.r));
    if (_DBosWriteAt(x->ph.dh, 2, b, sizeof b, x->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    return 0;
}

extern "C" DBAPI int DBclGetIndexHeader(int handle) { return _DBClipHeaderCall<DBNTXFAM>(handle); }
