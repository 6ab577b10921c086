// nkadd.cpp - adding a key to an NDX index: the insert into a leaf, splits
// that hand the greatest key of the new lower half up to the parent, a new
// root when the root splits; also the block allocator and the bookkeeping
// every change shares.
//
// Interior keys stay equal to the greatest key of their child's subtree
// without further work: the descent takes the first child whose key is
// above the new key, so a new key can only become a node's greatest in a
// node that is the last child all the way up, and last children have no
// key in their parent. A split gives its new lower half the greatest key
// of that half, read off its items.
#include "ndx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/nkadd"};

// The path to where key goes: after every key not above it, so that equal
// keys of a non-unique index keep the order they were added in.
int _descend(const char *key) {
    DBNDXPKT *x = DBd3i;
    const DBNDXHDR &h = x->h;
    DBNDXTREE tr;
    x->tl = -1;
    char *pg = nullptr;
    int32_t page = _DBd3Offset(static_cast<uint32_t>(h.r));
    for (bool root = true;; root = false) {
        const int rc = _DBPathPush(tr, x->t, x->td, x->tl, page, &pg, root ? 1 : 0);
        if (rc != 0) return here.fail(rc, __LINE__);
        const int n = _DBd3Count(pg);
        int i = 0;
        while (i < n && _DBd3Compare(h, _DBd3Key(pg, i, h.il), key, h.k) <= 0) i++;
        x->t[x->tl].i = static_cast<int16_t>(i);
        if (_DBd3Leaf(pg, h.il)) return 0;
        page = _DBd3Offset(static_cast<uint32_t>(_DBd3ChildBlock(pg, i, h.il)));
    }
}

// One entry of a node being split: the child (0 in a leaf), record and key.
struct _Entry {
    int32_t child, rec;
    const char *key;
};

// The insert proper, from the leaf position of the path upward.
int _insert(const char *ikey, int32_t recno) {
    DBNDXPKT *x = DBd3i;
    const DBNDXHDR &h = x->h;
    char key[DBNDXBLOCK];
    std::memcpy(key, ikey, h.k);
    int32_t rec = recno, left = 0;
    for (int lv = x->tl; lv >= 0; lv--) {
        DBNDXWORK pg;
        if (_DBd3Load(pg, x->t[lv].current_page_number) != 0) return DBerrno;
        const int n = _DBd3Count(pg.b), p = x->t[lv].i;
        const bool leaf = _DBd3Leaf(pg.b, h.il);
        if (p < 0 || p > n) return here.fail(DBE_CORRUPT, __LINE__);
        // Slots that move: a leaf's n items; an interior node's n items and
        // its last child.
        const int slots = leaf ? n : n + 1;
        if (n < h.m) {
            std::memmove(_DBd3Item(pg.b, p + 1, h.il), _DBd3Item(pg.b, p, h.il), static_cast<size_t>(slots - p) * h.il);
            _DBd3SetItem(pg.b, p, h, left, rec, key);
            _DBd3SetCount(pg.b, n + 1);
            return _DBd3Save(pg);
        }
        // Full: n + 1 entries (and an interior node's last child) in order,
        // read from a copy, since both halves are rewritten from scratch.
        char old[DBNDXWORKSIZE];
        std::memcpy(old, pg.b, sizeof old);
        _Entry e[DBNDXBLOCK / 12 + 2];
        for (int i = 0, j = 0; i <= slots; i++) {
            if (i == p) {
                e[i] = {left, rec, key};
                continue;
            }
            e[i] = {_DBd3ChildBlock(old, j, h.il), _DBd3Recno(old, j, h.il), _DBd3Key(old, j, h.il)};
            j++;
        }
        // The lower half goes to a new node, the upper half stays: the
        // parent's pointer to this node keeps naming the upper half, and the
        // new node goes in before it with its own greatest key.
        const int half = (n + 1) / 2;
        DBNDXWORK low;
        if (_DBd3NewBlock(&low.at) != 0) return DBerrno;
        std::memset(low.b, 0, sizeof low.b);
        std::memset(pg.b, 0, sizeof pg.b);
        for (int i = 0; i < half; i++) _DBd3SetItem(low.b, i, h, e[i].child, leaf ? e[i].rec : 0, e[i].key);
        char up[DBNDXBLOCK];
        if (leaf) {
            _DBd3SetCount(low.b, half);
            std::memcpy(up, e[half - 1].key, h.k);
            for (int i = half; i <= n; i++) _DBd3SetItem(pg.b, i - half, h, 0, e[i].rec, e[i].key);
            _DBd3SetCount(pg.b, n + 1 - half);
        } else {
            // Entry `half` ends the lower node: its child is the lower node's
            // last, its key the lower node's greatest, which goes up.
            _DBd3SetCount(low.b, half);
            _DBStoreLE32(_DBd3Item(low.b, half, h.il), static_cast<uint32_t>(e[half].child));
            std::memcpy(up, e[half].key, h.k);
            for (int i = half + 1; i <= n; i++) _DBd3SetItem(pg.b, i - half - 1, h, e[i].child, 0, e[i].key);
            _DBStoreLE32(_DBd3Item(pg.b, n - half, h.il), static_cast<uint32_t>(e[n + 1].child));
            _DBd3SetCount(pg.b, n - half);
        }
        if (_DBd3Save(low) != 0 || _DBd3Save(pg) != 0) return DBerrno;
        std::memcpy(key, up, h.k);
        rec = 0;
        left = _DBd3Block(low.at);
    }
    // The root split: a new root over the two halves.
    DBNDXWORK root;
    if (_DBd3NewBlock(&root.at) != 0) return DBerrno;
    std::memset(root.b, 0, sizeof root.b);
    _DBd3SetItem(root.b, 0, h, left, 0, key);
    _DBStoreLE32(_DBd3Item(root.b, 1, h.il), static_cast<uint32_t>(x->h.r));
    _DBd3SetCount(root.b, 1);
    if (_DBd3Save(root) != 0) return DBerrno;
    x->h.r = _DBd3Block(root.at);
    return _DBd3HeaderChanged();
}
}  // namespace

int _DBd3NewBlock(int32_t *page) {
    DBNDXPKT *x = DBd3i;
    if (x->fln > 0) {
        *page = _DBd3Offset(static_cast<uint32_t>(x->fl[--x->fln]));
        return 0;
    }
    // The next block is the header's count, unless the file is longer: a
    // block of the file is never overwritten by a new node.
    int32_t block = x->h.nb;
    const int32_t inFile = (x->fs + DBNDXBLOCK - 1) / DBNDXBLOCK;
    if (block < inFile) block = inFile;
    if (block < 1 || block >= INT32_MAX / DBNDXBLOCK) return here.fail(DBE_WRITE, __LINE__);
    const int32_t end = (block + 1) * DBNDXBLOCK;
    if (DBosSetFileSize(x->ph.dh, end) != 0) return here.fail(DBerrno, __LINE__);
    x->fs = end;
    x->h.nb = block + 1;
    *page = block * DBNDXBLOCK;
    return _DBd3HeaderChanged();
}

int _DBd3FreeBlock(int32_t page) {
    DBNDXPKT *x = DBd3i;
    if (x->fln == x->flc) {
        const int32_t cap = x->flc ? x->flc * 2 : 16;
        void *p = x->fl;
        const size_t bytes = static_cast<size_t>(cap) * sizeof(int32_t);
        if ((p ? DBReAllocateMemory(&p, bytes, here.id, __LINE__) : DBAllocateMemoryLog(&p, bytes, here.id, __LINE__)) != 0)
            return DBerrno;
        x->fl = static_cast<int32_t *>(p);
        x->flc = cap;
    }
    // Zeroed at once and gone from the cache: no reader takes it for a node.
    char zero[DBNDXBLOCK] = {};
    if (_DBosWriteAt(x->ph.dh, page, zero, DBNDXBLOCK, x->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    _DBPageDrop(x->pc, page);
    x->fl[x->fln++] = _DBd3Block(page);
    return 0;
}

extern "C" DBAPI int DBd3AddKey(int handle, char *key, int32_t recno) {
    DBNDXAUTOLOCK lock;
    if (const int rc = _DBClipChangeBegin<DBNDXFAM>(handle, key, lock); rc != 0) return rc;
    DBNDXPKT *x = DBd3i;
    char ikey[DBNDXBLOCK], probe[DBNDXBLOCK];
    _DBd3StoredKey(key, ikey);
    int32_t rec = recno;
    const int rc = _DBd3Find(ikey, x->h.k, x->h.u ? 1 : 2, recno, probe, &rec);
    if (rc == 0) return _DBd3Changed(DBW_EXISTS);
    if (rc < 0) return _DBd3Changed(rc);
    if (_descend(ikey) != 0 || _insert(ikey, recno) != 0) return _DBd3Changed(DBerrno);
    return _DBd3Changed(0);
}
