// cindex.cpp - filling a new NTX index from every record of a table: the
// keys are made and sorted (spilling to a temporary file beyond the sort
// budget), then written as full pages from the leaves up, each page written
// once and in order; last, the pages along the right edge, which the stream
// may leave short, are evened out with their left neighbours.
#include "eval.h"
#include "ntx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/cindex"};
constexpr int kWriterPages = 256;

struct _Build {
    DBKeySorter sort;
    int32_t table;
    int k;
    const DBFIELDSTRUC *field;  // the expression is this character field
    const char *record;
    char item[DBNTXPAGE];
};

int _collect(int32_t recno, void *ctx) {
    auto *b = static_cast<_Build *>(ctx);
    if (b->field) {
        // What the evaluator would give, without it: the text to its first
        // NUL, cut or blank-padded to the key.
        const char *src = b->record + b->field->a;
        const size_t n = strnlen(src, b->field->l < b->k ? b->field->l : static_cast<size_t>(b->k));
        std::memcpy(b->item, src, n);
        std::memset(b->item + n, ' ', static_cast<size_t>(b->k) - n);
    } else if (_DBclMakeKeyInto(b->table, b->item) != 0) {
        return DBerrno;
    }
    // Record numbers big-endian: byte order is then key order, then record
    // order, and equal keys come out by ascending record number.
    _DBStoreBE32(b->item + b->k, static_cast<uint32_t>(recno));
    return b->sort.add(b->item);
}

// The pages being filled, one per level, written once full.
class _Stack {
public:
    explicit _Stack(const DBNTXHDR &h) : h_(h) {}
    int open(int fd, int32_t first, int16_t levels) {
        next_ = first;
        levels_ = levels;
        if (pages_.alloc(static_cast<size_t>(levels) * DBNTXPAGE, here.id, __LINE__) != 0) return DBerrno;
        if (n_.alloc(static_cast<size_t>(levels), here.id, __LINE__) != 0) return DBerrno;
        for (int i = 0; i < levels; i++) _DBclFormatPage(page(i), h_);
        return out_.open(fd, DBNTXPAGE, kWriterPages);
    }
    // One key (with the subtree below it) into level lv.
    int add(int lv, const char *key, int32_t recno, int32_t left) {
        if (lv >= levels_) return here.fail(DBE_CORRUPT, __LINE__);
        if (lv > top_) top_ = lv;
        char *pg = page(lv);
        if (n_[lv] == h_.max_number_keys_page) {
            // Full: this key goes up, the finished page below it.
            int32_t at = 0;
            _DBclSetChild(pg, n_[lv], left);
            if (write(lv, &at) != 0) return DBerrno;
            return add(lv + 1, key, recno, at);
        }
        _DBclSetItem(pg, n_[lv], left, recno, key, h_.k);
        n_[lv]++;
        _DBclSetCount(pg, n_[lv]);
        return 0;
    }
    // The partly filled pages, bottom up; the top one is the root.
    int finish(int32_t *root, int32_t *end) {
        int32_t below = 0;
        for (int lv = 0; lv <= top_; lv++) {
            if (lv > 0) _DBclSetChild(page(lv), n_[lv], below);
            if (write(lv, &below) != 0) return DBerrno;
        }
        if (out_.flush() != 0) return DBerrno;
        *root = below;
        *end = next_;
        return 0;
    }
    bool empty() const { return top_ < 0; }

private:
    char *page(int lv) { return pages_.get() + static_cast<size_t>(lv) * DBNTXPAGE; }
    int write(int lv, int32_t *at) {
        if (next_ > INT32_MAX - DBNTXPAGE) return here.fail(DBE_WRITE, __LINE__);
        *at = next_;
        if (out_.put(next_, page(lv)) != 0) return DBerrno;
        next_ += DBNTXPAGE;
        _DBclFormatPage(page(lv), h_);
        n_[lv] = 0;
        return 0;
    }
    const DBNTXHDR &h_;
    DBOwned<char> pages_;
    DBOwned<int> n_;
    DBPageWriter out_;
    int32_t next_ = 0;
    int16_t levels_ = 0;
    int top_ = -1;
};

// Down the right edge: a page the stream left below half full takes keys
// from its left neighbour, which is full, one rotation at a time.
int _evenRightEdge() {
    DBNTXPKT *x = DBcli;
    int32_t at = x->h.r;
    for (int depth = 0; depth < x->td; depth++) {
        DBNTXWORK p;
        if (_DBclLoad(p, at) != 0) return DBerrno;
        if (_DBclLeaf(p.b)) return 0;
        const int n = _DBclCount(p.b);
        if (n < 1) return here.fail(DBE_CORRUPT, __LINE__);
        const int32_t child = _DBclChild(p.b, n), left = _DBclChild(p.b, n - 1);
        DBNTXWORK c;
        if (_DBclLoad(c, child) != 0) return DBerrno;
        for (int have = _DBclCount(c.b); have < x->h.mnk; have++)
            if (_DBclRotate(at, n, child, left, true) != 0) return DBerrno;
        at = child;
    }
    return here.fail(DBE_CORRUPT, __LINE__);
}

int _build(int32_t table, char *filename, int16_t ih) {
    if (_DBclLockIndexStruc(ih) != 0) return DBerrno;
    DBNTXPKT *x = DBcli;
    _Build b;
    b.table = table;
    b.k = x->h.k;
    if (b.sort.open(b.k + 4, (x->h.u & 1) ? b.k : 0, filename) != 0) return DBerrno;
    int32_t records = 0;
    if (DBGetRecordCount(table, &records) != 0 || b.sort.reserve(records) != 0) return DBerrno;
    const int fld = _DBPlainField(table, x->h.e);
    b.field = fld >= 0 ? &DBxbd->f[fld] : nullptr;
    b.record = DBxbd->b.r;
    if (_DBScanTable(table, _collect, &b) != 0) return DBerrno;
    if (b.sort.finish() != 0) return DBerrno;
    if (_DBclLockIndexStruc(ih) != 0) return DBerrno;
    _Stack st(x->h);
    // The empty root of the new file is overwritten by the first page.
    if (st.open(x->ph.dh, DBNTXPAGE, static_cast<int16_t>(x->td + 1)) != 0) return DBerrno;
    const char *item = nullptr;
    int rc;
    while ((rc = b.sort.next(&item)) == 0)
        if (st.add(0, item, static_cast<int32_t>(_DBLoadBE32(item + b.k)), 0) != 0) return DBerrno;
    if (rc < 0) return DBerrno;
    b.sort.close();
    if (st.empty()) return 0;
    int32_t root = 0, end = 0;
    if (st.finish(&root, &end) != 0) return DBerrno;
    x->h.r = root;
    x->fs = end > x->fs ? end : x->fs;
    x->u = 1;
    _DBPageForget(x->pc);
    return _evenRightEdge();
}
}  // namespace

extern "C" DBAPI int DBclBuildIndex(int table, char *filename, int keytype, char *expr, int keylen, int decimals) {
    return _DBClipBuildCall<DBNTXFAM>(table, filename, keytype, expr, keylen, decimals, DBclCreateIndex, DBclOpenIndex, _build);
}
