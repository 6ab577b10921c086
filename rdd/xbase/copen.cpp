// copen.cpp - opening and closing NTX indexes: the header checks in their
// classic order; what every open then makes is btclip.h's.
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
    // A shared write-through index forgets its pages after every call and
    // keeps its place by key. The path has room for the deepest tree a
    // sound file can have (two levels of slack for producers whose
    // right-hand pages run below half full); a deeper descent is a cycle of
    // child pointers.
    return _DBClipOpenRest<DBNTXFAM>(x, x->ph.m.shared && x->ph.m.always_flush, _DBPathDepth(h.mnk + 1) + 2);
}
}  // namespace

DBNTXPKT *DBcli = nullptr;

int _DBclLockIndexStruc(int handle) { return _DBClipResolve<DBNTXFAM>(handle); }

extern "C" DBAPI int DBclOpenIndex(short *handle, char *filename, int mode) {
    return _DBClipOpenCall<DBNTXFAM>(handle, filename, mode, _open);
}

extern "C" DBAPI int DBclCloseIndex(int handle) { return _DBClipCloseCall<DBNTXFAM>(handle); }
