// nopen.cpp - opening and closing NDX indexes: the header checks, the
// descent path, the page cache; the handle resolver.
#include "ndx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/nopen"};

void _loadHeader(DBNDXHDR &h, const uint8_t *b) {
    h.r = static_cast<int32_t>(_DBLoadLE32(b));
    h.nb = static_cast<int32_t>(_DBLoadLE32(b + 4));
    h.k = _DBLoadLE16(b + 12);
    h.m = _DBLoadLE16(b + 14);
    h.type = _DBLoadLE16(b + 16);
    h.il = _DBLoadLE16(b + 18);
    h.u = b[23] != 0 ? 1 : 0;
    std::memcpy(h.e, b + 24, sizeof h.e);
}

void _release(int handle, DBNDXPKT *x) {
    if (x->ph.dh >= 0) DBosCloseFile(x->ph.dh);
    x->ph.dh = -1;
    if (x->ck.k) DBFreeMemory(x->ck.k, here.id, __LINE__);
    if (x->t) DBFreeMemory(x->t, here.id, __LINE__);
    if (x->fl) DBFreeMemory(x->fl, here.id, __LINE__);
    _DBPageCacheFree(x->pc);
    _DBPageMapClose(x->map);
    _DBReleaseFilePacket(handle);
}

int _open(DBNDXPKT *x, char *filename, int mode) {
    if (_DBIndexOpenFile(x->ph, filename, mode, 1u << 0 | 1u << 5 | 1u << 6) != 0) return DBerrno;
    // The header before the length: a writer in another process grows the
    // file before it names a new page in the header, so a length measured
    // after the header covers every page the header names.
    uint8_t b[DBNDXBLOCK];
    if (_DBosReadAt(x->ph.dh, 0, b, sizeof b) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosFileLength(x->ph.dh, &x->fs) != 0) return here.fail(DBerrno, __LINE__);
    DBNDXHDR &h = x->h;
    _loadHeader(h, b);
    // The checks in the order NTX makes its own: key, item, root, capacity,
    // expression. A numeric key is always a double.
    if (h.k < 1 || h.k > DBNDX_MAXKEY) return here.fail(DBE_KEYLEN, __LINE__);
    if (h.type > 1 || (h.type == 1 && h.k != 8)) return here.fail(DBE_KEYTYPE, __LINE__);
    if (h.il != ((h.k + 8 + 3) & ~3)) return here.fail(DBE_ITEMLEN, __LINE__);
    if (h.r < 1 || _DBd3Offset(static_cast<uint32_t>(h.r)) < 0 || _DBd3Offset(static_cast<uint32_t>(h.r)) >= x->fs)
        return here.fail(DBE_ROOTPAGE, __LINE__);
    // Other writers may keep their nodes below the most the block holds;
    // we split at whatever the header says, so their readers can follow.
    if (h.m < 2 || h.m > (DBNDXBLOCK - 8) / h.il) return here.fail(DBE_MAXKEYS, __LINE__);
    if (!std::memchr(h.e, 0, sizeof h.e) || h.e[0] == '\0') return here.fail(DBE_BADEXPR, __LINE__);
    // Kept without blanks and in upper case: the form the evaluator reads.
    _DBIndexTidyExpr(h.e);
    if (x->ph.m.shared) {
        // A shared index forgets its pages whenever it may have missed a
        // change (see _DBd3GetIndexHeader): its place is kept by key.
        void *k = nullptr;
        if (DBAllocateMemoryLog(&k, static_cast<size_t>(h.k) + 1, here.id, __LINE__) != 0) return DBerrno;
        std::memset(k, 0, static_cast<size_t>(h.k) + 1);
        x->ck.k = static_cast<char *>(k);
    }
    // Nodes we split hold at least m / 2 entries, but nodes of other writers
    // and nodes after deletes may hold a single child: the path gets room
    // for a tree of fan-out 2 over every block the file can address, and a
    // deeper descent is a cycle of child pointers.
    x->td = static_cast<int16_t>(_DBPathDepth(2) + 2);
    void *t = nullptr;
    if (DBAllocateMemoryLog(&t, sizeof(DBTREE) * static_cast<size_t>(x->td), here.id, __LINE__) != 0) return DBerrno;
    x->t = static_cast<DBTREE *>(t);
    x->tl = -1;
    if (_DBPageCacheInit(x->pc, 100, x->ph.m.always_flush ? 3 : 100, DBNDXBLOCK, 3) != 0) return DBerrno;
    // Alone with the file, blocks are copied from a view of it rather than
    // read one system call at a time.
    if (!x->ph.m.shared) _DBPageMapOpen(x->map, x->ph.dh, x->fs);
    return 0;
}
}  // namespace

DBNDXPKT *DBd3i = nullptr;

int _DBd3LockIndexStruc(int handle) {
    auto *x = static_cast<DBNDXPKT *>(_DBPacketOf(handle, DBPT_NDX));
    if (!x) return here.fail(DBE_BADHANDLE, __LINE__);
    DBd3i = x;
    return _DBStatus(0);
}

extern "C" DBAPI int DBd3OpenIndex(short *handle, char *filename, int mode) {
    if (!handle || !filename) return here.fail(DBE_NULLPARAM, __LINE__);
    *handle = -1;
    if (std::strlen(filename) >= sizeof(DBPKTHDR::n)) return here.fail(DBE_BADFILENAME, __LINE__);
    int h = -1;
    void *p = nullptr;
    if (_DBAllocNewFilePacket(&h, DBPT_NDX, &p) != 0) return DBerrno;
    DBclose[DBPT_NDX] = DBd3CloseIndex;
    auto *x = static_cast<DBNDXPKT *>(p);
    DBerrno = 0;
    if (_open(x, filename, mode) != 0) {
        const int rc = DBerrno;
        _release(h, x);
        return _DBStatus(rc);
    }
    *handle = static_cast<short>(h);
    return _DBStatus(x->fs % DBNDXBLOCK != 0 ? DBW_BADFILELEN : 0);
}

extern "C" DBAPI int DBd3CloseIndex(int handle) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    DBNDXPKT *x = DBd3i;
    if (!x->ph.m.read_only && _DBd3FlushIndex() != 0) return DBerrno;
    if (x->ph.ls && _DBd3UnLockIndex() != 0) return DBerrno;
    if (DBosCloseFile(x->ph.dh) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.dh = -1;
    _release(handle, x);
    DBd3i = nullptr;
    return _DBStatus(0);
}
