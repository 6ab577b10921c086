// okfind.cpp - finding keys in a CDX tag or IDX file: the descent every
// search method shares, and the search modes' treatment of its result.
//
// Interior items hold the last key of their child's subtree (compact files
// also its record), so a descent that takes the first item not below the
// target ends in the leaf where the target belongs. Leaves are scanned from
// their start (compact leaves can be read no other way); when a leaf holds
// nothing at or above the target - only possible past the end, or where a
// non-compact file's items carry no record numbers to tell equal keys
// apart - the scan goes on in the next leaf.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/okfind"};

struct _Target {
    const char *sk;
    int len;
    uint32_t rec;
    int method;
    // Whether an entry (key, rec) is at or past the target: method 1 the
    // key at or above over len bytes, 3 above, 2 (key, rec) at or above.
    // withRec: the entry has a record (non-compact interior items do not).
    bool reached(const char *key, uint32_t r, bool withRec, int *cmp) const {
        const int c = std::memcmp(key, sk, static_cast<size_t>(len));
        *cmp = c;
        if (method == 3) return c > 0;
        if (method != 2 || !withRec) return c >= 0;
        return c > 0 || (c == 0 && r >= rec);
    }
};

// No sound tree has more leaves than the file has pages.
int64_t _walkLimit() { return static_cast<int64_t>(DBfpi->file_size / DBCDXPAGE) + 2; }
}  // namespace

int _DBfpSeek(const char *sk, int len, uint32_t rec, int method, bool past) {
    DBCDXTAG *t = DBfpt;
    DBCDXTREE tr{t};
    DBTREE *path = t->page_tree_array;
    int16_t &tl = t->current_btree_page_level;
    const _Target tg{sk, len, rec, method == 2 || method == 3 ? method : 1};
    tl = -1;
    t->stale = false;
    char *pg = nullptr;
    int rc = _DBPathPush(tr, path, t->td, tl, _DBfpRoot(t), &pg, 1);
    if (rc != 0) return here.fail(rc, __LINE__);
    if (_DBfpCount(pg) == 0) {
        tl = -1;
        return _DBfpLeaf(pg) ? _DBStatus(DBW_EMPTY) : here.fail(DBE_CORRUPT, __LINE__);
    }
    int cmp = 0;
    while (!_DBfpLeaf(pg)) {
        const int n = _DBfpCount(pg);
        int lo = 0, hi = n;
        while (lo < hi) {
            const int mid = (lo + hi) / 2;
            const char *it = _DBfpItem(t, pg, mid);
            if (tg.reached(it, t->compact ? _DBLoadBE32(it + t->rno) : 0, t->compact, &cmp)) hi = mid;
            else lo = mid + 1;
        }
        path[tl].i = static_cast<int16_t>(lo < n ? lo : n - 1);
        if ((rc = _DBPathPush(tr, path, t->td, tl, _DBfpChild(t, pg, path[tl].i), &pg, 0)) != 0) return here.fail(rc, __LINE__);
    }
    for (int64_t guard = _walkLimit(); guard > 0; guard--) {
        const int32_t page = path[tl].current_page_number;
        const int n = _DBfpCount(pg);
        int found = -1;
        uint32_t frec = 0;
        if (_DBfpPacked(t, pg)) {
            if (_DBfpLeafOpen(t, page, pg) != 0) return DBerrno;
            DBCDXLEAF &L = t->lf;
            const int k = t->k;
            // What was decoded already is searched by halves; then decoding
            // goes on entry by entry until the target is reached.
            int lo = 0;
            if (L.n > 0) {
                int hi = L.n;
                if (tg.reached(L.keys + static_cast<size_t>(L.n - 1) * k, static_cast<uint32_t>(L.recs[L.n - 1]), true, &cmp)) {
                    while (lo < hi) {
                        const int mid = (lo + hi) / 2;
                        if (tg.reached(L.keys + static_cast<size_t>(mid) * k, static_cast<uint32_t>(L.recs[mid]), true, &cmp)) hi = mid;
                        else lo = mid + 1;
                    }
                    found = lo;
                } else {
                    lo = L.n;
                }
            }
            for (int j = lo; found < 0 && j < n; j++) {
                if (_DBfpLeafDecodeTo(t, j) != 0) return DBerrno;
                if (tg.reached(L.keys + static_cast<size_t>(j) * k, static_cast<uint32_t>(L.recs[j]), true, &cmp)) found = j;
            }
            if (found >= 0) {
                tg.reached(L.keys + static_cast<size_t>(found) * k, static_cast<uint32_t>(L.recs[found]), true, &cmp);
                frec = static_cast<uint32_t>(L.recs[found]);
            }
        } else {
            int lo = 0, hi = n;
            while (lo < hi) {
                const int mid = (lo + hi) / 2;
                const char *it = _DBfpItem(t, pg, mid);
                if (tg.reached(it, _DBLoadBE32(it + t->rno), true, &cmp)) hi = mid;
                else lo = mid + 1;
            }
            if (lo < n) {
                found = lo;
                const char *it = _DBfpItem(t, pg, lo);
                frec = _DBLoadBE32(it + t->rno);
                tg.reached(it, frec, true, &cmp);
            }
        }
        if (found >= 0) {
            path[tl].i = static_cast<int16_t>(found);
            const bool equal = cmp == 0 && tg.method != 3 && (tg.method != 2 || frec == rec);
            return _DBStatus(equal ? 0 : DBW_KEYNOTFOUND);
        }
        // Nothing here at or above the target: on to the next leaf.
        path[tl].i = static_cast<int16_t>(n - 1);
        rc = _DBPathStep(tr, path, t->td, tl, _DBfpRoot(t), true);
        if (rc < 0) return here.fail(rc, __LINE__);
        if (rc == DBW_NOMOREKEYS) {
            // Past the last entry: the position is the last one (or, for an
            // insert, just after it).
            if (past) path[tl].i = static_cast<int16_t>(path[tl].i + 1);
            return _DBStatus(DBW_NOMOREKEYS);
        }
        if ((rc = _DBfpReadPage(path[tl].current_page_number, &pg)) != 0) return DBerrno;
    }
    return here.fail(DBE_CORRUPT, __LINE__);
}

int _DBfpStoredKey(const char *key, char *out) {
    const DBCDXTAG *t = DBfpt;
    const int k = t->k;
    if (t->index_key_type == 'C') {
        const size_t n = strnlen(key, static_cast<size_t>(k) + 1);
        if (n > static_cast<size_t>(k)) return here.fail(DBE_KEYLEN, __LINE__);
        std::memcpy(out, key, n);
        std::memset(out + n, ' ', static_cast<size_t>(k) - n);
    } else {
        std::memcpy(out, key, static_cast<size_t>(k));
    }
    out[k] = '\0';
    return 0;
}

int _DBfpKeySearch(char *key, int32_t *recno, int method) {
    DBCDXTAG *t = DBfpt;
    const int k = t->k;
    char sk[DBCDXMAXKEY + 1];
    int len = k;
    if (t->index_key_type == 'C') {
        // A shorter text is a prefix; method 2 compares the whole padded key.
        const int given = static_cast<int>(strnlen(key, static_cast<size_t>(k)));
        std::memset(sk, ' ', static_cast<size_t>(k));
        std::memcpy(sk, key, static_cast<size_t>(given));
        if (method != 2) len = given;
    } else {
        std::memcpy(sk, key, static_cast<size_t>(k));
    }
    const int rc = _DBfpSeek(sk, len, static_cast<uint32_t>(*recno), method, false);
    if (rc < 0 || rc == DBW_EMPTY) return rc;
    if (_DBfpCurrentEntry(key, recno) != 0) return DBerrno;
    return _DBStatus(rc);
}

extern "C" DBAPI int DBfpKeySearch(int tag, char *key, int32_t *recno, int mode) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBfpRefresh() != 0) return DBerrno;
    int method = mode;
    if (mode < 16) {
        if (mode == 1 || (mode >= 11 && mode <= 14)) method = 1;
        else if (mode == 3 || mode == 15) method = 3;
    }
    int rc = _DBfpKeySearch(key, recno, method);
    if (rc < 0 || rc == DBW_EMPTY) return _DBfpSettle(rc, key, *recno);
    auto move = [&](bool forward) {
        DBCDXTREE tr{DBfpt};
        const int s = _DBPathStep(tr, DBfpt->page_tree_array, DBfpt->td, DBfpt->current_btree_page_level,
                                  _DBfpRoot(DBfpt), forward);
        if (s < 0) return here.fail(s, __LINE__);
        if (_DBfpCurrentEntry(key, recno) != 0) return DBerrno;
        return s;
    };
    switch (mode) {
    case 11:
        if (rc == 0) rc = move(false);
        else if (rc == DBW_KEYNOTFOUND) rc = 0;
        break;
    case 12:
        if (rc == DBW_KEYNOTFOUND) rc = 0;
        break;
    case 13:
        break;
    case 14:
        if (rc == DBW_NOMOREKEYS) rc = 0;
        else if (rc == DBW_KEYNOTFOUND) rc = move(true);
        break;
    case 15:
        if (rc == 0) rc = move(true);
        else if (rc == DBW_NOMOREKEYS) rc = 0;
        break;
    default:
        if (mode < 16 && rc == DBW_NOMOREKEYS) rc = DBW_KEYNOTFOUND;
        break;
    }
    return _DBfpSettle(rc, key, *recno);
}

extern "C" DBAPI int DBfbKeySearch(int handle, char *key, int32_t *recno, int mode) {
    return DBfpKeySearch(handle, key, recno, mode);
}
