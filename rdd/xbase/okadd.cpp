// okadd.cpp - changing a CDX or IDX tree: entries into and out of leaves,
// pages that split when they overflow, separators kept equal to the last
// entry of their child, new roots; and DBfpAddKey.
//
// A changed compact leaf is unpacked, changed as a list of entries and
// packed again, so every leaf written has the layout a fresh pack gives
// (first entry stored from its start, masks matching the widths). The
// record-number field only ever widens: a page keeps its widths while its
// record numbers fit them.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/okadd"};

// One leaf's entries while it is being changed (the library is
// single-threaded; one change runs at a time).
char s_keys[(DBCDX_MAXENTRIES + 2) * DBCDXMAXKEY];
int32_t s_recs[DBCDX_MAXENTRIES + 2];
}  // namespace

// What a changed page tells its parent.
struct DBCDXUP {
    bool removed = false;  // the page went to the free list: drop its item
    bool changed = false;  // its last entry is now `last`
    bool split = false;    // a new right sibling `page`, last entry `nkey`
    char last[DBCDXMAXKEY];
    int32_t lrec = 0;
    int32_t page = 0;
    char nkey[DBCDXMAXKEY];
    int32_t nrec = 0;
};

namespace {

// The entries of the compact leaf pg (page `page`) into s_keys and
// s_recs. What the search decoded of the same page is taken as it stands.
int _unpack(const char *pg, int32_t page, int *m) {
    DBCDXTAG *t = DBfpt;
    const int n = _DBfpCount(pg);
    if (n > DBCDX_MAXENTRIES) return here.fail(DBE_CORRUPT, __LINE__);
    // Decoded through the tag's leaf record, then copied: one decoder.
    const char *k = nullptr;
    int32_t r = 0;
    if (n > 0 && _DBfpLeafEntry(t, page, pg, n - 1, &k, &r) != 0) return DBerrno;
    if (n > 0) {
        std::memcpy(s_keys, t->lf.keys, static_cast<size_t>(n) * t->k);
        std::memcpy(s_recs, t->lf.recs, static_cast<size_t>(n) * sizeof(int32_t));
    }
    t->lf.page = 0;
    *m = n;
    return 0;
}

void _setItem(char *pg, int i, const char *key, int32_t rec, int32_t child) {
    const DBCDXTAG *t = DBfpt;
    char *it = _DBfpItem(t, pg, i);
    std::memcpy(it, key, static_cast<size_t>(t->k));
    if (_DBfpLeaf(pg)) {
        _DBStoreBE32(it + t->rno, static_cast<uint32_t>(rec));
    } else if (t->compact) {
        _DBStoreBE32(it + t->rno, static_cast<uint32_t>(rec));
        _DBStoreBE32(it + t->offset_to_page_number_in_key_item, static_cast<uint32_t>(child));
    } else {
        _DBStoreBE32(it + t->offset_to_page_number_in_key_item, static_cast<uint32_t>(child));
    }
}

void _lastOf(const char *pg, char *key, int32_t *rec) {
    const DBCDXTAG *t = DBfpt;
    const int n = _DBfpCount(pg);
    std::memcpy(key, _DBfpItem(t, pg, n - 1), static_cast<size_t>(t->k));
    *rec = (t->compact || _DBfpLeaf(pg)) ? _DBfpItemRec(t, pg, n - 1) : 0;
}

// Link a new page q in after p (whose right neighbour was `right`).
int _linkAfter(DBCDXWORK &p, DBCDXWORK &q) {
    const int32_t right = _DBfpRight(p.b);
    _DBfpSetLeft(q.b, p.at);
    _DBfpSetRight(q.b, right);
    _DBfpSetRight(p.b, q.at);
    if (right != -1 && right != 0) {
        DBCDXWORK r;
        if (_DBfpLoad(r, right) != 0) return DBerrno;
        _DBfpSetLeft(r.b, q.at);
        if (_DBfpSave(r) != 0) return DBerrno;
    }
    return 0;
}

// A split's new right sibling of w: a fresh empty page of w's kind, linked
// in after w. Neither is the root any longer.
int _newRightSibling(DBCDXWORK &w, DBCDXWORK &q) {
    if (_DBfpNewPage(&q.at) != 0) return DBerrno;
    std::memset(q.b, 0, DBCDXPAGE);
    const int attr = _DBfpAttr(w.b) & ~1;
    _DBStoreLE16(w.b, static_cast<uint16_t>(attr));
    _DBStoreLE16(q.b, static_cast<uint16_t>(attr));
    return _linkAfter(w, q);
}
}  // namespace

// Write m entries (s_keys, s_recs) into the compact leaf w, splitting it in
// two when they do not fit. `lastChanged`: the leaf's last entry changed.
static int _leafWrite(DBCDXWORK &w, int m, bool lastChanged, DBCDXUP &up) {
    DBCDXTAG *t = DBfpt;
    const int k = t->k;
    const char fill = t->fc;
    const auto *u = reinterpret_cast<const uint8_t *>(w.b);
    DBCDXWIDTHS wd{u[23], u[20], u[21], u[22]};
    uint32_t maxrec = 1;
    for (int j = 0; j < m; j++)
        if (static_cast<uint32_t>(s_recs[j]) > maxrec) maxrec = static_cast<uint32_t>(s_recs[j]);
    if (maxrec > _DBfpLowBits(wd.R)) {
        // Widen the record-number field by whole bytes, keeping D and T.
        const int need = _DBfpBitLen(maxrec);
        const int B = (need + wd.D + wd.T + 7) / 8;
        if (B > 6) return here.fail(DBE_CORRUPT, __LINE__);
        wd.B = static_cast<uint8_t>(B);
        wd.R = static_cast<uint8_t>(8 * B - wd.D - wd.T > 32 ? 32 : 8 * B - wd.D - wd.T);
    }
    char packed[DBCDXPAGE];
    std::memcpy(packed, w.b, DBCDXPAGE);
    if (_DBfpLeafPack(packed, wd, k, fill, s_keys, s_recs, m)) {
        std::memcpy(w.b, packed, DBCDXPAGE);
        if (_DBfpSave(w) != 0) return DBerrno;
        if (lastChanged && m > 0) {
            up.changed = true;
            std::memcpy(up.last, s_keys + static_cast<size_t>(m - 1) * k, static_cast<size_t>(k));
            up.lrec = s_recs[m - 1];
        }
        return 0;
    }
    // Split where both halves fit and their bytes are closest; the first
    // entry of the right half is stored from its start.
    int size[DBCDX_MAXENTRIES + 2], first[DBCDX_MAXENTRIES + 2];
    int total = 0;
    for (int j = 0; j < m; j++) {
        size[j] = _DBfpPackedSize(wd, k, fill, s_keys, j, j == 0);
        first[j] = _DBfpPackedSize(wd, k, fill, s_keys, j, true);
        total += size[j];
    }
    int best = -1, bestGap = 1 << 30, left = 0;
    for (int j = 1; j < m; j++) {
        left += size[j - 1];
        const int right = total - left - size[j] + first[j];
        if (left > DBCDX_LEAFROOM || right > DBCDX_LEAFROOM) continue;
        const int gap = left > right ? left - right : right - left;
        if (gap < bestGap) {
            bestGap = gap;
            best = j;
        }
    }
    if (best < 0) return here.fail(DBE_CORRUPT, __LINE__);
    DBCDXWORK q;
    if (_newRightSibling(w, q) != 0) return DBerrno;
    if (!_DBfpLeafPack(w.b, wd, k, fill, s_keys, s_recs, best) ||
        !_DBfpLeafPack(q.b, wd, k, fill, s_keys + static_cast<size_t>(best) * k, s_recs + best, m - best))
        return here.fail(DBE_CORRUPT, __LINE__);
    if (_DBfpSave(q) != 0 || _DBfpSave(w) != 0) return DBerrno;
    up.changed = true;
    std::memcpy(up.last, s_keys + static_cast<size_t>(best - 1) * k, static_cast<size_t>(k));
    up.lrec = s_recs[best - 1];
    up.split = true;
    up.page = q.at;
    std::memcpy(up.nkey, s_keys + static_cast<size_t>(m - 1) * k, static_cast<size_t>(k));
    up.nrec = s_recs[m - 1];
    return 0;
}

// Insert an item at position pos of a fixed-item node (interior, or a
// non-compact leaf), splitting it when full.
static int _nodeInsert(DBCDXWORK &w, int pos, const char *key, int32_t rec, int32_t child, DBCDXUP &up) {
    DBCDXTAG *t = DBfpt;
    const int n = _DBfpCount(w.b), L = t->i, max = t->max_number_keys_page;
    if (pos < 0 || pos > n || n > max) return here.fail(DBE_CORRUPT, __LINE__);
    if (n < max) {
        char *at = _DBfpItem(t, w.b, pos);
        std::memmove(at + L, at, static_cast<size_t>(n - pos) * L);
        _setItem(w.b, pos, key, rec, child);
        _DBfpSetCount(w.b, n + 1);
        if (_DBfpSave(w) != 0) return DBerrno;
        if (pos == n) {
            up.changed = true;
            _lastOf(w.b, up.last, &up.lrec);
        }
        return 0;
    }
    // Full: the node keeps mk items (one more when the new item falls in
    // its half), the new right sibling the rest.
    char items[DBCDXPAGE + 2 * DBCDXMAXKEY + 16];
    std::memcpy(items, _DBfpItem(t, w.b, 0), static_cast<size_t>(pos) * L);
    std::memcpy(items + static_cast<size_t>(pos + 1) * L, _DBfpItem(t, w.b, pos), static_cast<size_t>(n - pos) * L);
    {
        // The new item, formed in place in a scratch frame.
        char frame[DBCDXPAGE] = {};
        std::memcpy(frame, w.b, 12);
        _setItem(frame, 0, key, rec, child);
        std::memcpy(items + static_cast<size_t>(pos) * L, _DBfpItem(t, frame, 0), static_cast<size_t>(L));
    }
    const int keep = pos < t->mk ? t->mk + 1 : t->mk;
    DBCDXWORK q;
    if (_newRightSibling(w, q) != 0) return DBerrno;
    std::memset(w.b + 12, 0, DBCDXPAGE - 12);
    std::memcpy(w.b + 12, items, static_cast<size_t>(keep) * L);
    _DBfpSetCount(w.b, keep);
    std::memcpy(q.b + 12, items + static_cast<size_t>(keep) * L, static_cast<size_t>(n + 1 - keep) * L);
    _DBfpSetCount(q.b, n + 1 - keep);
    if (_DBfpSave(q) != 0 || _DBfpSave(w) != 0) return DBerrno;
    up.changed = true;
    _lastOf(w.b, up.last, &up.lrec);
    up.split = true;
    up.page = q.at;
    _lastOf(q.b, up.nkey, &up.nrec);
    return 0;
}

// Unlink a page from its siblings and hand it to the free list.
static int _dropPage(const DBCDXWORK &w) {
    const int32_t l = _DBfpLeft(w.b), r = _DBfpRight(w.b);
    if (l != -1 && l != 0) {
        DBCDXWORK s;
        if (_DBfpLoad(s, l) != 0) return DBerrno;
        _DBfpSetRight(s.b, r);
        if (_DBfpSave(s) != 0) return DBerrno;
    }
    if (r != -1 && r != 0) {
        DBCDXWORK s;
        if (_DBfpLoad(s, r) != 0) return DBerrno;
        _DBfpSetLeft(s.b, l);
        if (_DBfpSave(s) != 0) return DBerrno;
    }
    return _DBfpFreePage(w.at);
}

// Carry a change of the page at level `lv` up the path.
static int _propagate(int lv, DBCDXUP up) {
    DBCDXTAG *t = DBfpt;
    DBTREE *path = t->page_tree_array;
    const int k = t->k;
    for (lv = lv - 1; lv >= 0; lv--) {
        if (!up.removed && !up.changed && !up.split) return 0;
        DBCDXWORK w;
        if (_DBfpLoad(w, path[lv].current_page_number) != 0) return DBerrno;
        const int p = path[lv].i, n = _DBfpCount(w.b);
        if (_DBfpLeaf(w.b) || p < 0 || p >= n) return here.fail(DBE_CORRUPT, __LINE__);
        DBCDXUP next;
        if (up.removed) {
            char *at = _DBfpItem(t, w.b, p);
            std::memmove(at, at + t->i, static_cast<size_t>(n - 1 - p) * t->i);
            std::memset(_DBfpItem(t, w.b, n - 1), 0, static_cast<size_t>(t->i));
            _DBfpSetCount(w.b, n - 1);
            if (n - 1 == 0) {
                if (lv > 0) {
                    if (_dropPage(w) != 0) return DBerrno;
                    next.removed = true;
                    up = next;
                    continue;
                }
                // The whole tree went: the root becomes an empty leaf.
                _DBfpEmptyLeaf(w.b, t->compact, k, 3);
                return _DBfpSave(w);
            }
            if (p == n - 1) {
                next.changed = true;
                _lastOf(w.b, next.last, &next.lrec);
            }
            if (_DBfpSave(w) != 0) return DBerrno;
            up = next;
            continue;
        }
        if (up.changed) {
            const int32_t child = _DBfpChild(t, w.b, p);
            _setItem(w.b, p, up.last, up.lrec, child);
        }
        if (up.split) {
            if (_nodeInsert(w, p + 1, up.nkey, up.nrec, up.page, next) != 0) return DBerrno;
            if (!next.changed && up.changed && p == _DBfpCount(w.b) - 1) {
                next.changed = true;
                _lastOf(w.b, next.last, &next.lrec);
            }
        } else {
            if (_DBfpSave(w) != 0) return DBerrno;
            if (p == n - 1) {
                next.changed = true;
                std::memcpy(next.last, up.last, static_cast<size_t>(k));
                next.lrec = up.lrec;
            }
        }
        up = next;
    }
    if (!up.split) return 0;
    // The root split: a new root holds the two halves.
    DBCDXWORK r;
    if (_DBfpNewPage(&r.at) != 0) return DBerrno;
    std::memset(r.b, 0, DBCDXPAGE);
    _DBStoreLE16(r.b, 1);
    _DBfpSetLeft(r.b, -1);
    _DBfpSetRight(r.b, -1);
    _setItem(r.b, 0, up.last, up.lrec, path[0].current_page_number);
    _setItem(r.b, 1, up.nkey, up.nrec, up.page);
    _DBfpSetCount(r.b, 2);
    if (_DBfpSave(r) != 0) return DBerrno;
    t->index_header.index_file_root_page_offset = r.at;
    t->index_modified = 1;
    return 0;
}

int _DBfpInsert(const char *key, int32_t rec) {
    DBCDXTAG *t = DBfpt;
    const int16_t tl = t->current_btree_page_level;
    if (tl < 0) return here.fail(DBE_CORRUPT, __LINE__);
    DBCDXWORK w;
    if (_DBfpLoad(w, t->page_tree_array[tl].current_page_number) != 0) return DBerrno;
    if (!_DBfpLeaf(w.b)) return here.fail(DBE_CORRUPT, __LINE__);
    const int pos = t->page_tree_array[tl].i, n = _DBfpCount(w.b);
    if (pos < 0 || pos > n) return here.fail(DBE_CORRUPT, __LINE__);
    DBCDXUP up;
    if (_DBfpPacked(t, w.b)) {
        int m = 0;
        if (_unpack(w.b, w.at, &m) != 0) return DBerrno;
        if (m + 1 > DBCDX_MAXENTRIES) return here.fail(DBE_CORRUPT, __LINE__);
        const size_t k = static_cast<size_t>(t->k);
        std::memmove(s_keys + (pos + 1) * k, s_keys + pos * k, (m - pos) * k);
        std::memmove(s_recs + pos + 1, s_recs + pos, static_cast<size_t>(m - pos) * sizeof(int32_t));
        std::memcpy(s_keys + pos * k, key, k);
        s_recs[pos] = rec;
        if (_leafWrite(w, m + 1, pos == m, up) != 0) return DBerrno;
    } else if (_nodeInsert(w, pos, key, rec, 0, up) != 0) {
        return DBerrno;
    }
    return _propagate(tl, up);
}

int _DBfpRemove() {
    DBCDXTAG *t = DBfpt;
    const int16_t tl = t->current_btree_page_level;
    if (tl < 0) return here.fail(DBE_CORRUPT, __LINE__);
    DBCDXWORK w;
    if (_DBfpLoad(w, t->page_tree_array[tl].current_page_number) != 0) return DBerrno;
    const int pos = t->page_tree_array[tl].i, n = _DBfpCount(w.b);
    if (!_DBfpLeaf(w.b) || pos < 0 || pos >= n) return here.fail(DBE_CORRUPT, __LINE__);
    DBCDXUP up;
    if (n == 1 && tl > 0) {
        // The leaf empties: it leaves the tree and its parent loses its item.
        if (_dropPage(w) != 0) return DBerrno;
        up.removed = true;
    } else if (_DBfpPacked(t, w.b)) {
        int m = 0;
        if (_unpack(w.b, w.at, &m) != 0) return DBerrno;
        const size_t k = static_cast<size_t>(t->k);
        std::memmove(s_keys + pos * k, s_keys + (pos + 1) * k, (m - pos - 1) * k);
        std::memmove(s_recs + pos, s_recs + pos + 1, static_cast<size_t>(m - pos - 1) * sizeof(int32_t));
        // Removing a key can lengthen the next one's stored bytes: the leaf
        // may even have to split.
        if (_leafWrite(w, m - 1, pos == m - 1, up) != 0) return DBerrno;
    } else {
        char *at = _DBfpItem(t, w.b, pos);
        std::memmove(at, at + t->i, static_cast<size_t>(n - 1 - pos) * t->i);
        std::memset(_DBfpItem(t, w.b, n - 1), 0, static_cast<size_t>(t->i));
        _DBfpSetCount(w.b, n - 1);
        if (_DBfpSave(w) != 0) return DBerrno;
        if (pos == n - 1 && n > 1) {
            up.changed = true;
            _lastOf(w.b, up.last, &up.lrec);
        }
    }
    if (_propagate(tl, up) != 0) return DBerrno;
    // A root left with one child hands the tree to it.
    for (int guard = 0; guard < t->td; guard++) {
        DBCDXWORK r;
        if (_DBfpLoad(r, _DBfpRoot(t)) != 0) return DBerrno;
        if (_DBfpLeaf(r.b) || _DBfpCount(r.b) != 1) return 0;
        DBCDXWORK c;
        if (_DBfpLoad(c, _DBfpChild(t, r.b, 0)) != 0) return DBerrno;
        _DBStoreLE16(c.b, static_cast<uint16_t>(_DBfpAttr(c.b) | 1));
        _DBfpSetLeft(c.b, -1);
        _DBfpSetRight(c.b, -1);
        if (_DBfpSave(c) != 0) return DBerrno;
        t->index_header.index_file_root_page_offset = c.at;
        t->index_modified = 1;
        if (_DBfpFreePage(r.at) != 0) return DBerrno;
    }
    return here.fail(DBE_CORRUPT, __LINE__);
}

// The shared front of DBfpAddKey and DBfpDeleteKey, once the handle is
// resolved: the checks, then the key in stored form.
static int _prepare(char *key, int32_t recno, char *stored) {
    if (!key) return here.fail(DBE_NULLPARAM, __LINE__);
    if (DBfpi->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (DBfpt->index_key_type == '?') return here.fail(DBE_KEYTYPE, __LINE__);
    if (recno < 1) return here.fail(DBE_SEEK, __LINE__);
    return _DBfpStoredKey(key, stored);
}

// What an add or a delete does first: resolve, check, form the stored key,
// take the lock when the file locks itself, reread the header. Non-zero:
// the status to return, the change already given up.
static int _begin(int tag, char *key, int32_t recno, char *sk, DBCDXAUTOLOCK &lock) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (_prepare(key, recno, sk) != 0) return _DBfpChanged(DBerrno);
    if (lock.take() != 0 || _DBfpRefresh() != 0) return _DBfpChanged(DBerrno);
    return 0;
}

extern "C" DBAPI int DBfpAddKey(int tag, char *key, int32_t recno) {
    char sk[DBCDXMAXKEY + 1];
    DBCDXAUTOLOCK lock;
    if (const int rc = _begin(tag, key, recno, sk, lock); rc != 0) return rc;
    DBCDXTAG *t = DBfpt;
    // A unique tag holds each key once; any other, each (key, record) once.
    const bool unique = _DBfpUnique(t);
    int rc = _DBfpSeek(sk, t->k, static_cast<uint32_t>(recno), unique ? 1 : 2, true);
    if (rc == 0) return _DBfpChanged(DBW_EXISTS);
    if (rc < 0) return _DBfpChanged(rc);
    if (rc == DBW_EMPTY) {
        t->current_btree_page_level = 0;
        t->page_tree_array[0] = DBTREE{_DBfpRoot(t), 0, 0};
    }
    rc = _DBfpInsert(sk, recno);
    return _DBfpChanged(rc != 0 ? DBerrno : 0);
}

extern "C" DBAPI int DBfpDeleteKey(int tag, char *key, int32_t recno) {
    char sk[DBCDXMAXKEY + 1];
    DBCDXAUTOLOCK lock;
    if (const int rc = _begin(tag, key, recno, sk, lock); rc != 0) return rc;
    DBCDXTAG *t = DBfpt;
    int rc = _DBfpSeek(sk, t->k, static_cast<uint32_t>(recno), 2, false);
    if (rc < 0) return _DBfpChanged(rc);
    if (rc != 0) return _DBfpChanged(DBW_KEYNOTFOUND);
    rc = _DBfpRemove();
    return _DBfpChanged(rc != 0 ? DBerrno : 0);
}

extern "C" DBAPI int DBfbAddKey(int handle, char *key, int32_t recno) { return DBfpAddKey(handle, key, recno); }
extern "C" DBAPI int DBfbDeleteKey(int handle, char *key, int32_t recno) { return DBfpDeleteKey(handle, key, recno); }
