// ocheck.cpp - the whole-tree check of a CDX tag or IDX file, through the
// toolkit's checker: what the family adds is its page rules, its separators
// (the last entry of each child), its sibling links and its free list.
#include "cdx.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/ocheck"};

struct _Check : DBCDXTREE {
    int32_t pagesize = DBCDXPAGE, limit = 0, root = 0;
    bool unique = false, strict = false;
    int32_t last = 0;  // the page read last, for entry()
    int read(int32_t page, char **pg) {
        last = page;
        return DBCDXTREE::read(page, pg);
    }
    int node(const char *pg, bool at_root, char *why) const {
        if (const char *f = _DBfpPageFault(t, pg)) {
            std::snprintf(why, 100, "%s", f);
            return 1;
        }
        if (((_DBfpAttr(pg) & 1) != 0) != at_root) {
            std::snprintf(why, 100, "root bit %s", at_root ? "missing on the root" : "set below the root");
            return 1;
        }
        if (!_DBfpPacked(t, pg)) return 0;
        const auto *u = reinterpret_cast<const uint8_t *>(pg);
        const int n = _DBfpCount(pg), B = u[23];
        int sum = 0;
        if (n > 0) {
            // Decoding checks the stored lengths; the free-space field must
            // add up with them.
            const char *k = nullptr;
            int32_t r = 0;
            if (_DBfpLeafEntry(t, last, pg, n - 1, &k, &r) != 0) {
                std::snprintf(why, 100, "a leaf that does not decode");
                return 1;
            }
            sum = DBCDXPAGE - t->lf.kt;
        }
        if (_DBLoadLE16(pg + 12) != DBCDX_LEAFROOM - n * B - sum) {
            std::snprintf(why, 100, "free space %d where the entries leave %d", _DBLoadLE16(pg + 12), DBCDX_LEAFROOM - n * B - sum);
            return 1;
        }
        if (strict) {
            const int d = _DBfpBitLen(static_cast<uint32_t>(t->k));
            if (u[21] != d || u[22] != d || (u[20] + u[21] + u[22] != 8 * B && u[20] != 32)) {
                std::snprintf(why, 100, "leaf widths R %d D %d T %d B %d", u[20], u[21], u[22], B);
                return 1;
            }
        }
        return 0;
    }
    int minimum(bool at_root, bool is_leaf) const { return at_root && is_leaf ? 0 : 1; }
    int compare(const char *a, const char *b) const { return std::memcmp(a, b, static_cast<size_t>(t->k)); }
    int entry(const char *pg, int i, char *key, int32_t *recno) const { return _DBfpEntry(last, pg, i, key, recno); }
    int edge(int32_t parent, int i, int32_t page, char *why) {
        char *pg = nullptr;
        char sep[DBCDXMAXKEY + 1], key[DBCDXMAXKEY + 1];
        int32_t srec = 0, rec = 0;
        if (read(parent, &pg) != 0) return 1;
        std::memcpy(sep, _DBfpItem(t, pg, i), static_cast<size_t>(t->k));
        srec = t->compact ? _DBfpItemRec(t, pg, i) : 0;
        if (read(page, &pg) != 0) return 1;
        const int n = _DBfpCount(pg);
        if (n == 0) return 0;  // reported as an empty page
        if (_DBfpEntry(page, pg, n - 1, key, &rec) != 0) {
            std::snprintf(why, 100, "its last entry cannot be read");
            return 1;
        }
        if (std::memcmp(sep, key, static_cast<size_t>(t->k)) != 0) {
            std::snprintf(why, 100, "the separator in page %ld is not its last key", static_cast<long>(parent));
            return 1;
        }
        if (strict && t->compact && srec != rec) {
            std::snprintf(why, 100, "the separator in page %ld names record %ld, its last entry %ld", static_cast<long>(parent),
                          static_cast<long>(srec), static_cast<long>(rec));
            return 1;
        }
        return 0;
    }
    int32_t nextFree(int32_t page, int *rc) const {
        *rc = 0;
        if (page == 0) return DBfpi->ff;
        uint8_t b[4];
        if ((*rc = _DBosReadAt(DBfpi->ph.dh, page, b, sizeof b)) != 0) return 0;
        return static_cast<int32_t>(_DBLoadLE32(b));
    }
};

// Each level, from the left, must be linked through its sibling pointers in
// the order the tree holds its pages.
int _siblings(_Check &c, DBTREECHECK &r) {
    const int32_t cap = DBfpi->file_size / DBCDXPAGE + 2;
    DBOwned<int32_t> cur, next;
    if (cur.alloc(static_cast<size_t>(cap), here.id, __LINE__) != 0 || next.alloc(static_cast<size_t>(cap), here.id, __LINE__) != 0)
        return DBE_NOMEMORY;
    int32_t n = 1;
    cur[0] = c.root;
    for (int level = 0; n > 0; level++) {
        int32_t m = 0;
        for (int32_t j = 0; j < n; j++) {
            char *pg = nullptr;
            if (c.read(cur[j], &pg) != 0) return _DBCheckFail(r, "page %ld cannot be read", static_cast<long>(cur[j]));
            const int32_t left = j > 0 ? cur[j - 1] : -1, right = j + 1 < n ? cur[j + 1] : -1;
            if (_DBfpLeft(pg) != left || _DBfpRight(pg) != right)
                return _DBCheckFail(r, "page %ld at level %d links %ld and %ld, not %ld and %ld", static_cast<long>(cur[j]), level,
                                    static_cast<long>(_DBfpLeft(pg)), static_cast<long>(_DBfpRight(pg)), static_cast<long>(left),
                                    static_cast<long>(right));
            if (_DBfpLeaf(pg)) continue;
            for (int i = 0; i < _DBfpCount(pg) && m < cap; i++) next[m++] = _DBfpChild(c.t, pg, i);
        }
        std::memcpy(cur.get(), next.get(), static_cast<size_t>(m) * sizeof(int32_t));
        n = m;
    }
    return 0;
}
}  // namespace

int _DBfpCheck(DBTREECHECK &r, bool strict) {
    _Check c;
    c.t = DBfpt;
    c.limit = DBfpi->file_size;
    c.root = _DBfpRoot(DBfpt);
    c.unique = _DBfpUnique(DBfpt);
    c.strict = strict;
    int rc = _DBCheckTree(c, r, true);
    if (rc == 0) rc = _siblings(c, r);
    DBfpt->current_btree_page_level = -1;
    return rc;
}

extern "C" DBAPI int DBfpCheckTag(int tag, DBINDEXCHECK *check, int strict) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!check) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBfpRefresh() != 0) return DBerrno;
    // Pages of ours not yet written are what the file will hold: the check
    // reads through the cache, and the free list from the file, where freed
    // pages always go at once.
    const int rc = _DBfpCheck(*check, strict != 0);
    _DBfpSettle(0, nullptr, 0);
    return rc != 0 ? here.fail(rc, __LINE__) : _DBStatus(0);
}

extern "C" DBAPI int DBfbCheckIndex(int handle, DBINDEXCHECK *check, int strict) { return DBfpCheckTag(handle, check, strict); }
