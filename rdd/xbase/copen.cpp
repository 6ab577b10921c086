// copen.cpp - opening and closing NTX indexes: the header checks in their
// classic order, the descent path, the page cache; the handle resolver.
#include "ntx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/copen"};

// The classic page capacity, and the unrounded one some producers store.
int _maxkeys(int itemlen) { return ((DBNTXPAGE - 4) / (itemlen + 2) - 1) & ~1; }
int _maxkeysRaw(int itemlen) { return (DBNTXPAGE - 4) / (itemlen + 2); }

void _loadHeader(DBNTXHDR &h, const uint8_t *b) {
    h.sign = _DBLoadLE16(b);
    h.version = _DBLoadLE16(b + 2);
    h.r = static_cast<int32_t>(_DBLoadLE32(b + 4));
    h.ff = static_cast<int32_t>(_DBLoadLE32(b + 8));
    h.key_item_len = _DBLoadLE16(b + 12);
    h.k = _DBLoadLE16(b + 14);
    h.key_dec = _DBLoadLE16(b + 16);
    h.max_number_keys_page = _DBLoadLE16(b + 18);
    h.mnk = _DBLoadLE16(b + 20);
    std::memcpy(h.e, b + 22, sizeof h.e);
    h.u = _DBLoadLE16(b + 278);
}

// Everything an open made, in the reverse order; the slot goes last.
void _release(int handle, DBNTXPKT *x) {
    if (x->ph.dh >= 0) DBosCloseFile(x->ph.dh);
    x->ph.dh = -1;
    if (x->ck.k) DBFreeMemory(x->ck.k, here.id, __LINE__);
    if (x->t) DBFreeMemory(x->t, here.id, __LINE__);
    _DBPageCacheFree(x->pc);
    _DBPageMapClose(x->map);
    _DBReleaseFilePacket(handle);
}

int _open(DBNTXPKT *x, char *filename, int mode) {
    if (_DBIndexOpenFile(x->ph, filename, mode, 1u << 0 | 1u << 5 | 1u << 6) != 0) return DBerrno;
    // The header before the length: a writer in another process grows the
    // file before it names a new page in the header, so a length measured
    // after the header covers every page the header names.
    uint8_t b[280];
    if (_DBosReadAt(x->ph.dh, 0, b, sizeof b) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosFileLength(x->ph.dh, &x->fs) != 0) return here.fail(DBerrno, __LINE__);
    DBNTXHDR &h = x->h;
    _loadHeader(h, b);
    if (h.k < 1 || h.k > 200) return here.fail(DBE_KEYLEN, __LINE__);
    if (h.key_item_len != h.k + 8) return here.fail(DBE_ITEMLEN, __LINE__);
    if (h.r < DBNTXPAGE || h.r >= x->fs || h.r % DBNTXPAGE != 0) return here.fail(DBE_ROOTPAGE, __LINE__);
    if (h.max_number_keys_page != _maxkeys(h.key_item_len) && h.max_number_keys_page != _maxkeysRaw(h.key_item_len))
        return here.fail(DBE_MAXKEYS, __LINE__);
    if (h.mnk != h.max_number_keys_page / 2) return here.fail(DBE_MINKEYS, __LINE__);
    const void *nul = std::memchr(h.e, 0, sizeof h.e);
    if (!nul) return here.fail(DBE_BADEXPR, __LINE__);
    // The expression is kept without blanks and in upper case: that is the
    // form every producer compares.
    _DBIndexTidyExpr(h.e);
    for (int j = 0; j <= h.max_number_keys_page; j++)
        x->grid[2 * h.max_number_keys_page + 4 + j * h.key_item_len] = static_cast<uint8_t>(j + 1);
    if (x->ph.m.shared && x->ph.m.always_flush) {
        void *k = nullptr;
        if (DBAllocateMemoryLog(&k, static_cast<size_t>(h.k) + 1, here.id, __LINE__) != 0) return DBerrno;
        std::memset(k, 0, static_cast<size_t>(h.k) + 1);
        x->ck.k = static_cast<char *>(k);
    }
    // Room for the deepest path a sound tree can have (two levels of slack
    // for producers whose right-hand pages run below half full); a deeper
    // descent is a cycle of child pointers.
    x->td = static_cast<int16_t>(_DBPathDepth(h.mnk + 1) + 2);
    void *t = nullptr;
    if (DBAllocateMemoryLog(&t, sizeof(DBTREE) * static_cast<size_t>(x->td), here.id, __LINE__) != 0) return DBerrno;
    x->t = static_cast<DBTREE *>(t);
    x->tl = -1;
    if (_DBPageCacheInit(x->pc, 100, x->ph.m.always_flush ? 3 : 100, DBNTXPAGE, 3) != 0) return DBerrno;
    // Alone with the file, pages are copied from a view of it rather than
    // read one system call at a time.
    if (!x->ph.m.shared) _DBPageMapOpen(x->map, x->ph.dh, x->fs);
    return 0;
}
}  // namespace

DBNTXPKT *DBcli = nullptr;

int _DBclLockIndexStruc(int handle) {
    auto *x = static_cast<DBNTXPKT *>(_DBPacketOf(handle, DBPT_NTX));
    if (!x) return here.fail(DBE_BADHANDLE, __LINE__);
    DBcli = x;
    return _DBStatus(0);
}

extern "C" DBAPI int DBclOpenIndex(short *handle, char *filename, int mode) {
    if (!handle || !filename) return here.fail(DBE_NULLPARAM, __LINE__);
    *handle = -1;
    if (std::strlen(filename) >= sizeof(DBPKTHDR::n)) return here.fail(DBE_BADFILENAME, __LINE__);
    int h = -1;
    void *p = nullptr;
    if (_DBAllocNewFilePacket(&h, DBPT_NTX, &p) != 0) return DBerrno;
    DBclose[DBPT_NTX] = DBclCloseIndex;
    auto *x = static_cast<DBNTXPKT *>(p);
    DBerrno = 0;
    if (_open(x, filename, mode) != 0) {
        const int rc = DBerrno;
        _release(h, x);
        return _DBStatus(rc);
    }
    *handle = static_cast<short>(h);
    return _DBStatus(x->fs % DBNTXPAGE != 0 ? DBW_BADFILELEN : 0);
}

extern "C" DBAPI int DBclCloseIndex(int handle) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    DBNTXPKT *x = DBcli;
    if (!x->ph.m.always_flush && _DBclFlushIndex() != 0) return DBerrno;
    if (x->ph.ls && _DBclUnLockIndex() != 0) return DBerrno;
    if (DBosCloseFile(x->ph.dh) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.dh = -1;
    _release(handle, x);
    DBcli = nullptr;
    return _DBStatus(0);
}
