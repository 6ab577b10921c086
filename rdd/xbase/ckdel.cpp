// ckdel.cpp - removing a key from an NTX index: an interior key is replaced
// by its predecessor from a leaf; a page left below half full takes one key
// from a sibling through the parent when the two hold enough, else merges
// with it; a root left without keys gives way to its only child. Pages that
// go empty join the free list.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/ckdel"};

// One key moves from sibling s into page p through the parent's separator
// at position sep. left: s is p's left sibling.
void _rotate(DBNTXWORK &parent, int sep, DBNTXWORK &p, DBNTXWORK &s, bool left, const DBNTXHDR &h) {
    const int m = h.max_number_keys_page, k = h.k;
    char *sepItem = _DBclItem(parent.b, sep);
    const int pn = _DBclCount(p.b), sn = _DBclCount(s.b);
    if (left) {
        // The separator comes down to the front of p, above s's rightmost
        // child; s's last key goes up in its place.
        _DBclMoveOffsets(p.b, 1, 0, m);
        _DBclSetItem(p.b, 0, _DBclChild(s.b, sn), _DBLoadLE32(sepItem + 4), sepItem + 8, k);
        std::memcpy(sepItem + 4, _DBclItem(s.b, sn - 1) + 4, static_cast<size_t>(k) + 4);
        _DBclSetCount(s.b, sn - 1);
    } else {
        // The separator comes down to the end of p, s's first child follows
        // it; s's first key goes up in its place.
        char *tail = _DBclItem(p.b, pn);
        std::memcpy(tail + 4, sepItem + 4, static_cast<size_t>(k) + 4);
        _DBclSetChild(p.b, pn + 1, _DBclChild(s.b, 0));
        std::memcpy(sepItem + 4, _DBclItem(s.b, 0) + 4, static_cast<size_t>(k) + 4);
        _DBclMoveOffsets(s.b, 0, 1, m);
        _DBclSetCount(s.b, sn - 1);
    }
    _DBclSetCount(p.b, pn + 1);
}

// The right page r joins the left page l after the separator at position
// sep of the parent, which then loses that separator (its slot's child is
// cleared and the next item points at l; the caller removes it).
void _join(DBNTXWORK &parent, int sep, DBNTXWORK &l, const DBNTXWORK &r, const DBNTXHDR &h) {
    const int ln = _DBclCount(l.b), rn = _DBclCount(r.b);
    const size_t item = h.key_item_len;
    char *sepItem = _DBclItem(parent.b, sep);
    std::memcpy(_DBclItem(l.b, ln) + 4, sepItem + 4, static_cast<size_t>(h.k) + 4);
    for (int i = 0; i <= rn; i++) std::memcpy(_DBclItem(l.b, ln + 1 + i), _DBclItem(r.b, i), item);
    // The sum, which is the full page whenever both pages kept their half;
    // a bulk-built right edge may hold less.
    _DBclSetCount(l.b, ln + 1 + rn);
    _DBclSetChild(parent.b, sep, 0);
    _DBclSetChild(parent.b, sep + 1, l.at);
}

// Remove the entry at the current position and rebalance upward.
int _remove() {
    DBNTXPKT *x = DBcli;
    const DBNTXHDR &h = x->h;
    const int m = h.max_number_keys_page;
    int lv = x->tl;
    DBNTXWORK pg;
    if (_DBclLoad(pg, x->t[lv].current_page_number) != 0) return DBerrno;
    int p = x->t[lv].i;
    if (_DBclChild(pg.b, p) != 0) {
        // An interior key: its predecessor, the last key of the rightmost
        // leaf of its left subtree, takes its place and leaves that leaf.
        int32_t down = _DBclChild(pg.b, p);
        DBNTXWORK leaf;
        for (;;) {
            if (lv + 1 >= x->td) return here.fail(DBE_CORRUPT, __LINE__);
            if (_DBclLoad(leaf, down) != 0) return DBerrno;
            const int n = _DBclCount(leaf.b);
            lv++;
            x->t[lv] = DBTREE{down, static_cast<int16_t>(n), 0};
            if (_DBclLeaf(leaf.b)) {
                if (n == 0) return here.fail(DBE_CORRUPT, __LINE__);
                x->t[lv].i = static_cast<int16_t>(n - 1);
                break;
            }
            down = _DBclChild(leaf.b, n);
        }
        const int last = x->t[lv].i;
        std::memcpy(_DBclItem(pg.b, p) + 4, _DBclItem(leaf.b, last) + 4, static_cast<size_t>(h.k) + 4);
        if (_DBclSave(pg) != 0) return DBerrno;
        pg = leaf;
        p = last;
    }
    _DBclRemoveAt(pg.b, p, m);
    for (;;) {
        const int n = _DBclCount(pg.b);
        if (lv == 0 || n >= h.mnk) return _DBclSave(pg);
        DBNTXWORK parent, sib;
        if (_DBclLoad(parent, x->t[lv - 1].current_page_number) != 0) return DBerrno;
        const int q = x->t[lv - 1].i;
        const bool left = q >= _DBclCount(parent.b);
        const int sep = left ? q - 1 : q;
        if (sep < 0) return here.fail(DBE_CORRUPT, __LINE__);
        if (_DBclLoad(sib, _DBclChild(parent.b, left ? q - 1 : q + 1)) != 0) return DBerrno;
        if (_DBclCount(sib.b) + n >= m) {
            _rotate(parent, sep, pg, sib, left, h);
            if (_DBclSave(sib) != 0 || _DBclSave(parent) != 0) return DBerrno;
            return _DBclSave(pg);
        }
        DBNTXWORK &l = left ? sib : pg;
        const DBNTXWORK &r = left ? pg : sib;
        _join(parent, sep, l, r, h);
        if (_DBclSave(l) != 0 || _DBclMarkPage(r.at) != 0) return DBerrno;
        // The separator leaves the parent as a leaf key would.
        lv--;
        pg = parent;
        _DBclRemoveAt(pg.b, sep, m);
    }
}
}  // namespace

int _DBclRotate(int32_t parent, int ppos, int32_t page, int32_t sibling, bool left) {
    DBNTXWORK pw, p, s;
    if (_DBclLoad(pw, parent) != 0 || _DBclLoad(p, page) != 0 || _DBclLoad(s, sibling) != 0) return DBerrno;
    _rotate(pw, left ? ppos - 1 : ppos, p, s, left, DBcli->h);
    if (_DBclSave(s) != 0 || _DBclSave(pw) != 0) return DBerrno;
    return _DBclSave(p);
}

extern "C" DBAPI int DBclDeleteKey(int handle, char *key, int32_t recno) {
    DBNTXAUTOLOCK lock;
    if (const int rc = _DBClipChangeBegin<DBNTXFAM>(handle, key, lock); rc != 0) return rc;
    DBNTXPKT *x = DBcli;
    const int k = x->h.k;
    const size_t n = strnlen(key, static_cast<size_t>(k));
    std::memcpy(DBkeybfr1, key, n);
    std::memset(DBkeybfr1 + n, ' ', static_cast<size_t>(k) - n);
    DBkeybfr1[k] = '\0';
    DBrecno = recno;
    int32_t rec = recno;
    const int rc = _DBclKeySearch(DBkeybfr1, &rec, (x->h.u & 1) ? 1 : 2);
    if (rc != 0) return _DBclChanged(rc == DBW_NOMOREKEYS ? DBW_KEYNOTFOUND : rc);
    if (_remove() != 0) return _DBclChanged(DBerrno);
    // A root left without keys hands the tree to its only child.
    DBNTXWORK root;
    if (_DBclLoad(root, x->h.r) != 0) return _DBclChanged(DBerrno);
    if (_DBclCount(root.b) == 0 && _DBclChild(root.b, 0) != 0) {
        const int32_t old = x->h.r;
        x->h.r = _DBclChild(root.b, 0);
        if (!x->ph.m.always_flush) x->u = 1;
        if (_DBclMarkPage(old) != 0) return _DBclChanged(DBerrno);
    }
    if (x->ph.m.always_flush && _DBclWriteRoot() != 0) return _DBclChanged(DBerrno);
    return _DBclChanged(0);
}
