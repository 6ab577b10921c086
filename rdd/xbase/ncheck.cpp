// ncheck.cpp - the whole-tree check of an NDX index, through the toolkit's
// checker: what the family adds is its node rules, its interior keys (each
// the greatest key of its child's subtree) and the blocks it holds for
// reuse.
#include "ndx.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/ncheck"};

struct _Check : DBNDXTREE {
    int32_t pagesize = DBNDXBLOCK, limit = 0, root = 0;
    bool unique = false, strict = false;
    int node(const char *pg, bool, char *why) const {
        const DBNDXHDR &h = DBd3i->h;
        const int n = _DBd3Count(pg);
        if (strict && n > h.m) {
            std::snprintf(why, 100, "%d keys, more than the header's %d", n, h.m);
            return 1;
        }
        const bool lf = _DBd3Leaf(pg, h.il);
        for (int i = 0; i < n + (lf ? 0 : 1); i++) {
            const int32_t c = _DBd3ChildBlock(pg, i, h.il);
            if (lf && c != 0) {
                std::snprintf(why, 100, "a leaf whose item %d has a child", i);
                return 1;
            }
            if (!lf && c == 0) {
                std::snprintf(why, 100, "an interior node whose child %d is block 0", i);
                return 1;
            }
            if (lf && _DBd3Recno(pg, i, h.il) == 0) {
                std::snprintf(why, 100, "a leaf entry %d for record 0", i);
                return 1;
            }
        }
        return 0;
    }
    // Every node below the root keeps a key (an interior node a child).
    int minimum(bool at_root, bool is_leaf) const { return at_root || !is_leaf ? 0 : 1; }
    int compare(const char *a, const char *b) const { return _DBd3Compare(DBd3i->h, a, b, DBd3i->h.k); }
    int entry(const char *pg, int i, char *key, int32_t *recno) const {
        std::memcpy(key, _DBd3Key(pg, i, DBd3i->h.il), DBd3i->h.k);
        *recno = _DBd3Recno(pg, i, DBd3i->h.il);
        return 0;
    }
    // The first (last = false) or greatest key of the subtree at page.
    int end(int32_t page, bool last, char *key) {
        for (int depth = 0; depth < DBd3i->td; depth++) {
            char *pg = nullptr;
            if (_DBd3ReadPage(page, &pg) != 0) return DBerrno;
            const int n = _DBd3Count(pg);
            if (_DBd3Leaf(pg, DBd3i->h.il)) {
                if (n == 0) return DBE_CORRUPT;
                std::memcpy(key, _DBd3Key(pg, last ? n - 1 : 0, DBd3i->h.il), DBd3i->h.k);
                return 0;
            }
            page = child(pg, last ? n : 0);
            if (!_DBPageOk(*this, page)) return DBE_CORRUPT;
        }
        return DBE_CORRUPT;
    }
    // Interior key i of parent against child i: the greatest key below it
    // (strict), or at least not below it nor above the first key of the
    // next child (a search still finds every key).
    int edge(int32_t parent, int i, int32_t page, char *why) {
        const DBNDXHDR &h = DBd3i->h;
        char *pg = nullptr;
        if (_DBd3ReadPage(parent, &pg) != 0) return 1;
        const int n = _DBd3Count(pg);
        if (i >= n) return 0;
        char sep[DBNDXBLOCK], top[DBNDXBLOCK], next[DBNDXBLOCK];
        std::memcpy(sep, _DBd3Key(pg, i, h.il), h.k);
        const int32_t after = child(pg, i + 1);
        if (end(page, true, top) != 0 || !_DBPageOk(*this, after) || end(after, false, next) != 0) {
            std::snprintf(why, 100, "the subtrees beside interior key %d cannot be read", i);
            return 1;
        }
        const int low = compare(sep, top), high = compare(sep, next);
        if (strict ? low != 0 : low < 0 || high > 0) {
            std::snprintf(why, 100, "interior key %d of block %ld is not the greatest key of its child",
                          i, static_cast<long>(_DBd3Block(parent)));
            return 1;
        }
        return 0;
    }
    int32_t nextFree(int32_t page, int *rc) const {
        *rc = 0;
        const DBNDXPKT *x = DBd3i;
        if (page == 0) return x->fln > 0 ? _DBd3Offset(static_cast<uint32_t>(x->fl[0])) : 0;
        for (int32_t i = 0; i + 1 < x->fln; i++)
            if (_DBd3Offset(static_cast<uint32_t>(x->fl[i])) == page) return _DBd3Offset(static_cast<uint32_t>(x->fl[i + 1]));
        return 0;
    }
};
}  // namespace

int _DBd3Check(DBTREECHECK &r, bool strict) {
    _Check c;
    c.limit = DBd3i->fs;
    c.root = _DBd3Offset(static_cast<uint32_t>(DBd3i->h.r));
    c.unique = DBd3i->h.u != 0;
    c.strict = strict;
    const int rc = _DBCheckTree(c, r, false);
    DBd3i->tl = -1;
    return rc;
}

extern "C" DBAPI int DBd3CheckIndex(int handle, DBINDEXCHECK *check, int strict) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!check) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBd3Refresh() != 0) return DBerrno;
    const int rc = _DBd3Check(*check, strict != 0);
    _DBd3ClearPageBuffer();
    return rc != 0 ? here.fail(rc, __LINE__) : _DBStatus(0);
}
