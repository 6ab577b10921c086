// ckadd.cpp - adding a key to an NTX index: the insert into a leaf, splits
// that promote the middle key, a new root when the root splits; also the
// page allocator and the bookkeeping every change shares.
#include "ntx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/ckadd"};

// Put (left, recno, key) at position p of a page that has room, with
// `right` as the child after it. The spare slot at the last position takes
// the key; only offsets move.
void _insertAt(char *pg, const DBNTXHDR &h, int p, int32_t left, int32_t recno, const char *key, int32_t right) {
    const int m = h.max_number_keys_page;
    _DBclMoveOffsets(pg, p + 1, p, m - p);
    _DBclSetItem(pg, p, left, recno, key, h.k);
    _DBclSetChild(pg, p + 1, right);
    _DBclSetCount(pg, _DBclCount(pg) + 1);
}

// Split a full page (its m keys plus the new one at p): the lower mnk keys
// with their children go to `low` (a new page), the key after them is
// promoted into *up / *uprec, the rest stay in `high` (the old page).
void _split(DBNTXWORK &high, DBNTXWORK &low, const DBNTXHDR &h, int p, int32_t left, int32_t recno,
            const char *key, int32_t right, char *up, int32_t *uprec) {
    const int m = h.max_number_keys_page, k = h.k, half = h.mnk;
    // The m + 1 keys in order, and the m + 2 children around them.
    struct Slot {
        int32_t rec;
        char key[200];
    };
    Slot keys[DBNTXPAGE / 9 + 2];
    int32_t kids[DBNTXPAGE / 9 + 3];
    for (int i = 0, j = 0; i <= m; i++) {
        if (i == p) {
            keys[i].rec = recno;
            std::memcpy(keys[i].key, key, static_cast<size_t>(k));
            continue;
        }
        keys[i].rec = _DBclRecno(high.b, j);
        std::memcpy(keys[i].key, _DBclKey(high.b, j), static_cast<size_t>(k));
        j++;
    }
    for (int i = 0, j = 0; i <= m + 1; i++) {
        if (i == p) {
            kids[i] = left;
        } else if (i == p + 1) {
            kids[i] = right;  // replaces the page that split
            j++;
        } else {
            kids[i] = _DBclChild(high.b, j++);
        }
    }
    _DBclFormatPage(low.b, h);
    for (int i = 0; i < half; i++) _DBclSetItem(low.b, i, kids[i], keys[i].rec, keys[i].key, k);
    _DBclSetChild(low.b, half, kids[half]);
    _DBclSetCount(low.b, half);
    std::memcpy(up, keys[half].key, static_cast<size_t>(k));
    *uprec = keys[half].rec;
    _DBclFormatPage(high.b, h);
    const int rest = m - half;
    for (int i = 0; i < rest; i++) _DBclSetItem(high.b, i, kids[half + 1 + i], keys[half + 1 + i].rec, keys[half + 1 + i].key, k);
    _DBclSetChild(high.b, rest, kids[m + 1]);
    _DBclSetCount(high.b, rest);
}
}  // namespace

// The header's free list moved: written now on a write-through index, at
// the next flush otherwise.
static int _freeListChanged() {
    DBNTXPKT *x = DBcli;
    if (!x->ph.m.always_flush) {
        x->u = 1;
        return 0;
    }
    uint8_t b[4];
    _DBStoreLE32(b, static_cast<uint32_t>(x->h.ff));
    if (_DBosWriteAt(x->ph.dh, 8, b, sizeof b, x->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    return 0;
}

int _DBclNewPage(int32_t *page) {
    DBNTXPKT *x = DBcli;
    if (x->h.ff != 0) {
        // Free pages are never left in the cache (see _DBclMarkPage): the
        // link is read from the file.
        const DBPAGEFILE f = _DBclPageFile();
        if (!_DBPageValid(f, x->h.ff)) return here.fail(DBE_CORRUPT, __LINE__);
        uint8_t link[4];
        if (_DBosReadAt(x->ph.dh, x->h.ff, link, sizeof link) != 0) return here.fail(DBerrno, __LINE__);
        *page = x->h.ff;
        x->h.ff = static_cast<int32_t>(_DBLoadLE32(link));
        // A page that names itself as the next free one would be handed out
        // twice.
        if (x->h.ff == *page) return here.fail(DBE_CORRUPT, __LINE__);
    } else {
        if (x->fs > INT32_MAX - DBNTXPAGE) return here.fail(DBE_WRITE, __LINE__);
        const int32_t at = x->fs;
        if (DBosSetFileSize(x->ph.dh, at + DBNTXPAGE) != 0) return here.fail(DBerrno, __LINE__);
        x->fs = at + DBNTXPAGE;
        *page = at;
    }
    return _freeListChanged();
}

int _DBclMarkPage(int32_t page) {
    DBNTXPKT *x = DBcli;
    // A freed page goes to the file at once and leaves the cache: its first
    // bytes are now a link, not a key count, and no later fetch may take it
    // for a tree page.
    DBNTXWORK w;
    if (_DBclLoad(w, page) != 0) return DBerrno;
    _DBStoreLE32(w.b, static_cast<uint32_t>(x->h.ff));
    if (_DBosWriteAt(x->ph.dh, page, w.b, DBNTXPAGE, x->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    _DBPageDrop(x->pc, page);
    x->h.ff = page;
    return _freeListChanged();
}

// The insert proper, from the position the search left.
static int _add(const char *ikey, int32_t recno) {
    DBNTXPKT *x = DBcli;
    const DBNTXHDR &h = x->h;
    char key[200];
    std::memcpy(key, ikey, h.k);
    int32_t rec = recno, left = 0, right = 0;
    for (int lv = x->tl; lv >= 0; lv--) {
        DBNTXWORK pg;
        if (_DBclLoad(pg, x->t[lv].current_page_number) != 0) return DBerrno;
        const int p = x->t[lv].i;
        if (p < 0 || p > _DBclCount(pg.b)) return here.fail(DBE_CORRUPT, __LINE__);
        if (_DBclCount(pg.b) < h.max_number_keys_page) {
            _insertAt(pg.b, h, p, left, rec, key, right);
            return _DBclSave(pg);
        }
        DBNTXWORK low;
        if (_DBclNewPage(&low.at) != 0) return DBerrno;
        char up[200];
        int32_t uprec = 0;
        _split(pg, low, h, p, left, rec, key, right, up, &uprec);
        if (_DBclSave(low) != 0 || _DBclSave(pg) != 0) return DBerrno;
        std::memcpy(key, up, h.k);
        rec = uprec;
        left = low.at;
        right = pg.at;
    }
    // The root split: a new root holds the promoted key between the halves.
    DBNTXWORK root;
    if (_DBclNewPage(&root.at) != 0) return DBerrno;
    _DBclFormatPage(root.b, h);
    _DBclSetItem(root.b, 0, left, rec, key, h.k);
    _DBclSetChild(root.b, 1, right);
    _DBclSetCount(root.b, 1);
    if (_DBclSave(root) != 0) return DBerrno;
    x->h.r = root.at;
    if (!x->ph.m.always_flush) x->u = 1;
    return 0;
}

extern "C" DBAPI int DBclAddKey(int handle, char *key, int32_t recno) {
    DBNTXAUTOLOCK lock;
    if (const int rc = _DBClipChangeBegin<DBNTXFAM>(handle, key, lock); rc != 0) return rc;
    DBNTXPKT *x = DBcli;
    const int k = x->h.k;
    // The key as stored: cut or blank-padded to the key length.
    char ikey[DBNTXPAGE];
    const size_t n = strnlen(key, static_cast<size_t>(k));
    std::memcpy(ikey, key, n);
    std::memset(ikey + n, ' ', static_cast<size_t>(k) - n);
    ikey[k] = '\0';
    char probe[DBNTXPAGE];
    std::memcpy(probe, ikey, static_cast<size_t>(k) + 1);
    int32_t rec = recno;
    int rc = _DBclKeySearch(probe, &rec, (x->h.u & 1) ? 1 : 2);
    if (rc == 0) return _DBclChanged(DBW_EXISTS);
    if (rc < 0) return _DBclChanged(rc);
    if (rc == DBW_EMPTY) {
        x->tl = 0;
        x->t[0] = DBTREE{x->h.r, 0, 0};
    } else if (rc == DBW_KEYNOTFOUND) {
        // After the greatest smaller entry: in a leaf the next position; past
        // an interior entry, before the first key of the subtree to its right.
        char *pg = nullptr;
        if (_DBclReadPage(x->t[x->tl].current_page_number, &pg) != 0) return _DBclChanged(DBerrno);
        if (_DBclChild(pg, x->t[x->tl].i) != 0) {
            DBNTXTREE tr;
            rc = _DBPathStep(tr, x->t, x->td, x->tl, x->h.r, true);
            if (rc != 0) return _DBclChanged(rc < 0 ? here.fail(rc, __LINE__) : here.fail(DBE_CORRUPT, __LINE__));
        } else {
            x->t[x->tl].i++;
        }
    }
    // 203: below every key, at position 0 of the first leaf, where the
    // search left the path.
    if (_add(ikey, recno) != 0) return _DBclChanged(DBerrno);
    if (x->ph.m.always_flush && _DBclWriteRoot() != 0) return _DBclChanged(DBerrno);
    return _DBclChanged(0);
}
