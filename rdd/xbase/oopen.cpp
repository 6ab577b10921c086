// oopen.cpp - opening and closing CDX and IDX files and their tags: the
// header checks in their classic order, the tag record with its path and
// page cache, tags found by name through the directory or by number in
// order of creation; the handle resolvers.
#include "cdx.h"
#include "os.h"

#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/oopen"};

void _loadHeader(DBCDXHDR &h, const uint8_t *b, bool compact) {
    h.index_file_root_page_offset = static_cast<int32_t>(_DBLoadLE32(b));
    h.upt = static_cast<int32_t>(_DBLoadLE32(b + 4));
    h.number_of_pages_in_index_file = compact ? _DBLoadBE32(b + 8) : _DBLoadLE32(b + 8);
    h.index_key_length = _DBLoadLE16(b + 12);
    h.unique_flag = b[14];
    h.s = b[15];
}

// Copy an expression that must end within its area; strlen into *len.
int _expression(char **out, const char *area, size_t size, size_t *len) {
    const void *nul = std::memchr(area, 0, size);
    if (!nul) return here.fail(DBE_BADEXPR, __LINE__);
    *len = static_cast<size_t>(static_cast<const char *>(nul) - area);
    if (*len > DBCDXEXPR) return here.fail(DBE_BADEXPR, __LINE__);
    void *p = nullptr;
    if (DBAllocateMemoryLog(&p, *len + 1, here.id, __LINE__) != 0) return DBerrno;
    std::memcpy(p, area, *len + 1);
    *out = static_cast<char *>(p);
    return 0;
}

// Everything an open made, in reverse; the slot goes last.
void _release(int handle, DBCDXPKT *x) {
    for (int s = DBCDXTAGS - 1; s >= 0; s--) {
        _DBfpFreeTag(x->tt[s]);
        x->tt[s] = nullptr;
    }
    _DBPageMapClose(x->map);
    if (x->ph.dh >= 0) DBosCloseFile(x->ph.dh);
    x->ph.dh = -1;
    _DBReleaseFilePacket(handle);
}

int _openFile(DBCDXPKT *x, char *filename, int mode, int32_t *measured) {
    if (_DBIndexOpenFile(x->ph, filename, mode, 1u << 0 | 1u << 3 | 1u << 4 | 1u << 8) != 0) return DBerrno;
    if (DBosFileLength(x->ph.dh, &x->file_size) != 0) return here.fail(DBerrno, __LINE__);
    *measured = x->file_size;
    // Alone with the file, pages are copied from a view of it rather than
    // read one system call at a time.
    if (!x->ph.m.shared) _DBPageMapOpen(x->map, x->ph.dh, x->file_size);
    x->tc = DBCDXTAGS;
    DBtag = 0;
    qd_pageno = 0;
    DBtagname[0] = '\0';
    DBfpi = x;
    if (_DBfpOpenTagAt(0, 0, "") != 0) return DBerrno;
    DBCDXTAG *t = x->tt[0];
    x->file_type = static_cast<char>(t->index_header.unique_flag);
    if (t->compact && (t->index_header.unique_flag & (DBCDX_DIRECTORY | DBCDX_COMPOUND))) {
        t->index_key_type = 'C';
        t->fc = ' ';
        // Directory entries are tag names of 10 bytes; the code that reads
        // and writes them relies on that.
        if (t->k != 10) return here.fail(DBE_CORRUPT, __LINE__);
    }
    if (!t->compact) {
        // A non-compact file keeps its own end, where new pages go: it must
        // be a page boundary past the header and the root.
        x->file_size = static_cast<int32_t>(t->index_header.number_of_pages_in_index_file);
        if (x->file_size % DBCDXPAGE != 0 || x->file_size < 2 * DBCDXPAGE) return here.fail(DBE_CORRUPT, __LINE__);
    }
    else x->cs = t->index_header.number_of_pages_in_index_file;
    x->ff = t->index_header.upt;
    return 0;
}

int _open(int *handle, char *filename, int mode, int type) {
    if (!handle || !filename) return here.fail(DBE_NULLPARAM, __LINE__);
    *handle = -1;
    if (std::strlen(filename) >= sizeof(DBPKTHDR::n)) return here.fail(DBE_BADFILENAME, __LINE__);
    int h = -1;
    void *p = nullptr;
    if (_DBAllocNewFilePacket(&h, type, &p) != 0) return DBerrno;
    DBclose[type] = type == DBPT_CDX ? DBfpCloseIndex : DBfbCloseIndex;
    auto *x = static_cast<DBCDXPKT *>(p);
    DBerrno = 0;
    int32_t measured = 0;
    if (_openFile(x, filename, mode, &measured) != 0) {
        const int rc = DBerrno;
        _release(h, x);
        DBfpi = nullptr;
        DBfpt = nullptr;
        return _DBStatus(rc);
    }
    *handle = h;
    DBfpt = x->tt[0];
    return _DBStatus(!x->tt[0]->compact && x->file_size != measured ? DBW_BADFILELEN : 0);
}

int _close(int handle) {
    if (_DBfpLockIndexPkt(handle) != 0) return DBerrno;
    DBCDXPKT *x = DBfpi;
    bool locked = false;
    // Another process must not see the header ahead of the pages it names.
    if (_DBfpPending(x) && x->ph.m.shared && !x->ph.ls && !x->ph.m.read_only) {
        if (_DBfpLockIndex(0) != 0) return DBerrno;
        locked = true;
    }
    if (!x->ph.m.read_only && _DBfpFlushIndex() != 0) {
        const int rc = DBerrno;
        if (locked) _DBfpUnLockIndex();
        return _DBStatus(rc);
    }
    if (x->ph.ls) {
        DBerrno = 0;
        DBosLockData(x->ph.dh, 1, _DBfpIsCompact(static_cast<uint8_t>(x->file_type)) ? DBCDX_LOCKBYTE : DBIDX_LOCKBYTE, 1);
        x->ph.ls = 0;
    }
    DBerrno = 0;
    if (DBosCloseFile(x->ph.dh) != 0) return here.fail(DBerrno, __LINE__);
    x->ph.dh = -1;
    _release(handle, x);
    DBfpi = nullptr;
    DBfpt = nullptr;
    return _DBStatus(0);
}
}  // namespace

DBCDXPKT *DBfpi = nullptr;
DBCDXTAG *DBfpt = nullptr;
char DBtagname[11] = {};
int32_t qd_pageno = 0;
int32_t qd_pagenos[512] = {};
int g_logging = 0;

void _DBfpFreeTag(DBCDXTAG *t) {
    if (!t) return;
    if (t->ck.k) DBFreeMemory(t->ck.k, here.id, __LINE__);
    if (t->e) DBFreeMemory(t->e, here.id, __LINE__);
    if (t->for_expression) DBFreeMemory(t->for_expression, here.id, __LINE__);
    if (t->page_tree_array) DBFreeMemory(t->page_tree_array, here.id, __LINE__);
    if (t->lf.keys) DBFreeMemory(t->lf.keys, here.id, __LINE__);
    if (t->lf.recs) DBFreeMemory(t->lf.recs, here.id, __LINE__);
    _DBPageCacheFree(t->cp);
    DBFreeMemory(t, here.id, __LINE__);
}

int _DBfpOpenTagAt(int slot, int32_t hdrofs, const char *name) {
    DBCDXPKT *x = DBfpi;
    DBOwned<DBCDXTAG> owner;
    if (owner.alloc(1, here.id, __LINE__) != 0) return DBerrno;
    DBCDXTAG *t = owner.get();
    t->hdrofs = hdrofs;
    uint8_t b[16];
    if (_DBosReadAt(x->ph.dh, hdrofs, b, sizeof b) != 0) {
        _DBfpFreeTag(owner.release());
        return here.fail(DBerrno, __LINE__);
    }
    const bool compact = _DBfpIsCompact(b[14]);
    DBCDXHDR &h = t->index_header;
    _loadHeader(h, b, compact);
    int rc = 0;
    auto failed = [&](int code, int line) {
        _DBfpFreeTag(owner.release());
        return here.fail(code, line);
    };
    if (h.index_key_length < 1 || h.index_key_length > DBCDXMAXKEY) return failed(DBE_KEYLEN, __LINE__);
    const int k = h.index_key_length;
    t->k = static_cast<int16_t>(k);
    t->compact = compact;
    size_t elen = 0;
    if (compact) {
        uint8_t h2[10];
        if (_DBosReadAt(x->ph.dh, hdrofs + 502, h2, sizeof h2) != 0) return failed(DBerrno, __LINE__);
        t->ko = static_cast<int16_t>(_DBLoadLE16(h2));
        const int fepl = _DBLoadLE16(h2 + 4), kepl = _DBLoadLE16(h2 + 8);
        if (kepl < 1 || kepl + fepl > DBCDXPAGE) return failed(DBE_BADEXPR, __LINE__);
        char pool[DBCDXPAGE];
        if (_DBosReadAt(x->ph.dh, hdrofs + DBCDXPAGE, pool, kepl + fepl) != 0) return failed(DBerrno, __LINE__);
        if ((rc = _expression(&t->e, pool, static_cast<size_t>(kepl), &elen)) != 0) return failed(rc, __LINE__);
        if (fepl > 0) {
            size_t flen = 0;
            if ((rc = _expression(&t->for_expression, pool + kepl, static_cast<size_t>(fepl), &flen)) != 0)
                return failed(rc, __LINE__);
            // An empty FOR expression (its NUL alone) is none.
            if (flen == 0) {
                DBFreeMemory(t->for_expression, here.id, __LINE__);
                t->for_expression = nullptr;
            }
        }
        t->i = static_cast<int16_t>(k + 8);
        t->offset_to_page_number_in_key_item = static_cast<int16_t>(k + 4);
    } else {
        char area[DBCDXEXPR];
        if (_DBosReadAt(x->ph.dh, hdrofs + 16, area, sizeof area) != 0) return failed(DBerrno, __LINE__);
        if ((rc = _expression(&t->e, area, sizeof area, &elen)) != 0) return failed(rc, __LINE__);
        if (h.unique_flag & DBCDX_HASFOR) {
            // 256 bytes from 236: the classic read runs 20 bytes into the
            // first node, which is always there behind the header.
            char fa[256];
            size_t flen = 0;
            if (_DBosReadAt(x->ph.dh, hdrofs + 236, fa, sizeof fa) != 0) return failed(DBerrno, __LINE__);
            if ((rc = _expression(&t->for_expression, fa, sizeof fa, &flen)) != 0) return failed(rc, __LINE__);
        }
        t->i = static_cast<int16_t>(k + 4);
        t->offset_to_page_number_in_key_item = static_cast<int16_t>(k);
    }
    // Only the directory may have no expression.
    if (elen == 0 && !(h.unique_flag & DBCDX_DIRECTORY)) return failed(DBE_BADEXPR, __LINE__);
    const int32_t root = h.index_file_root_page_offset;
    if (compact && x->ph.m.shared && root >= x->file_size) {
        // Another process may have grown the file since we measured it and
        // put the root in a page it appended.
        int32_t len = 0;
        if (DBosFileLength(x->ph.dh, &len) == 0 && len > x->file_size) x->file_size = len;
    }
    if (root <= 511 || root >= x->file_size || root % DBCDXPAGE != 0) return failed(DBE_ROOTPAGE, __LINE__);
    t->rno = static_cast<int16_t>(k);
    t->max_number_keys_page = static_cast<int16_t>(500 / t->i);
    t->mk = static_cast<int16_t>(t->max_number_keys_page / 2);
    t->mkl = static_cast<int16_t>(t->max_number_keys_page - t->mk);
    t->index_key_type = '?';
    t->fc = 0;
    t->recnummask = compact ? 0 : 0xFFFFFFFFu;
    size_t nl = std::strlen(name);
    if (nl > 10) nl = 10;
    while (nl > 0 && name[nl - 1] == ' ') nl--;
    std::memcpy(t->n, name, nl);
    t->n[nl] = '\0';
    // Room for the deepest path a tree of this fan-out can have, and some:
    // a deeper descent is a cycle of child pointers.
    t->td = static_cast<int16_t>(_DBPathDepth(t->mk) + 2);
    if (t->td > 4096) t->td = 4096;
    void *path = nullptr;
    if (DBAllocateMemoryLog(&path, sizeof(DBTREE) * static_cast<size_t>(t->td), here.id, __LINE__) != 0)
        return failed(DBE_NOMEMORY, __LINE__);
    t->page_tree_array = static_cast<DBTREE *>(path);
    t->current_btree_page_level = -1;
    if (x->ph.m.shared) {
        void *ck = nullptr;
        if (DBAllocateMemoryLog(&ck, static_cast<size_t>(k) + 1, here.id, __LINE__) != 0) return failed(DBE_NOMEMORY, __LINE__);
        std::memset(ck, 0, static_cast<size_t>(k) + 1);
        t->ck.k = static_cast<char *>(ck);
    }
    // A write-through file keeps few pages (they are dropped after every
    // call anyway when shared); so does the directory, read once per open.
    const int want = (x->ph.m.always_flush || (h.unique_flag & DBCDX_DIRECTORY)) ? 4 : 100;
    if (_DBPageCacheInit(t->cp, 100, want, DBCDXPAGE, 4) != 0) return failed(DBE_NOMEMORY, __LINE__);
    x->tt[slot] = owner.release();
    return 0;
}

int _DBfpLockIndexPkt(int handle) {
    const int type = (handle >= 0 && DBbase.p && handle < DBbase.smf) ? DBbase.p[handle].s : 0;
    if (type != DBPT_CDX && type != DBPT_IDX) return here.fail(DBE_BADHANDLE, __LINE__);
    auto *x = static_cast<DBCDXPKT *>(DBbase.p[handle].p);
    if (!x || x->ph.dh < 0 || !x->tt[0]) return here.fail(DBE_BADHANDLE, __LINE__);
    DBfpi = x;
    DBtag = 0;
    DBfpt = x->tt[0];
    return _DBStatus(0);
}

int _DBfpLockIndexStruc(int tag) {
    const uint32_t u = static_cast<uint32_t>(tag);
    if (_DBfpLockIndexPkt(static_cast<int>(u & 0xFFFF)) != 0) return DBerrno;
    const uint32_t slot = u >> 16;
    if (slot >= DBCDXTAGS || !DBfpi->tt[slot]) return here.fail(DBE_BADTAG, __LINE__);
    DBtag = static_cast<int16_t>(slot);
    DBfpt = DBfpi->tt[slot];
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpOpenIndex(int *handle, char *filename, int mode) { return _open(handle, filename, mode, DBPT_CDX); }
extern "C" DBAPI int DBfbOpenIndex(int *handle, char *filename, int mode) { return _open(handle, filename, mode, DBPT_IDX); }

extern "C" DBAPI int DBfpOpenNamedTag(int *tag, int handle, char *name) {
    if (!tag || !name) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBfpLockIndexPkt(handle) != 0) return DBerrno;
    const size_t len = std::strlen(name);
    if (len < 1 || len > 10) return here.fail(DBE_TAGNAME, __LINE__);
    DBCDXPKT *x = DBfpi;
    if (!(static_cast<uint8_t>(x->file_type) & DBCDX_COMPOUND) && !(static_cast<uint8_t>(x->file_type) & DBCDX_DIRECTORY))
        return here.fail(DBE_TAGNAME, __LINE__);
    char up[11] = {};
    std::memcpy(up, name, len);
    _DBstrupr(up);
    for (int s = 1; s < x->tc; s++)
        if (x->tt[s] && _DBstricmp(x->tt[s]->n, up) == 0) return here.fail(DBE_TAGINUSE, __LINE__);
    int slot = 1;
    while (slot < x->tc && x->tt[slot]) slot++;
    if (slot >= x->tc) return here.fail(DBE_MAXTAGS, __LINE__);
    if (_DBfpRefresh() != 0) return DBerrno;
    char key[DBCDXMAXKEY + 1];
    std::memset(key, ' ', sizeof key);
    std::memcpy(key, up, len);
    const int k = DBfpt->k;
    key[k] = '\0';
    int32_t rec = 0;
    int rc = _DBfpKeySearch(key, &rec, 1);
    // An exact match over the whole key: a longer name must not be taken.
    if (rc == 0 && std::strlen(up) > static_cast<size_t>(k)) rc = DBW_KEYNOTFOUND;
    if (rc < 0) return _DBfpSettle(rc, nullptr, 0);
    if (rc != 0) {
        _DBfpSettle(rc, nullptr, 0);
        return here.fail(DBE_TAGNAME, __LINE__);
    }
    _DBfpSettle(0, nullptr, 0);
    for (int s = 1; s < x->tc; s++)
        if (x->tt[s] && x->tt[s]->hdrofs == rec) return here.fail(DBE_TAGINUSE, __LINE__);
    std::memcpy(DBtagname, up, len + 1);
    qd_pageno = rec;
    if (_DBfpOpenTagAt(slot, rec, up) != 0) return DBerrno;
    *tag = (slot << 16) | handle;
    DBtag = static_cast<int16_t>(slot);
    DBfpt = x->tt[slot];
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpOpenTag(int *tag, int handle, int number) {
    if (!tag) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBfpLockIndexPkt(handle) != 0) return DBerrno;
    DBCDXPKT *x = DBfpi;
    if (number < 1 || number >= x->tc) return here.fail(DBE_TAGCOUNT, __LINE__);
    // Open already: the caller's earlier handle stays the one to use.
    if (x->tt[number]) return _DBStatus(0);
    if (!(static_cast<uint8_t>(x->file_type) & (DBCDX_COMPOUND | DBCDX_DIRECTORY))) return here.fail(DBE_TAGCOUNT, __LINE__);
    if (_DBfpRefresh() != 0) return DBerrno;
    // Tag numbers follow the order of creation, which is the order of the
    // header offsets in the file.
    int n = 0;
    char key[DBCDXMAXKEY + 1], names[512][11];
    int32_t rec = 0;
    int rc = _DBfpGoEnd(key, &rec, false);
    while (rc == 0 && n < 512) {
        qd_pagenos[n] = rec;
        std::memcpy(names[n], key, 10);
        names[n][10] = '\0';
        n++;
        rc = _DBfpStep(key, &rec, true);
    }
    _DBfpSettle(rc < 0 ? rc : 0, nullptr, 0);
    if (rc < 0) return here.fail(rc, __LINE__);
    if (number > n) return here.fail(DBE_TAGCOUNT, __LINE__);
    uint32_t sorted[512];
    for (int i = 0; i < n; i++) sorted[i] = static_cast<uint32_t>(qd_pagenos[i]);
    std::sort(sorted, sorted + n);
    const int32_t want = static_cast<int32_t>(sorted[number - 1]);
    int at = 0;
    while (at < n && qd_pagenos[at] != want) at++;
    if (at == n) return here.fail(DBE_TAGCOUNT, __LINE__);
    for (int s = 1; s < x->tc; s++)
        if (x->tt[s] && x->tt[s]->hdrofs == want) return here.fail(DBE_TAGINUSE, __LINE__);
    std::memcpy(DBtagname, names[at], 11);
    qd_pageno = want;
    if (_DBfpOpenTagAt(number, want, names[at]) != 0) return DBerrno;
    *tag = (number << 16) | handle;
    DBtag = static_cast<int16_t>(number);
    DBfpt = x->tt[number];
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpCloseTag(int tag) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (DBtag == 0) return here.fail(DBE_BADTAG, __LINE__);
    DBCDXPKT *x = DBfpi;
    if (!x->ph.m.read_only) {
        // Another process must not read the header ahead of the pages.
        const bool take = x->ph.m.shared && !x->ph.ls;
        if (take && _DBfpLockIndex(0) != 0) return DBerrno;
        const int rc = _DBfpFlushIndex();
        if (take) _DBfpUnLockIndex();
        if (rc != 0) return _DBStatus(rc);
    }
    const int slot = DBtag;
    _DBfpFreeTag(x->tt[slot]);
    x->tt[slot] = nullptr;
    DBtag = 0;
    DBfpt = x->tt[0];
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpCloseIndex(int handle) { return _close(handle); }
extern "C" DBAPI int DBfbCloseIndex(int handle) { return _close(handle); }
