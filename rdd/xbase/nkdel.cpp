// nkdel.cpp - removing a key from an NDX index.
//
// The rule: the entry leaves its leaf. When it was the leaf's greatest key,
// the interior key naming that leaf (or, for a last child, the key naming
// the nearest ancestor that is not a last child) becomes the new greatest,
// so interior keys stay the greatest keys of their subtrees. A leaf left
// empty is unlinked from its parent, and so on up: a parent losing its last
// child makes the child before it the last one (its key, now the parent's
// greatest, goes up the same way). A root left with one child hands the tree
// to it; a root left with none becomes an empty leaf. Nodes are not merged
// or rebalanced: every node keeps at least one key (an interior node at
// least one child), all leaves stay at one depth, and the blocks of unlinked
// nodes are kept for reuse (see _DBd3FreeBlock).
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nkdel"};

// The node at path level lv has a new greatest key: the first ancestor in
// which the path does not take the last child holds it.
int _newGreatest(int lv, const char *key) {
    DBNDXPKT *x = DBd3i;
    for (int l = lv - 1; l >= 0; l--) {
        DBNDXWORK pg;
        if (_DBd3Load(pg, x->t[l].current_page_number) != 0) return DBerrno;
        const int i = x->t[l].i;
        if (i < _DBd3Count(pg.b)) {
            std::memcpy(_DBd3Item(pg.b, i, x->h.il) + 8, key, x->h.k);
            return _DBd3Save(pg);
        }
    }
    return 0;
}

int _remove() {
    DBNDXPKT *x = DBd3i;
    const DBNDXHDR &h = x->h;
    int lv = x->tl;
    DBNDXWORK pg;
    if (_DBd3Load(pg, x->t[lv].current_page_number) != 0) return DBerrno;
    const int p = x->t[lv].i, n = _DBd3Count(pg.b) - 1;
    if (p < 0 || p > n) return here.fail(DBE_CORRUPT, __LINE__);
    std::memmove(_DBd3Item(pg.b, p, h.il), _DBd3Item(pg.b, p + 1, h.il), static_cast<size_t>(n - p) * h.il);
    _DBd3SetCount(pg.b, n);
    if (n > 0 || lv == 0) {
        char top[DBNDXBLOCK];
        if (n > 0) std::memcpy(top, _DBd3Key(pg.b, n - 1, h.il), h.k);
        if (_DBd3Save(pg) != 0) return DBerrno;
        return p == n && n > 0 ? _newGreatest(lv, top) : 0;
    }
    // An empty leaf below the root leaves the tree.
    if (_DBd3FreeBlock(pg.at) != 0) return DBerrno;
    for (lv--; lv >= 0; lv--) {
        if (_DBd3Load(pg, x->t[lv].current_page_number) != 0) return DBerrno;
        const int q = x->t[lv].i, pn = _DBd3Count(pg.b);
        if (q < pn) {
            // Child q and its key go; the last child, and so the node's
            // greatest key, stay.
            std::memmove(_DBd3Item(pg.b, q, h.il), _DBd3Item(pg.b, q + 1, h.il), static_cast<size_t>(pn - q) * h.il);
            _DBd3SetCount(pg.b, pn - 1);
            return _DBd3Save(pg);
        }
        if (pn > 0) {
            // The last child went: the one before it takes its place, and
            // its key is the node's new greatest.
            char top[DBNDXBLOCK];
            std::memcpy(top, _DBd3Key(pg.b, pn - 1, h.il), h.k);
            _DBd3SetCount(pg.b, pn - 1);
            if (_DBd3Save(pg) != 0) return DBerrno;
            return _newGreatest(lv, top);
        }
        if (lv == 0) {
            // The root lost its only child: an empty tree.
            std::memset(pg.b, 0, sizeof pg.b);
            return _DBd3Save(pg);
        }
        if (_DBd3FreeBlock(pg.at) != 0) return DBerrno;
    }
    return 0;
}

// A root with one child and no key hands the tree to the child.
int _collapse() {
    DBNDXPKT *x = DBd3i;
    for (int16_t depth = 0; depth < x->td; depth++) {
        char *pg = nullptr;
        const int32_t at = _DBd3Offset(static_cast<uint32_t>(x->h.r));
        if (_DBd3ReadPage(at, &pg) != 0) return DBerrno;
        if (_DBd3Leaf(pg, x->h.il) || _DBd3Count(pg) != 0) return 0;
        x->h.r = _DBd3ChildBlock(pg, 0, x->h.il);
        if (_DBd3HeaderChanged() != 0 || _DBd3FreeBlock(at) != 0) return DBerrno;
    }
    return here.fail(DBE_CORRUPT, __LINE__);
}
}  // namespace

extern "C" DBAPI int DBd3DeleteKey(int handle, char *key, int32_t recno) {
    DBNDXAUTOLOCK lock;
    if (const int rc = _DBClipChangeBegin<DBNDXFAM>(handle, key, lock); rc != 0) return rc;
    DBNDXPKT *x = DBd3i;
    _DBd3StoredKey(key, DBkeybfr1);
    DBrecno = recno;
    int32_t rec = recno;
    const int rc = _DBd3Find(DBkeybfr1, x->h.k, x->h.u ? 1 : 2, recno, DBkeybfr3, &rec);
    if (rc != 0) return _DBd3Changed(rc == DBW_NOMOREKEYS ? DBW_KEYNOTFOUND : rc);
    if (_remove() != 0 || _collapse() != 0) return _DBd3Changed(DBerrno);
    return _DBd3Changed(0);
}
