// nopen.cpp - opening and closing NDX indexes: the header checks; the rest
// of an open is btclip.h's.
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
    // A shared index forgets its pages whenever it may have missed a change
    // (see _DBd3GetIndexHeader) and keeps its place by key. Nodes we split
    // hold at least m / 2 entries, but nodes of other writers and nodes
    // after deletes may hold a single child: the path gets room for a tree
    // of fan-out 2 over every block the file can address, and a deeper
    // descent is a cycle of child pointers.
    return _DBClipOpenRest<DBNDXFAM>(x, x->ph.m.shared, _DBPathDepth(2) + 2);
}
}  // namespace

DBNDXPKT *DBd3i = nullptr;

int _DBd3LockIndexStruc(int handle) { return _DBClipResolve<DBNDXFAM>(handle); }

extern "C" DBAPI int DBd3OpenIndex(short *handle, char *filename, int mode) {
    return _DBClipOpenCall<DBNDXFAM>(handle, filename, mode, _open);
}

extern "C" DBAPI int DBd3CloseIndex(int handle) { return _DBClipCloseCall<DBNDXFAM>(handle); }
