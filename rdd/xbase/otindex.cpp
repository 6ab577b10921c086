// otindex.cpp - filling a CDX tag or IDX file in one pass: the key of every
// record made and sorted (in memory within the sort budget, in runs through
// a temporary file beyond it), then written as full pages from the leaves
// up, each level's pages linked left to right as they are written; the top
// page becomes the root. Also DBfpWriteKeys, the same writer for keys the
// caller hands over.
#include "cdx.h"
#include "dbf.h"
#include "eval.h"

namespace {
constexpr DBSite here{"rdd/xbase/otindex"};
constexpr int kWriterPages = 256;

struct _Level {
    char pg[DBCDXPAGE];
    int32_t at = 0;       // the page being filled; 0 = none yet
    int n = 0;            // items in it
    int used = 0;         // bytes used (compact leaf)
    int32_t written = 0;  // pages written at this level
};

class _Writer {
public:
    int open(int levels, uint32_t maxrec) {
        t_ = DBfpt;
        k_ = t_->k;
        w_ = _DBfpWidthsFor(k_, maxrec);
        levels_ = levels;
        if (lv_.alloc(static_cast<size_t>(levels), here.id, __LINE__) != 0) return DBerrno;
        if (keys_.alloc(static_cast<size_t>(DBCDX_MAXENTRIES + 1) * k_, here.id, __LINE__) != 0) return DBerrno;
        if (recs_.alloc(DBCDX_MAXENTRIES + 1, here.id, __LINE__) != 0) return DBerrno;
        return out_.open(DBfpi->ph.dh, DBCDXPAGE, kWriterPages);
    }

    int leaf(const char *key, int32_t rec) {
        if (!t_->compact) return item(0, key, rec, 0);
        _Level &L = lv_[0];
        if (L.at == 0 && start(0, 0) != 0) return DBerrno;
        std::memcpy(keys_.get() + static_cast<size_t>(L.n) * k_, key, static_cast<size_t>(k_));
        recs_[L.n] = rec;
        int size = _DBfpPackedSize(w_, k_, t_->fc, keys_.get(), L.n, L.n == 0);
        if (L.n > 0 && (L.used + size > DBCDX_LEAFROOM || L.n >= DBCDX_MAXENTRIES)) {
            if (rotate(0) != 0) return DBerrno;
            std::memcpy(keys_.get(), key, static_cast<size_t>(k_));
            recs_[0] = rec;
            size = _DBfpPackedSize(w_, k_, t_->fc, keys_.get(), 0, true);
        }
        L.n++;
        L.used += size;
        return 0;
    }

    // An item at level lv (a non-compact leaf item, or an interior item).
    int item(int lv, const char *key, int32_t rec, int32_t child) {
        if (lv >= levels_) return here.fail(DBE_CORRUPT, __LINE__);
        _Level &L = lv_[lv];
        if (L.at == 0 && start(lv, 0) != 0) return DBerrno;
        if (L.n == t_->max_number_keys_page && rotate(lv) != 0) return DBerrno;
        char *it = L.pg + 12 + L.n * t_->i;
        std::memcpy(it, key, static_cast<size_t>(k_));
        if (lv == 0) {
            _DBStoreBE32(it + t_->rno, static_cast<uint32_t>(rec));
        } else {
            if (t_->compact) _DBStoreBE32(it + t_->rno, static_cast<uint32_t>(rec));
            _DBStoreBE32(it + t_->offset_to_page_number_in_key_item, static_cast<uint32_t>(child));
        }
        L.n++;
        return 0;
    }

    // The partly filled pages, bottom up; the one alone at its level with
    // nothing above is the root (0 when nothing was written).
    int finish(int32_t *root) {
        *root = 0;
        for (int lv = 0; lv < levels_; lv++) {
            _Level &L = lv_[lv];
            if (L.at == 0 || L.n == 0) continue;
            const bool top = L.written == 0;
            const int32_t at = L.at;
            char last[DBCDXMAXKEY];
            int32_t lrec = 0;
            if (close(lv, -1, top, last, &lrec) != 0) return DBerrno;
            if (top) {
                *root = at;
                break;
            }
            if (item(lv + 1, last, lrec, at) != 0) return DBerrno;
        }
        return out_.flush();
    }

private:
    // New pages: the free list first, else the end of the file; pages from
    // the end are written by the page writer, which grows the file.
    int alloc(int32_t *at) {
        DBCDXPKT *x = DBfpi;
        if (x->ff != 0 && x->ff != -1) return _DBfpNewPage(at);
        if (x->file_size > INT32_MAX - 2 * DBCDXPAGE) return here.fail(DBE_WRITE, __LINE__);
        *at = x->file_size;
        x->file_size += DBCDXPAGE;
        x->index_modified = 1;
        return 0;
    }

    int start(int lv, int32_t left) {
        _Level &L = lv_[lv];
        if (alloc(&L.at) != 0) return DBerrno;
        std::memset(L.pg, 0, DBCDXPAGE);
        const bool isLeaf = lv == 0;
        _DBStoreLE16(L.pg, static_cast<uint16_t>(isLeaf ? 2 : 0));
        _DBfpSetLeft(L.pg, left ? left : -1);
        _DBfpSetRight(L.pg, -1);
        L.n = 0;
        L.used = 0;
        return 0;
    }

    // Write the page of level lv with its right sibling, handing its last
    // entry back.
    int close(int lv, int32_t right, bool root, char *last, int32_t *lrec) {
        _Level &L = lv_[lv];
        if (lv == 0 && t_->compact) {
            if (!_DBfpLeafPack(L.pg, w_, k_, t_->fc, keys_.get(), recs_.get(), L.n)) return here.fail(DBE_CORRUPT, __LINE__);
            std::memcpy(last, keys_.get() + static_cast<size_t>(L.n - 1) * k_, static_cast<size_t>(k_));
            *lrec = recs_[L.n - 1];
        } else {
            _DBfpSetCount(L.pg, L.n);
            const char *it = L.pg + 12 + (L.n - 1) * t_->i;
            std::memcpy(last, it, static_cast<size_t>(k_));
            *lrec = (lv == 0 || t_->compact) ? static_cast<int32_t>(_DBLoadBE32(it + t_->rno)) : 0;
        }
        _DBStoreLE16(L.pg, static_cast<uint16_t>((lv == 0 ? 2 : 0) | (root ? 1 : 0)));
        _DBfpSetRight(L.pg, right);
        if (out_.put(L.at, L.pg) != 0) return here.fail(DBerrno, __LINE__);
        L.written++;
        return 0;
    }

    // The page of level lv is full: its successor is taken, the page written
    // with the link to it, and its last entry goes up a level.
    int rotate(int lv) {
        _Level &L = lv_[lv];
        int32_t next = 0;
        if (alloc(&next) != 0) return DBerrno;
        const int32_t at = L.at;
        char last[DBCDXMAXKEY];
        int32_t lrec = 0;
        if (close(lv, next, false, last, &lrec) != 0) return DBerrno;
        std::memset(L.pg, 0, DBCDXPAGE);
        _DBStoreLE16(L.pg, static_cast<uint16_t>(lv == 0 ? 2 : 0));
        _DBfpSetLeft(L.pg, at);
        _DBfpSetRight(L.pg, -1);
        L.at = next;
        L.n = 0;
        L.used = 0;
        return item(lv + 1, last, lrec, at);
    }

    DBCDXTAG *t_ = nullptr;
    int k_ = 0, levels_ = 0;
    DBCDXWIDTHS w_{};
    DBOwned<_Level> lv_;
    DBOwned<char> keys_;
    DBOwned<int32_t> recs_;
    DBPageWriter out_;
};

struct _Build {
    DBKeySorter sort;
    int32_t table = 0;
    int k = 0;
    uint32_t maxrec = 1;
    char *forExpr = nullptr;
    char item[DBCDXMAXKEY + 8];
};

int _collect(int32_t recno, void *ctx) {
    auto *b = static_cast<_Build *>(ctx);
    if (b->forExpr) {
        // A FOR expression that reads as a logical keeps the records where
        // it is true; any other result cannot be used.
        if (_DBEvaluateKey(b->table, b->forExpr) != 0) return here.fail(DBerrno, __LINE__);
        if (DBeval_pr.etyp != 'L') return here.fail(DBE_BADEXPR, __LINE__);
        if (DBeval_pr.eval[0] != 1) return 0;
    }
    if (_DBfpMakeKeyInto(b->table, b->item) != 0) return DBerrno;
    // Record numbers big-endian: byte order is key order, then record order.
    _DBStoreBE32(b->item + b->k, static_cast<uint32_t>(recno));
    if (static_cast<uint32_t>(recno) > b->maxrec) b->maxrec = static_cast<uint32_t>(recno);
    return b->sort.add(b->item);
}

// The tree of DBfpt (emptied by the caller) gets the sorted items.
int _write(DBKeySorter &sort, uint32_t maxrec) {
    DBCDXTAG *t = DBfpt;
    _Writer w;
    if (w.open(t->td + 1, maxrec) != 0) return DBerrno;
    const char *item = nullptr;
    int rc;
    while ((rc = sort.next(&item)) == 0) {
        const int32_t rec = static_cast<int32_t>(_DBLoadBE32(item + t->k));
        if (w.leaf(item, rec) != 0) return DBerrno;
    }
    if (rc < 0) return here.fail(rc, __LINE__);
    int32_t root = 0;
    if (w.finish(&root) != 0) return DBerrno;
    if (root == 0) return 0;
    // The empty root leaf the tree had gives way to the new root.
    const int32_t old = _DBfpRoot(t);
    t->index_header.index_file_root_page_offset = root;
    t->index_modified = 1;
    _DBfpForgetTag(t);
    return _DBfpFreePage(old);
}
}  // namespace

extern "C" DBAPI int DBfpBuildIndex(int table, int tag) {
    if (_DBLockDataStruc(table) != 0) return DBerrno;
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (DBfpi->ph.m.read_only) return _DBfpChanged(here.fail(DBE_READONLY, __LINE__));
    DBCDXAUTOLOCK lock;
    if (lock.take() != 0 || _DBfpRefresh() != 0) return _DBfpChanged(DBerrno);
    DBCDXTAG *t = DBfpt;
    if (_DBfpFreeTree(true) != 0) return _DBfpChanged(DBerrno);
    _Build b;
    b.table = table;
    b.k = t->k;
    b.forExpr = t->for_expression;
    if (b.sort.open(b.k + 4, _DBfpUnique(t) ? b.k : 0, DBfpi->ph.n) != 0) return _DBfpChanged(DBerrno);
    if (_DBScanTable(table, _collect, &b) != 0) return _DBfpChanged(DBerrno);
    if (b.sort.finish() != 0) return _DBfpChanged(DBerrno);
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    const int rc = _write(b.sort, b.maxrec);
    return _DBfpChanged(rc != 0 ? DBerrno : 0);
}

extern "C" DBAPI int DBfbBuildIndex(int table, int handle) { return DBfpBuildIndex(table, handle); }

extern "C" DBAPI int DBfpWriteKeys(int tag, char *items, int32_t count) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!items && count > 0) return here.fail(DBE_NULLPARAM, __LINE__);
    if (count < 0) return here.fail(DBE_BADCOMMAND, __LINE__);
    if (DBfpi->ph.m.read_only) return _DBfpChanged(here.fail(DBE_READONLY, __LINE__));
    DBCDXTAG *t = DBfpt;
    const int il = t->k + 4;
    uint32_t maxrec = 1;
    for (int32_t i = 0; i < count; i++) {
        const int32_t rec = static_cast<int32_t>(_DBLoadBE32(items + static_cast<size_t>(i) * il + t->k));
        if (rec < 1) return _DBfpChanged(here.fail(DBE_SEEK, __LINE__));
        if (static_cast<uint32_t>(rec) > maxrec) maxrec = static_cast<uint32_t>(rec);
    }
    DBCDXAUTOLOCK lock;
    if (lock.take() != 0 || _DBfpRefresh() != 0) return _DBfpChanged(DBerrno);
    if (_DBfpFreeTree(true) != 0) return _DBfpChanged(DBerrno);
    DBKeySorter sort;
    if (sort.open(il, _DBfpUnique(t) ? t->k : 0, DBfpi->ph.n) != 0) return _DBfpChanged(DBerrno);
    for (int32_t i = 0; i < count; i++)
        if (sort.add(items + static_cast<size_t>(i) * il) != 0) return _DBfpChanged(DBerrno);
    if (sort.finish() != 0) return _DBfpChanged(DBerrno);
    const int rc = _write(sort, maxrec);
    return _DBfpChanged(rc != 0 ? DBerrno : 0);
}
