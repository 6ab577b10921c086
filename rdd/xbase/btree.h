// btree.h - the toolkit every index family is built on: a page cache with a
// most-recently-used directory, the descent path and the moves along it,
// the bulk-build sorter that spills runs to a temporary file, a sequential
// page writer, and the whole-tree checker. A family (NTX, CDX/IDX, NDX)
// supplies only what differs: its header, its page layout and item form,
// its key encodings and its lock bytes.
//
// Pages are addressed by their byte offset in the file everywhere in the
// toolkit; a family that numbers blocks converts at its own boundary.
#pragma once

#include "core.h"
#include "dbf.h"
#include "os.h"

#include <algorithm>

// ---------------------------------------------------------------------------
// Page cache
// ---------------------------------------------------------------------------

// One directory entry: which page a buffer holds and in what state.
// Entries never move: the order of use is a list through prev and next,
// and pages are found through a hash of their numbers (hnext chains the
// entries of one bucket).
struct DBIPC {
    int32_t page_number;     // file offset of the page held; 0 = none
    int16_t *io;             // the page's item offset array (NTX: buffer + 2)
    char *index_page_cache;  // the page buffer
    char s;                  // DBPG_* bits
    int16_t prev, next;      // neighbours in the order of use (-1: none)
    int16_t hnext;           // next entry in the same hash bucket (-1: none)
};

constexpr char DBPG_DIRTY = 2;    // changed since it was read or written
constexpr char DBPG_USED = 32;    // buffer holds a page (counted in pl)
constexpr char DBPG_PINNED = 64;  // held by an operation: never chosen as victim

// A family's cache: np page buffers, each with its directory entry; pl of
// them hold pages. The entries that hold pages form a list from the one
// used last (head) to the one used longest ago (tail), the victim of the
// next miss; the others form a list of free entries. A page is found
// through the hash buckets in constant time whatever the number of
// buffers, so a large cache costs no more per fetch than a small one.
// Buffers never move while they exist, so a buffer pointer stays valid
// while its page is pinned, whatever else is fetched.
struct DBPAGECACHE {
    DBIPC *cp;        // directory (cs entries, the first np with buffers)
    int16_t np;       // page buffers allocated
    int16_t cs;       // directory capacity
    int16_t pl;       // buffers holding a page
    int16_t head;     // used last
    int16_t tail;     // used longest ago
    int16_t free;     // first entry without a page (chained through next)
    int16_t *bucket;  // hash buckets: first entry of each, -1 none
    int32_t nb;       // buckets, a power of two
};

// A read-only view of an index file held by this process alone: pages come
// from it with a copy instead of a system call each. Writes still go through
// the descriptor, and the view sees them (one page cache in the kernel).
// Only for files opened exclusively: another process cutting the file
// short under the view would fault the reader, so shared files are read
// with plain reads.
struct DBPAGEMAP {
    char *base;     // nullptr: no view
    int32_t len;    // bytes the view covers (may run past the file's end)
    int32_t valid;  // bytes the file was last seen to hold: only these are
                    // ever read through the view, since touching a mapped
                    // page past the end of the file faults
};
// Map fd with room for len bytes (nothing on failure: reads fall back to
// plain reads). Replaces an earlier view.
void _DBPageMapOpen(DBPAGEMAP &m, int fd, int32_t len);
void _DBPageMapClose(DBPAGEMAP &m);

// What the cache needs to know of its file for one call.
struct DBPAGEFILE {
    int fd;
    int32_t size;    // page size: 512 or 1024
    int32_t limit;   // file length: a valid page starts below it
    int16_t flush;   // flush flag passed to every write
    int16_t ioofs;   // where the item offset array starts in a buffer (io)
    // Checks a page just read from the file; nonzero refuses it (-206).
    // nullptr: every page is taken as read.
    bool (*sound)(const char *page, const void *ctx);
    const void *ctx;
    // The file's view, when it has one; a page past its end widens it to
    // the file's current length.
    DBPAGEMAP *map;
};

// How a page write reaches the file.
enum DBPAGEWRITEMODE {
    DBPW_DEFER,    // mark dirty; written at flush or eviction
    DBPW_THROUGH,  // write now, keep the clean page cached
    DBPW_DROP,     // write now and forget the page: another process may
                   // change it before we look again (shared, not locked)
};

// How a changed page of a file opened as ph goes out: deferred in a
// buffered file, at once in a write-through one. Shared and not locked by
// us, another process may change the page the moment it is written, so
// our copy must not be served again.
inline DBPAGEWRITEMODE _DBPageWriteMode(const DBPKTHDR &ph) {
    if (!ph.m.always_flush) return DBPW_DEFER;
    return ph.m.shared && ph.ls == 0 ? DBPW_DROP : DBPW_THROUGH;
}

// Set up the directory (entries) and up to `buffers` buffers of the file's
// page size, stopping at the first allocation failure; fewer than `least`
// buffers gives -203 with nothing allocated.
int _DBPageCacheInit(DBPAGECACHE &c, int entries, int buffers, int pagesize, int least);
// Free every buffer and the directory (no write-back).
void _DBPageCacheFree(DBPAGECACHE &c);
// Whether `page` is a page address of the file: not below one page, a
// multiple of the page size, starting below the file's end.
inline bool _DBPageValid(const DBPAGEFILE &f, int32_t page) {
    return page >= f.size && page < f.limit && page % f.size == 0;
}
// Make `page` the most recently used entry, reading it on a miss into the
// least recently used unpinned buffer (written back first when dirty). -204
// for an invalid address, -206 when `sound` refuses the page read.
int _DBPageFetch(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, char **buf);
// As _DBPageFetch for a page the caller is about to format from scratch:
// nothing is read, the buffer is zeroed and marked dirty.
int _DBPageFresh(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, char **buf);
// Put a whole page through the cache: its bytes replace whatever the cache
// held for it (nothing is read), then it is written as `mode` says.
int _DBPageStore(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, const char *data, DBPAGEWRITEMODE mode);
// Record that a cached page was changed. -210 when it is not cached, -209
// when nothing is.
int _DBPageWrite(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, DBPAGEWRITEMODE mode);
// Write every dirty page and mark it clean; the first failure stops.
int _DBPageFlushAll(DBPAGECACHE &c, const DBPAGEFILE &f);
// Forget every cached page without writing anything.
void _DBPageForget(DBPAGECACHE &c);
// Forget one page (no write-back), e.g. a page handed to the free list that
// another tag's cache may read next.
void _DBPageDrop(DBPAGECACHE &c, int32_t page);
// Pin or unpin a cached page (no effect when it is not cached).
void _DBPagePin(DBPAGECACHE &c, int32_t page, bool on);
// Change the number of buffers to *size (above 2, else -212): dirty pages
// are written before buffers go; growing stops at the first allocation
// failure with 209 and the count reached in *size.
int _DBPageResize(DBPAGECACHE &c, const DBPAGEFILE &f, int16_t *size);


// ---------------------------------------------------------------------------
// The index file
// ---------------------------------------------------------------------------

// Open an index file into ph with the library's mode rules: DBO_AUTOLOCK
// adds DBO_FLUSH and DBO_SHARED (and is dropped with DBO_READONLY);
// DBO_FLUSH and DBO_UNBUFFERED make it write-through; a shared file rereads
// its header before trusting it. codes: the access codes (the mode's low
// byte) the family accepts, one bit each; any other gives -218 with the
// file open (the caller closes it). The name goes into ph.n.
int _DBIndexOpenFile(DBPKTHDR &ph, char *filename, int mode, uint32_t codes);
// Create a file holding exactly len bytes; a failure leaves no file behind.
int _DBIndexWriteNew(char *filename, const void *bytes, int len);
// A key expression as index headers keep it: no blanks, upper case. In
// place (for an expression read from a file) or into out (cap bytes, from a
// caller's text): its length, or -207 when it does not fit.
void _DBIndexTidyExpr(char *e);
int _DBIndexNewExpr(char *out, size_t cap, const char *expr);

// The search modes of the Clipper-family indexes (NTX, NDX), applied to
// what a plain search (mode 1, or 2 for mode 2) returned:
//   11 the last key below the text; 12 the key, or the one before it;
//   13 as 1, never 203; 14 the key, or the first above; 15 the first above.
// step(forward) moves one entry, leaves it in key and returns 0, 203 or an
// error; same(a, b) tells whether two keys are equal; k is the key length.
template <class Step, class Same>
int _DBSearchModes(int mode, int rc, char *key, int k, int64_t limit, Step step, Same same) {
    switch (mode) {
    case 11:
        if (rc == 0) rc = step(false);
        return rc == DBW_KEYNOTFOUND ? 0 : rc == DBW_NOMOREKEYS ? DBW_KEYNOTFOUND : rc;
    case 12:
        return rc == DBW_KEYNOTFOUND ? 0 : rc == DBW_NOMOREKEYS ? DBW_KEYNOTFOUND : rc;
    case 13:
        return rc == DBW_NOMOREKEYS ? DBW_KEYNOTFOUND : rc;
    case 14:
    case 15:
        if (rc == 0 && mode == 15) {
            // Past every key equal to the one found.
            char found[520];
            std::memcpy(found, key, static_cast<size_t>(k));
            do {
                rc = step(true);
            } while (rc == 0 && same(key, found) && --limit > 0);
            if (limit <= 0) return DBE_CORRUPT;
            return rc == DBW_NOMOREKEYS ? DBW_KEYNOTFOUND : rc;
        }
        // Below every key, the first key is already the first above.
        if (rc == DBW_NOMOREKEYS) return 0;
        if (rc == DBW_KEYNOTFOUND) {
            rc = step(true);
            return rc == DBW_NOMOREKEYS ? DBW_KEYNOTFOUND : rc;
        }
        return rc;
    default:
        return rc;
    }
}

// Create a new index file and fill it from a table, the same steps for
// every family: create(), open(&handle) with mode 0, fill(handle),
// close(handle); a shared table's locks are let go at the end, and the file
// is removed when a step after the create failed. Returns 0 or the first
// failure, which the caller logs under its own name.
template <class Create, class Open, class Fill, class Close>
int _DBBuildNewIndex(int32_t table, char *filename, Create create, Open open, Fill fill, Close close) {
    if (_DBLockDataStruc(table) != 0 || create() != 0) return DBerrno;
    int h = -1;
    int rc = open(&h);
    if (rc == 0) {
        rc = fill(h);
        const int closed = close(h);
        if (rc == 0) rc = closed;
    }
    if (_DBLockDataStruc(table) == 0 && DBxbd->ph.m.shared) DBUnLockAll(table);
    if (rc != 0) _DBosDeleteFile(filename);
    return _DBStatus(rc);
}

// ---------------------------------------------------------------------------
// Descent path
// ---------------------------------------------------------------------------

// One level of the path from the root: the page and the position in it.
// In an interior page the position names the child descended into (and, in
// a B-tree whose interior items are entries too, that item).
struct DBTREE {
    int32_t current_page_number;
    int16_t i;
    int16_t u1;
};

// Levels a path needs for a tree whose non-root pages hold at least `fanout`
// children: enough for 2^31 - 1 entries, so that a deeper descent can only
// be a damaged file (a cycle of child pointers).
inline int16_t _DBPathDepth(int fanout) {
    if (fanout < 2) return 4096;
    int16_t d = 1;
    int64_t p = 1;
    const int64_t lim = 2147483647LL / fanout;
    while (p < lim) {
        p *= fanout;
        d++;
    }
    return d;
}

// The family side of the moves along a path. A family passes an object with:
//   int read(int32_t page, char **pg)       fetch through its cache
//   int count(const char *pg)                entries (keys) in the page
//   bool leaf(const char *pg)
//   int children(const char *pg)             child positions of an interior page
//   int32_t child(const char *pg, int i)     page of child position i
//   static constexpr bool kInteriorEntries   interior items are entries of
//                                            their own (B-tree) or only
//                                            guides to the leaves (B+-tree)
// and a path (t, depth, tl). After a successful move t[tl] names the entry
// reached. A page met below the root with no entries is damage (-206), as
// is a descent deeper than the path.

template <class F>
int _DBPathPush(F &f, DBTREE *t, int16_t depth, int16_t &tl, int32_t page, char **pg, int at_root) {
    if (tl + 1 >= depth) return DBE_CORRUPT;
    const int rc = f.read(page, pg);
    if (rc != 0) return rc;
    if (!at_root && f.count(*pg) == 0 && (F::kInteriorEntries || f.leaf(*pg))) return DBE_CORRUPT;
    tl++;
    t[tl].current_page_number = page;
    t[tl].i = 0;
    return 0;
}

// Descend from `page` to the leftmost (last = false) or rightmost entry of
// its subtree, pushing each page below level tl.
template <class F>
int _DBPathDescend(F &f, DBTREE *t, int16_t depth, int16_t &tl, int32_t page, bool last) {
    char *pg = nullptr;
    int rc = _DBPathPush(f, t, depth, tl, page, &pg, tl < 0);
    while (rc == 0) {
        if (f.leaf(pg)) {
            const int n = f.count(pg);
            if (n == 0) return tl == 0 ? DBW_EMPTY : DBE_CORRUPT;
            t[tl].i = static_cast<int16_t>(last ? n - 1 : 0);
            return 0;
        }
        const int c = f.children(pg);
        if (c <= 0) return DBE_CORRUPT;
        t[tl].i = static_cast<int16_t>(last ? c - 1 : 0);
        rc = _DBPathPush(f, t, depth, tl, f.child(pg, t[tl].i), &pg, 0);
    }
    return rc;
}

// First or last entry of the tree at `root`: 0, 202 for an empty tree.
template <class F>
int _DBPathEnd(F &f, DBTREE *t, int16_t depth, int16_t &tl, int32_t root, bool last) {
    tl = -1;
    const int rc = _DBPathDescend(f, t, depth, tl, root, last);
    if (rc != 0) tl = -1;
    return rc;
}

// Step to the next (forward) or previous entry. With no position the step
// goes to the first (last) entry. Running off the end leaves the position on
// the last (first) entry and returns 203.
template <class F>
int _DBPathStep(F &f, DBTREE *t, int16_t depth, int16_t &tl, int32_t root, bool forward) {
    if (tl < 0) return _DBPathEnd(f, t, depth, tl, root, !forward);
    char *pg = nullptr;
    int rc = f.read(t[tl].current_page_number, &pg);
    if (rc != 0) return rc;
    if (!f.leaf(pg)) {
        // On an interior entry (B-tree): its neighbour is the nearest entry of
        // the subtree beside it.
        if (forward) t[tl].i++;
        return _DBPathDescend(f, t, depth, tl, f.child(pg, t[tl].i), !forward);
    }
    if (forward ? t[tl].i + 1 < f.count(pg) : t[tl].i > 0) {
        t[tl].i = static_cast<int16_t>(t[tl].i + (forward ? 1 : -1));
        return 0;
    }
    // Climb until a level has something beside the child we came from.
    for (int16_t lv = static_cast<int16_t>(tl - 1); lv >= 0; lv--) {
        if ((rc = f.read(t[lv].current_page_number, &pg)) != 0) return rc;
        const int q = t[lv].i;
        if (F::kInteriorEntries) {
            // The separator beside child q: item q after it, item q-1 before.
            if (forward ? q < f.count(pg) : q > 0) {
                if (!forward) t[lv].i--;
                tl = lv;
                return 0;
            }
        } else if (forward ? q + 1 < f.children(pg) : q > 0) {
            t[lv].i = static_cast<int16_t>(q + (forward ? 1 : -1));
            tl = lv;
            return _DBPathDescend(f, t, depth, tl, f.child(pg, t[lv].i), !forward);
        }
    }
    rc = _DBPathEnd(f, t, depth, tl, root, forward);
    return rc != 0 ? rc : DBW_NOMOREKEYS;
}

// Where the entry at the path lies in the tree, as a share of `whole`: each
// level weighs its position by the share of the tree one of its child
// positions covers. *at is the share for the entry; *top what it would be
// for the last position of every page on this path, so that at / top runs
// from 0 at the first entry to 1 at the last.
template <class F>
int _DBPathFraction(F &f, const DBTREE *t, int16_t tl, double whole, double *at, double *top) {
    double span = whole, sum = 0.0, last = 0.0;
    for (int lv = 0; lv <= tl; lv++) {
        char *pg = nullptr;
        const int rc = f.read(t[lv].current_page_number, &pg);
        if (rc != 0) return rc;
        const int m = f.leaf(pg) ? f.count(pg) : f.children(pg);
        if (m <= 0) return DBE_CORRUPT;
        span /= m;
        sum += t[lv].i * span;
        last += (m - 1) * span;
    }
    *at = sum;
    *top = last;
    return 0;
}

// Descend from the root choosing at each level the child position at
// `percent` of the page, carrying the remainder down (integer arithmetic,
// the classic rule). Ends on a leaf entry.
template <class F>
int _DBPathAtPercent(F &f, DBTREE *t, int16_t depth, int16_t &tl, int32_t root, int percent) {
    if (percent < 0) percent = 0;
    if (percent > 100) percent = 100;
    tl = -1;
    char *pg = nullptr;
    int rc = _DBPathPush(f, t, depth, tl, root, &pg, 1);
    while (rc == 0) {
        if (f.leaf(pg)) {
            const int n = f.count(pg);
            if (n == 0) {
                const int empty = tl == 0 ? DBW_EMPTY : DBE_CORRUPT;
                tl = -1;
                return empty;
            }
            int i = n * percent / 100;
            if (i >= n) i = n - 1;
            t[tl].i = static_cast<int16_t>(i);
            return 0;
        }
        const int m = f.children(pg);
        if (m <= 0) return DBE_CORRUPT;
        int i = m * percent / 100;
        if (i >= m) i = m - 1;
        percent = (m * (100 * percent - (10000 * i) / m)) / 100;
        if (percent < 0) percent = 0;
        if (percent > 100) percent = 100;
        t[tl].i = static_cast<int16_t>(i);
        rc = _DBPathPush(f, t, depth, tl, f.child(pg, i), &pg, 0);
    }
    tl = -1;
    return rc;
}

// ---------------------------------------------------------------------------
// Bulk build: sorting keys, writing pages
// ---------------------------------------------------------------------------

// Memory the sorter may hold before it spills sorted runs to the temporary
// file. The formats were born with a 65,000-byte sort buffer; sorting in
// memory gives the same file, so the default is far larger. Tests lower it
// to exercise the spill path.
extern size_t DBsort_budget;

// Sorts fixed-length items (a key followed by its record number, 4 bytes
// big-endian, so that byte order is key order and then record order) and
// hands them back in order. Runs that do not fit the budget are sorted and
// written to "<dir>STKS<n>.TMP" beside the index (the first n whose file
// does not exist) and merged; the file is removed when the sorter goes.
class DBKeySorter {
public:
    DBKeySorter() = default;
    DBKeySorter(const DBKeySorter &) = delete;
    DBKeySorter &operator=(const DBKeySorter &) = delete;
    ~DBKeySorter() { close(); }

    // itemlen: bytes per item; unique_len: when above 0, of items whose first
    // unique_len bytes are equal only the first (lowest record) is handed
    // back; index: the index file's name (for the temporary file's folder).
    int open(int itemlen, int unique_len, const char *index);
    // About this many items will come (the table's record count): the
    // memory for them, within the budget, is taken at once.
    int reserve(int64_t items);
    // Copy one item in.
    int add(const void *item);
    // No more items: prepare to hand them back.
    int finish();
    // The next item in order: 0 with *item pointing at it (valid until the
    // next call), 203 after the last.
    int next(const char **item);
    // Items added (before duplicates are dropped).
    int64_t added() const { return added_; }
    // Whether a run was spilled to the temporary file.
    bool spilled() const { return runs_ > 0; }
    void close();

private:
    struct Ref {
        uint64_t pfx;     // the item's first 8 bytes, big-endian
        const char *p;
    };
    struct Run {
        int32_t at;       // file offset of the next unread item
        int32_t left;     // items still on file
        char *buf;        // read buffer
        int32_t cap;      // items it holds
        int32_t have;     // items in it
        int32_t pos;      // next item in it
    };
    int spill();
    int sortMemory();
    int refill(int r);
    bool less(const char *a, const char *b) const;
    int nextRaw(const char **item);

    int il_ = 0, ul_ = 0;
    char *arena_ = nullptr;
    Ref *refs_ = nullptr;
    int32_t capItems_ = 0, arenaItems_ = 0, count_ = 0, pos_ = 0;
    int64_t added_ = 0;
    int fd_ = -1;
    char name_[600] = {};
    int32_t fileEnd_ = 0;
    Run *run_ = nullptr;
    int runs_ = 0, runCap_ = 0;
    int *heap_ = nullptr;
    int heapN_ = 0;
    bool merging_ = false;
    int pending_ = -1;        // run whose current item was handed out last
    char last_[520] = {};
    bool haveLast_ = false;
};

// Call each(recno, ctx) for every record of the table, in order, with the
// record in the table's record buffer as its current record (where the key
// evaluator reads its fields). Changes waiting in the table's cache are
// written first. The record buffer and the current record are put back
// afterwards. Stops at the first nonzero result of each, and returns it.
int _DBScanTable(int32_t table, int (*each)(int32_t recno, void *ctx), void *ctx);

// Writes pages of a new index: consecutive pages are gathered in one buffer
// and written with one call; any other page is written on its own.
class DBPageWriter {
public:
    DBPageWriter() = default;
    DBPageWriter(const DBPageWriter &) = delete;
    DBPageWriter &operator=(const DBPageWriter &) = delete;
    ~DBPageWriter();
    int open(int fd, int pagesize, int pages);
    int put(int32_t off, const void *page);
    int flush();

private:
    int fd_ = -1, ps_ = 0, cap_ = 0, n_ = 0;
    int32_t at_ = 0;
    char *buf_ = nullptr;
};

// ---------------------------------------------------------------------------
// Whole-tree checker
// ---------------------------------------------------------------------------

// What a check found (the public DBINDEXCHECK): the first problem in words,
// and the tree's figures.
typedef DBINDEXCHECK DBTREECHECK;

// A set of page numbers (one bit each) for the checker.
class DBPageSet {
public:
    ~DBPageSet() { if (bits_) DBFreeMemory(bits_, "rdd/xbase/btree", 0); }
    int open(int32_t pages);
    // Adds page i; false when it was there already.
    bool add(int32_t i) {
        if (i < 0 || i >= n_) return false;
        uint8_t &b = bits_[i >> 3];
        const uint8_t m = static_cast<uint8_t>(1u << (i & 7));
        if (b & m) return false;
        b |= m;
        return true;
    }
    bool has(int32_t i) const { return i >= 0 && i < n_ && (bits_[i >> 3] & (1u << (i & 7))); }

private:
    uint8_t *bits_ = nullptr;
    int32_t n_ = 0;
};

int _DBCheckFail(DBTREECHECK &r, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

template <class F>
bool _DBPageOk(const F &f, int32_t page) {
    return page >= f.pagesize && page < f.limit && page % f.pagesize == 0;
}

// The structural walk, for any family. The family object offers, besides the
// path interface above:
//   int32_t pagesize, limit, root
//   int node(const char *pg, bool root, char *why)   0 when the page's own
//       fields are sound (counts, offsets, encodings), else nonzero with a
//       reason in why (<= 100 bytes)
//   int minimum(bool root, bool leaf)                least entries a page may hold
//       (the family decides how strict: other producers leave the pages at
//       the right edge of a bulk-built tree short)
//   int compare(const char *a, const char *b)        key order of entry keys
//   int entry(const char *pg, int i, char *key, int32_t *recno)   key of entry i
//   bool unique
//   int32_t nextFree(int32_t page, int *rc)          the free list: first page
//       for page 0, the next page after `page`, 0 or -1 at the end
//   int edge(int32_t parent, int i, int32_t page, char *why)   0 when child
//       position i of page `parent` agrees with the child `page` (separator
//       keys, sibling links), else nonzero with a reason
// Every page is visited once (a page reached twice is damage), all leaves
// lie at one depth, and the entries, taken in order through the path moves,
// rise (strictly in a unique tree; for equal keys by record number when
// `recno_order`).
template <class F>
int _DBCheckTree(F &f, DBTREECHECK &r, bool recno_order) {
    std::memset(&r, 0, sizeof r);
    DBPageSet seen;
    const int32_t npages = f.limit / f.pagesize + 1;
    if (seen.open(npages) != 0) return DBE_NOMEMORY;
    // Depth-first walk with an explicit stack of (page, level).
    struct Item { int32_t page; int32_t parent; int16_t level; int16_t at; };
    DBOwned<Item> stack;
    const int32_t cap = npages + 8;
    if (stack.alloc(static_cast<size_t>(cap), "rdd/xbase/btree", __LINE__) != 0) return DBE_NOMEMORY;
    int32_t sp = 0;
    stack[sp++] = {f.root, 0, 0, 0};
    int leafLevel = -1;
    char why[128];
    while (sp > 0) {
        const Item it = stack[--sp];
        if (!_DBPageOk(f, it.page)) return _DBCheckFail(r, "page %ld is not a page of the file", (long)it.page);
        if (!seen.add(it.page / f.pagesize)) return _DBCheckFail(r, "page %ld is reached twice", (long)it.page);
        char *pg = nullptr;
        int rc = f.read(it.page, &pg);
        if (rc != 0) return _DBCheckFail(r, "page %ld cannot be read (%d)", (long)it.page, rc);
        why[0] = 0;
        if (f.node(pg, it.level == 0, why) != 0) return _DBCheckFail(r, "page %ld: %s", (long)it.page, why);
        if (it.level > 0) {
            // The edge check may fetch other pages: fetch this one again after.
            if (f.edge(it.parent, it.at, it.page, why) != 0) return _DBCheckFail(r, "page %ld: %s", (long)it.page, why);
            if ((rc = f.read(it.page, &pg)) != 0) return _DBCheckFail(r, "page %ld cannot be read (%d)", (long)it.page, rc);
        }
        r.pages++;
        if (it.level + 1 > r.height) r.height = it.level + 1;
        const bool lf = f.leaf(pg);
        const int n = f.count(pg);
        if (n < f.minimum(it.level == 0, lf))
            return _DBCheckFail(r, "page %ld holds %d entries, fewer than %d", (long)it.page, n, f.minimum(it.level == 0, lf));
        if (lf) {
            if (leafLevel < 0) leafLevel = it.level;
            if (leafLevel != it.level) return _DBCheckFail(r, "leaves at levels %d and %d", leafLevel, it.level);
            continue;
        }
        const int c = f.children(pg);
        for (int i = c - 1; i >= 0; i--) {
            if (sp >= cap) return _DBCheckFail(r, "more child pointers than pages");
            stack[sp++] = {f.child(pg, i), it.page, static_cast<int16_t>(it.level + 1), static_cast<int16_t>(i)};
        }
    }
    // The free list: pages outside the tree, each once.
    int rc = 0;
    for (int32_t p = f.nextFree(0, &rc); p != 0 && p != -1; p = f.nextFree(p, &rc)) {
        if (rc != 0) return _DBCheckFail(r, "free page %ld cannot be read (%d)", (long)p, rc);
        if (!_DBPageOk(f, p)) return _DBCheckFail(r, "free list names %ld, not a page of the file", (long)p);
        if (seen.has(p / f.pagesize)) return _DBCheckFail(r, "page %ld is both in use and free, or the free list loops", (long)p);
        seen.add(p / f.pagesize);
        r.free++;
    }
    if (rc != 0) return _DBCheckFail(r, "free list cannot be read (%d)", rc);
    // Entries in order.
    DBOwned<DBTREE> t;
    const int16_t depth = static_cast<int16_t>(r.height + 1);
    if (t.alloc(static_cast<size_t>(depth), "rdd/xbase/btree", __LINE__) != 0) return DBE_NOMEMORY;
    int16_t tl = -1;
    char prev[520], key[520];
    int32_t prevRec = 0, rec = 0;
    rc = _DBPathEnd(f, t.get(), depth, tl, f.root, false);
    if (rc == DBW_EMPTY) return 0;
    while (rc == 0) {
        char *pg = nullptr;
        if ((rc = f.read(t[tl].current_page_number, &pg)) != 0) break;
        if ((rc = f.entry(pg, t[tl].i, key, &rec)) != 0) break;
        if (r.keys > 0) {
            const int c = f.compare(prev, key);
            if (c > 0) return _DBCheckFail(r, "entry %ld (record %ld) sorts before the one ahead of it", (long)r.keys, (long)rec);
            if (c == 0 && f.unique) return _DBCheckFail(r, "entry %ld (record %ld) repeats a key of a unique index", (long)r.keys, (long)rec);
            if (c == 0 && recno_order && static_cast<uint32_t>(rec) <= static_cast<uint32_t>(prevRec))
                return _DBCheckFail(r, "equal keys out of record order at record %ld", (long)rec);
        }
        std::memcpy(prev, key, sizeof prev);
        prevRec = rec;
        r.keys++;
        if (static_cast<int64_t>(r.keys) > static_cast<int64_t>(r.pages) * 1024) return _DBCheckFail(r, "more entries than the pages can hold");
        rc = _DBPathStep(f, t.get(), depth, tl, f.root, true);
    }
    if (rc != DBW_NOMOREKEYS) return _DBCheckFail(r, "walking the entries failed (%d)", rc);
    return 0;
}

