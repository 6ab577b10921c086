// nindex.cpp - filling a new NDX index from every record of a table: the
// keys are made and sorted (spilling to a temporary file beyond the sort
// budget), then written as full nodes from the leaves up. Each level holds
// back its last finished node until the next one fills, so that at the end
// the last two nodes of a level can share their entries and none is left
// below half full.
#include "ndx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/nindex"};
constexpr int kWriterPages = 256;

struct _Build {
    DBKeySorter sort;
    int32_t table;
    int k;
    bool numeric;
    char key[DBNDXBLOCK];
    char item[DBNDXBLOCK];
};

int _collect(int32_t recno, void *ctx) {
    auto *b = static_cast<_Build *>(ctx);
    if (_DBd3MakeKeyInto(b->table, b->key) != 0) return DBerrno;
    // The sorter compares bytes: numbers go in as bytes in numeric order.
    // Record numbers big-endian, so equal keys come out by record.
    if (b->numeric) _DBd3OrderBytes(b->item, b->key);
    else std::memcpy(b->item, b->key, static_cast<size_t>(b->k));
    _DBStoreBE32(b->item + b->k, static_cast<uint32_t>(recno));
    return b->sort.add(b->item);
}

// The nodes being filled, two per level: the one held back and the one
// filling. An entry is a child block (0 in a leaf), a record number (0 in
// an interior node) and a key; an interior node's last entry becomes its
// last child, and its key the node's greatest, which goes up.
class _Levels {
public:
    explicit _Levels(const DBNDXHDR &h) : h_(h), es_(8 + h.k) {}
    int open(int fd, int16_t levels) {
        levels_ = levels;
        const size_t node = static_cast<size_t>(h_.m + 1) * es_;
        if (buf_.alloc(node * 2 * levels, here.id, __LINE__) != 0) return DBerrno;
        if (lv_.alloc(static_cast<size_t>(levels), here.id, __LINE__) != 0) return DBerrno;
        for (int i = 0; i < levels; i++) {
            lv_[i].node[0] = buf_.get() + node * (2 * i);
            lv_[i].node[1] = buf_.get() + node * (2 * i + 1);
        }
        return out_.open(fd, DBNDXBLOCK, kWriterPages);
    }
    int add(int lv, int32_t child, int32_t rec, const char *key) {
        if (lv >= levels_) return here.fail(DBE_CORRUPT, __LINE__);
        Level &L = lv_[lv];
        if (L.started == 0 || L.n[1] == cap(lv)) {
            if (L.started > 1 && finish(lv, 0) != 0) return DBerrno;
            if (L.started > 0) {
                std::swap(L.node[0], L.node[1]);
                L.n[0] = L.n[1];
                L.block[0] = L.block[1];
            }
            L.n[1] = 0;
            if (next_ >= INT32_MAX / DBNDXBLOCK) return here.fail(DBE_WRITE, __LINE__);
            L.block[1] = next_++;
            L.started++;
        }
        char *e = L.node[1] + static_cast<size_t>(L.n[1]) * es_;
        _DBStoreLE32(e, static_cast<uint32_t>(child));
        _DBStoreLE32(e + 4, static_cast<uint32_t>(rec));
        std::memcpy(e + 8, key, h_.k);
        L.n[1]++;
        return 0;
    }
    // All entries are in: even out and write the last nodes, level by level
    // up to the one with a single node, the root.
    int end(int32_t *root, int32_t *blocks) {
        for (int lv = 0; lv < levels_; lv++) {
            Level &L = lv_[lv];
            if (L.started == 1) {
                if (write(lv, 1) != 0 || out_.flush() != 0) return DBerrno;
                *root = L.block[1];
                *blocks = next_;
                return 0;
            }
            const int want = (cap(lv) + 1) / 2;
            if (L.n[1] < want) {
                // Entries move from the end of the held node to the front of
                // the last: the held one was full, so both end at least half.
                const int moved = (L.n[0] + L.n[1]) / 2 - L.n[1];
                std::memmove(L.node[1] + static_cast<size_t>(moved) * es_, L.node[1], static_cast<size_t>(L.n[1]) * es_);
                std::memcpy(L.node[1], L.node[0] + static_cast<size_t>(L.n[0] - moved) * es_, static_cast<size_t>(moved) * es_);
                L.n[0] -= moved;
                L.n[1] += moved;
            }
            if (finish(lv, 0) != 0 || finish(lv, 1) != 0) return DBerrno;
        }
        return here.fail(DBE_CORRUPT, __LINE__);
    }
    bool empty() const { return lv_[0].started == 0; }

private:
    struct Level {
        char *node[2];   // held back, filling
        int n[2];
        int32_t block[2];
        int32_t started;
    };
    int cap(int lv) const { return lv == 0 ? h_.m : h_.m + 1; }
    // Write node which of level lv and hand its block and greatest key up.
    int finish(int lv, int which) {
        if (write(lv, which) != 0) return DBerrno;
        const Level &L = lv_[lv];
        char key[DBNDXBLOCK];
        std::memcpy(key, L.node[which] + static_cast<size_t>(L.n[which] - 1) * es_ + 8, h_.k);
        return add(lv + 1, L.block[which], 0, key);
    }
    int write(int lv, int which) {
        const Level &L = lv_[lv];
        char pg[DBNDXBLOCK] = {};
        const int n = L.n[which];
        const int keys = lv == 0 ? n : n - 1;
        for (int i = 0; i < keys; i++) {
            const char *e = L.node[which] + static_cast<size_t>(i) * es_;
            _DBd3SetItem(pg, i, h_, static_cast<int32_t>(_DBLoadLE32(e)), static_cast<int32_t>(_DBLoadLE32(e + 4)), e + 8);
        }
        if (lv > 0) std::memcpy(_DBd3Item(pg, keys, h_.il), L.node[which] + static_cast<size_t>(keys) * es_, 4);
        _DBd3SetCount(pg, keys);
        return out_.put(L.block[which] * DBNDXBLOCK, pg);
    }
    const DBNDXHDR &h_;
    const size_t es_;
    DBOwned<char> buf_;
    DBOwned<Level> lv_;
    DBPageWriter out_;
    int32_t next_ = 1;  // the empty root of the new file is overwritten
    int16_t levels_ = 0;
};

int _build(int32_t table, char *filename, int16_t ih) {
    if (_DBd3LockIndexStruc(ih) != 0) return DBerrno;
    DBNDXPKT *x = DBd3i;
    _Build b;
    b.table = table;
    b.k = x->h.k;
    b.numeric = x->h.type == 1;
    if (b.sort.open(b.k + 4, x->h.u ? b.k : 0, filename) != 0) return DBerrno;
    if (_DBScanTable(table, _collect, &b) != 0) return DBerrno;
    if (b.sort.finish() != 0) return DBerrno;
    if (_DBd3LockIndexStruc(ih) != 0) return DBerrno;
    _Levels lv(x->h);
    if (lv.open(x->ph.dh, x->td) != 0) return DBerrno;
    const char *item = nullptr;
    char key[DBNDXBLOCK];
    int rc;
    while ((rc = b.sort.next(&item)) == 0) {
        if (b.numeric) _DBd3FromOrderBytes(key, item);
        else std::memcpy(key, item, static_cast<size_t>(b.k));
        if (lv.add(0, 0, static_cast<int32_t>(_DBLoadBE32(item + b.k)), key) != 0) return DBerrno;
    }
    if (rc < 0) return DBerrno;
    b.sort.close();
    if (lv.empty()) return 0;
    int32_t root = 0, blocks = 0;
    if (lv.end(&root, &blocks) != 0) return DBerrno;
    x->h.r = root;
    x->h.nb = blocks;
    if (static_cast<int64_t>(blocks) * DBNDXBLOCK > x->fs) x->fs = blocks * DBNDXBLOCK;
    x->u = 1;
    _DBPageForget(x->pc);
    return 0;
}
}  // namespace

extern "C" DBAPI int DBd3BuildIndex(int table, char *filename, int keytype, char *expr, int keylen, int decimals) {
    return _DBClipBuildCall<DBNDXFAM>(table, filename, keytype, expr, keylen, decimals, DBd3CreateIndex, DBd3OpenIndex, _build);
}
