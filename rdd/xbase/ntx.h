// ntx.h - NTX index files, the single-key B-tree of Clipper (and Harbour's
// DBFNTX driver): the packet, the page layout and the internal entry points
// the c* files share.
//
// The file is a sequence of 1024-byte blocks; every integer is little-endian.
// A page is named by its byte offset (a multiple of 1024, never below 1024).
//
// Block 0, the header (280 bytes used, the rest zero):
//
//     off size field                 meaning
//       0   2  sign                  6
//       2   2  version               change counter: +1 each time dirty pages
//                                    are flushed
//       4   4  r                     offset of the root page
//       8   4  ff                    offset of the first free page, 0 = none
//      12   2  key_item_len          k + 8
//      14   2  k                     key length, 1..200
//      16   2  key_dec               decimals of a numeric key
//      18   2  max_number_keys_page  ((1020 / (k + 10)) - 1) with bit 0
//                                    cleared; 1020 / (k + 10) is also read
//      20   2  mnk                   max / 2: least keys of a non-root page
//      22 256  e                     key expression, NUL-terminated
//     278   2  u                     bit 0: unique index
//
// A page (m = max_number_keys_page, L = key_item_len):
//
//     0          2          n, the keys in the page
//     2          2 x (m+1)  offsets: entry i is where, inside the page, the
//                           slot of the i-th key in key order starts
//     2m+4       L x (m+1)  slots: child page (4, 0 in a leaf), record
//                           number (4), key (k bytes)
//
// Slots never move: inserting or removing a key shifts the 2-byte offsets,
// so the offsets are always a permutation of the m+1 slot positions. The
// slot at offset position n carries only the rightmost child pointer of an
// interior page. A page fresh from formatting has n = 0 and offset i =
// 2m + 4 + i x L.
//
// This is a B-tree, not a B+-tree: a key in an interior page is an entry of
// its own (with its record number), not a copy of a leaf key. Child i of an
// interior page holds the keys below key i; the rightmost child (position n)
// those above key n-1.
//
// A free page keeps the offset of the next free page in its first 4 bytes
// (over n and the first offset), 0 ending the chain at header ff.
//
// Locks (one byte each): the write lock at 1,000,000,000 (exclusive), the
// read lock at 2,147,483,647 (shared), the bytes Clipper and Harbour use.
#pragma once

#include "btclip.h"
#include "dbf.h"

constexpr int DBNTXPAGE = 1024;
constexpr int32_t DBNTX_WLOCK = 1000000000;
constexpr int32_t DBNTX_RLOCK = 2147483647;

// The header as held in memory (host order; read and written field by field).
struct DBNTXHDR {
    uint16_t sign;
    uint16_t version;
    int32_t r;
    int32_t ff;
    uint16_t key_item_len;
    uint16_t k;
    uint16_t key_dec;
    uint16_t max_number_keys_page;
    uint16_t mnk;
    char e[256];
    uint16_t u;
};

// The current key of a shared, write-through index, kept so that the next
// relative move can find its place again after the cached pages were
// dropped.
struct DBKEYS {
    int32_t r;   // record number, 0 = none
    char *k;     // key, k + 1 bytes
};

// Type 7 packet: an open NTX index.
struct DBNTXPKT {
    DBPKTHDR ph;
    int32_t fs;        // file length
    DBNTXHDR h;
    DBPAGECACHE pc;    // cp, np, cs, pl
    DBPAGEMAP map;     // view of an exclusively opened file
    DBTREE *t;         // descent path
    int16_t td;        // levels the path has room for
    DBKEYS ck;
    int16_t tl;        // level of the current key, -1 = none
    char u;            // 1 while a cached page is dirty
    // For each byte offset of a page, 1 + the slot that formatting puts
    // there, 0 where no slot starts: checks a page's offsets without a
    // division each.
    uint8_t grid[DBNTXPAGE];
};

extern DBNTXPKT *DBcli;

// Lock-state value of ph.ls while this process holds the index lock.
constexpr char DBNTX_LOCKED = 4;

// ---- Pages -----------------------------------------------------------------

inline int _DBclCount(const char *pg) { return _DBLoadLE16(pg); }
inline void _DBclSetCount(char *pg, int n) { _DBStoreLE16(pg, static_cast<uint16_t>(n)); }
inline int _DBclOffset(const char *pg, int i) { return _DBLoadLE16(pg + 2 + 2 * i); }
inline void _DBclSetOffset(char *pg, int i, int off) { _DBStoreLE16(pg + 2 + 2 * i, static_cast<uint16_t>(off)); }
// The slot holding the i-th key (or, at i = n, the rightmost child).
inline char *_DBclItem(char *pg, int i) { return pg + _DBclOffset(pg, i); }
inline const char *_DBclItem(const char *pg, int i) { return pg + _DBclOffset(pg, i); }
inline int32_t _DBclChild(const char *pg, int i) { return static_cast<int32_t>(_DBLoadLE32(_DBclItem(pg, i))); }
inline int32_t _DBclRecno(const char *pg, int i) { return static_cast<int32_t>(_DBLoadLE32(_DBclItem(pg, i) + 4)); }
inline const char *_DBclKey(const char *pg, int i) { return _DBclItem(pg, i) + 8; }
inline bool _DBclLeaf(const char *pg) { return _DBclChild(pg, 0) == 0; }

// Format a page: no keys, the offsets in slot order.
void _DBclFormatPage(char *pg, const DBNTXHDR &h);
// Whether a page read from the file can be worked on: a key count within the
// page and offsets that name distinct slots inside it. pkt: the DBNTXPKT.
bool _DBclSoundPage(const char *pg, const void *pkt);

// ---- The packet --------------------------------------------------------------

// Resolve an index handle into DBcli: -213 unless the slot holds an open NTX.
int _DBclLockIndexStruc(int handle);

// The file as the page cache sees it for DBcli.
DBPAGEFILE _DBclPageFile();
// Fetch a page through the cache; *pg is the buffer (valid until the next
// fetch unless pinned). -204 for a bad offset, -206 for a damaged page.
int _DBclReadPage(int32_t page, char **pg);
// A page of the cache was changed: defer it, or write it now on a
// write-through index (dropping it when shared and unlocked).
int _DBclWritePage(int32_t page);
// Put a whole page (a working copy) back through the cache, then as
// _DBclWritePage.
int _DBclStorePage(int32_t page, const char *data);
// Reread version, root, free list and the file length.
int _DBclGetIndexHeader();
// Write version and root (6 bytes at 2), for write-through changes.
int _DBclWriteRoot();

// The tree as the toolkit's path moves see it.
struct DBNTXTREE {
    static constexpr bool kInteriorEntries = true;
    int read(int32_t page, char **pg) { return _DBclReadPage(page, pg); }
    int count(const char *pg) const { return _DBclCount(pg); }
    bool leaf(const char *pg) const { return _DBclLeaf(pg); }
    int children(const char *pg) const { return _DBclCount(pg) + 1; }
    int32_t child(const char *pg, int i) const { return _DBclChild(pg, i); }
};

// ---- Keys and moves (DBcli) -----------------------------------------------

// No sound index holds more entries than its pages have room for: a walk
// that goes on longer is going round a damaged tree.
int64_t _DBclWalkLimit();
// Copy the entry at the current position into key (k bytes and a NUL) and
// *recno.
int _DBclCurrentEntry(char *key, int32_t *recno);
// The search of every mode; mode 2 matches the record number too.
int _DBclKeySearch(char *key, int32_t *recno, int mode);
// The key of table's current record, in key form, into key (k + 1 bytes).
int _DBclMakeKeyInto(int32_t table, char *key);
// Take the spare pages of a failed or finished change: a new page from the
// free list or the end of the file.
int _DBclNewPage(int32_t *page);
// Put a page on the free list.
int _DBclMarkPage(int32_t page);
// Move `count` offsets of a page from position `from` to `to`, putting the
// displaced ones in the gap, so no slot is lost.
void _DBclMoveOffsets(char *pg, int to, int from, int count);
// One-key rotation between a deficient page and its sibling through their
// parent (the delete path's, reused by the bulk build to even out the right
// edge). left: the sibling is the left one.
int _DBclRotate(int32_t parent, int ppos, int32_t page, int32_t sibling, bool left);

// A working copy of a page: changes are made here and put back whole with
// _DBclStorePage, so that holding several pages never depends on how many
// the cache can keep.
struct DBNTXWORK {
    int32_t at;
    char b[DBNTXPAGE];
};
int _DBclLoad(DBNTXWORK &w, int32_t page);
inline int _DBclSave(const DBNTXWORK &w) { return _DBclStorePage(w.at, w.b); }
// Fill slot position i: child, record number and key.
void _DBclSetItem(char *pg, int i, int32_t child, int32_t recno, const char *key, int k);
inline void _DBclSetChild(char *pg, int i, int32_t child) { _DBStoreLE32(_DBclItem(pg, i), static_cast<uint32_t>(child)); }
// Remove position p: its slot becomes the spare at position m.
void _DBclRemoveAt(char *pg, int p, int m);

// Check the whole tree of DBcli: structure, free list, order.
int _DBclCheck(DBTREECHECK &r, bool strict);

// The family as the shared code of btclip.h sees it.
struct DBNTXFAM {
    using Pkt = DBNTXPKT;
    using Tree = DBNTXTREE;
    static constexpr int32_t kWriteLock = DBNTX_WLOCK;
    static constexpr int32_t kReadLock = DBNTX_RLOCK;
    static constexpr char kLocked = DBNTX_LOCKED;
    static constexpr int kType = DBPT_NTX;
    static constexpr int kPage = DBNTXPAGE;
    static int close(int handle) { return DBclCloseIndex(handle); }
    static void releaseOwn(Pkt *) {}
    static constexpr bool kNoPlaceNotFound = true;
    static Pkt *&pkt() { return DBcli; }
    static int resolve(int handle) { return _DBclLockIndexStruc(handle); }
    static int readHeader() { return _DBclGetIndexHeader(); }
    static int writeHeader();
    static DBPAGEFILE pages() { return _DBclPageFile(); }
    static int32_t root() { return DBcli->h.r; }
    static int current(char *key, int32_t *recno) { return _DBclCurrentEntry(key, recno); }
    static int search(char *key, int32_t *recno, int mode) { return _DBclKeySearch(key, recno, mode); }
    static bool same(const char *a, const char *b) { return std::memcmp(a, b, DBcli->h.k) == 0; }
    static int64_t walkLimit() { return _DBclWalkLimit(); }
    static int refind(char *key, int32_t *recno) { return _DBclKeySearch(key, recno, 2); }
    static size_t keyBytes(const char *key) { return strnlen(key, DBcli->h.k); }
};
using DBNTXAUTOLOCK = DBClipAutoLock<DBNTXFAM>;

// The names the family's files call; the code is btclip.h's.
inline int _DBclLockIndex() { return _DBClipLock<DBNTXFAM>(0); }
inline int _DBclUnLockIndex() { return _DBClipUnlock<DBNTXFAM>(); }
// Dirty pages, then the header's version, root and free list.
inline int _DBclFlushIndex() { return _DBClipFlush<DBNTXFAM>(); }
inline void _DBclClearPageBuffer() { _DBClipForget<DBNTXFAM>(); }
inline int _DBclRefresh() { return _DBClipRefresh<DBNTXFAM>(); }
inline int _DBclSettle(int rc, const char *key, int32_t recno) { return _DBClipSettle<DBNTXFAM>(rc, key, recno); }
inline int _DBclChanged(int rc) { return _DBClipChanged<DBNTXFAM>(rc); }
