// opput.cpp - handing changed CDX and IDX pages to the file: later (at
// flush or eviction) in a buffered file, at once in a write-through one;
// taking pages from the free list or the end of the file and giving them
// back; the header fields that follow every change.
#include "cdx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/opput"};

bool _pageOf(int32_t p) { return _DBPageValid(_DBfpPageFile(DBfpt), p); }
}  // namespace

int _DBfpStorePage(int32_t page, const char *data) {
    DBCDXPKT *x = DBfpi;
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (_DBPageStore(DBfpt->cp, _DBfpPageFile(DBfpt), page, data, _DBPageWriteMode(x->ph)) != 0)
        return here.fail(DBerrno, __LINE__);
    // Every change counts, so other processes see that the file moved.
    x->index_modified = 1;
    return 0;
}

int _DBfpNewPage(int32_t *page) {
    DBCDXPKT *x = DBfpi;
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (x->ff != 0 && x->ff != -1) {
        // Free pages are never cached (see _DBfpFreePage): the link comes
        // from the file.
        if (!_pageOf(x->ff)) return here.fail(DBE_CORRUPT, __LINE__);
        uint8_t link[4];
        if (_DBosReadAt(x->ph.dh, x->ff, link, sizeof link) != 0) return here.fail(DBerrno, __LINE__);
        const int32_t next = static_cast<int32_t>(_DBLoadLE32(link));
        if (next != 0 && next != -1 && (!_pageOf(next) || next == x->ff)) return here.fail(DBE_CORRUPT, __LINE__);
        *page = x->ff;
        x->ff = next;
    } else {
        if (x->file_size > INT32_MAX - 2 * DBCDXPAGE) return here.fail(DBE_WRITE, __LINE__);
        const int32_t at = x->file_size;
        // The recorded end of a non-compact file may lie before the real one:
        // grow the file, never cut it.
        int32_t real = 0;
        if (DBosFileLength(x->ph.dh, &real) != 0) return here.fail(DBerrno, __LINE__);
        if (real < at + DBCDXPAGE && DBosSetFileSize(x->ph.dh, at + DBCDXPAGE) != 0) return here.fail(DBerrno, __LINE__);
        x->file_size = at + DBCDXPAGE;
        *page = at;
    }
    x->index_modified = 1;
    return 0;
}

int _DBfpFreePage(int32_t page) {
    DBCDXPKT *x = DBfpi;
    DBCDXTAG *t = DBfpt;
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    // The page goes to the file at once and leaves this tag's cache: its
    // first bytes are now a link, and the tag that takes it next (maybe
    // another one, with a cache of its own) must find exactly that.
    char b[DBCDXPAGE] = {};
    _DBStoreLE32(b, static_cast<uint32_t>(x->ff));
    if (_DBosWriteAt(x->ph.dh, page, b, DBCDXPAGE, x->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    _DBPageDrop(t->cp, page);
    if (t->lf.page == page) t->lf.page = 0;
    x->ff = page;
    x->index_modified = 1;
    return 0;
}

int _DBfpWriteRoot() {
    DBCDXTAG *t = DBfpt;
    uint8_t b[4];
    _DBStoreLE32(b, static_cast<uint32_t>(_DBfpRoot(t)));
    if (_DBosWriteAt(DBfpi->ph.dh, t->hdrofs, b, sizeof b, DBfpi->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    t->index_modified = 0;
    return 0;
}

int _DBfpWriteFileHeader() {
    DBCDXPKT *x = DBfpi;
    uint8_t b[8];
    _DBStoreLE32(b, static_cast<uint32_t>(x->ff));
    const bool compact = _DBfpIsCompact(static_cast<uint8_t>(x->file_type));
    if (compact) {
        x->cs++;
        _DBStoreBE32(b + 4, x->cs);
    } else {
        _DBStoreLE32(b + 4, static_cast<uint32_t>(x->file_size));
    }
    if (_DBosWriteAt(x->ph.dh, 4, b, sizeof b, x->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    DBCDXHDR &h = x->tt[0]->index_header;
    h.upt = x->ff;
    h.number_of_pages_in_index_file = compact ? x->cs : static_cast<uint32_t>(x->file_size);
    x->index_modified = 0;
    return 0;
}

int _DBfpCommit() {
    DBCDXPKT *x = DBfpi;
    if (!x->ph.m.always_flush || x->ph.m.read_only) return 0;
    DBCDXTAG *saved = DBfpt;
    int rc = 0;
    for (int s = 0; s < DBCDXTAGS && rc == 0; s++) {
        if (!x->tt[s] || !x->tt[s]->index_modified) continue;
        DBfpt = x->tt[s];
        rc = _DBfpWriteRoot();
    }
    DBfpt = saved;
    if (rc == 0 && x->index_modified) rc = _DBfpWriteFileHeader();
    return rc != 0 ? here.fail(rc, __LINE__) : 0;
}

int _DBfpFlushIndex() {
    DBCDXPKT *x = DBfpi;
    if (x->ph.m.read_only) return 0;
    DBCDXTAG *saved = DBfpt;
    int rc = 0;
    for (int s = 0; s < DBCDXTAGS && rc == 0; s++) {
        DBCDXTAG *t = x->tt[s];
        if (!t) continue;
        DBfpt = t;
        rc = _DBPageFlushAll(t->cp, _DBfpPageFile(t));
        if (rc == 0 && t->index_modified) rc = _DBfpWriteRoot();
    }
    DBfpt = saved;
    if (rc == 0 && x->index_modified) rc = _DBfpWriteFileHeader();
    if (rc != 0) return here.fail(rc, __LINE__);
    DBosFlushFile(x->ph.dh);
    return 0;
}

void _DBfpForgetTag(DBCDXTAG *t) {
    _DBPageForget(t->cp);
    t->lf.page = 0;
}

void _DBfpForgetTags(DBCDXPKT *x) {
    for (int s = 0; s < DBCDXTAGS; s++)
        if (x->tt[s]) _DBfpForgetTag(x->tt[s]);
}

bool _DBfpPending(const DBCDXPKT *x) {
    if (x->index_modified) return true;
    for (int s = 0; s < DBCDXTAGS; s++)
        if (x->tt[s] && x->tt[s]->index_modified) return true;
    return false;
}

int _DBfpClearPageBuffer() {
    DBCDXPKT *x = DBfpi;
    if (!x->ph.m.shared || x->ph.ls) return 0;
    // Changes made without the lock still reach the file before the pages go.
    const int rc = _DBfpFlushIndex();
    _DBfpForgetTags(x);
    return rc;
}

int _DBfpChanged(int rc) {
    DBCDXTAG *t = DBfpt;
    t->current_btree_page_level = -1;
    t->ck.r = 0;
    if (rc >= 0) {
        const int c = _DBfpCommit();
        if (c != 0) rc = c;
    }
    const int cleared = _DBfpClearPageBuffer();
    if (rc >= 0 && cleared != 0) rc = cleared;
    return _DBStatus(rc);
}
