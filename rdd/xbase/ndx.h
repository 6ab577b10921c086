// ndx.h - NDX index files, the single-key B+-tree of dBASE III: the packet,
// the block layout and the internal entry points the n* files share.
//
// The file is a sequence of 512-byte blocks addressed by block number; every
// integer is little-endian. The toolkit addresses pages by byte offset, so
// the family converts at its boundary: block b lies at offset b x 512.
//
// Block 0, the header:
//
//     off size field  meaning
//       0   4  r      block number of the root node
//       4   4  nb     blocks in the file: the next block to use
//       8   4  -      0 (other writers keep a key count here; ignored)
//      12   2  k      key length: 1..100 when we create a file (up to 244
//                     read); 8 for numeric and date keys
//      14   2  m      maximum keys per node = (512 - 8) / il
//      16   2  type   0 character keys, 1 numeric or date keys
//      18   2  il     item length = k + 8 rounded up to a multiple of 4
//      20   3  -      0 (other writers keep a type letter at 9, 0x1B at 11
//                     and a change counter at 20: all ignored on reading)
//      23   1  u      1 = unique index
//      24 488  e      key expression, NUL-terminated
//
// Every byte not named above is 0 in the files we write.
//
// A node (any block but 0):
//
//     0          4         n, the keys in the node
//     4          il x n    items: left child block (4, 0 in a leaf), record
//                          number (4, 0 in an interior node), key (k bytes,
//                          a character key padded with blanks; the bytes
//                          from 8 + k to il are 0)
//     4 + il x n 4         interior nodes only: the child after the last
//                          key (item slot n, of which only the child is used)
//
// This is a B+-tree: every entry lives in a leaf; an interior node holds n
// keys and n + 1 children, and its key i is the greatest key of child i's
// subtree (so the keys below it and equal to it are found there; equal keys
// of a non-unique index may continue in child i + 1). The last child has no
// key of its own: its greatest key is the node's, which the parent holds.
// The bytes of a node past its last item (and past the last child pointer)
// are 0 in the nodes we write.
//
// Keys: character keys compare as unsigned bytes; numeric keys are 8-byte
// IEEE doubles, little-endian, compared as numbers; date keys are the date's
// Julian day number (2451545 for 1 January 2000) as such a double. An empty
// date is day 0.
//
// No free list: the header has no room for one. A node that loses its last
// key is unlinked from its parent and its block zeroed; the open index keeps
// such blocks in memory and reuses them for its next splits, and blocks
// still unused at close stay in the file, unreachable, until the index is
// built again.
//
// Locks (one byte each), the same bytes as NTX: the write lock at
// 1,000,000,000 (exclusive), the read lock at 2,147,483,647 (shared).
#pragma once

#include "btclip.h"
#include "dbf.h"

constexpr int DBNDXBLOCK = 512;
constexpr int32_t DBNDX_WLOCK = 1000000000;
constexpr int32_t DBNDX_RLOCK = 2147483647;
constexpr int DBNDX_MAXKEY = 244;     // the longest key a node of two items holds
constexpr int DBNDX_CREATEKEY = 100;  // the longest character key dBASE III makes
constexpr int DBNDX_EXPR = 488;       // expression bytes with the NUL

// The header as held in memory (host order).
struct DBNDXHDR {
    int32_t r;        // root block
    int32_t nb;       // blocks in the file, as the header says
    uint16_t k;       // key length
    uint16_t m;       // maximum keys per node
    uint16_t type;    // 0 character, 1 numeric or date
    uint16_t il;      // item length
    uint8_t u;        // 1 unique
    char e[DBNDX_EXPR];
};

// The current key of a shared index, kept so that the next relative move
// can find its place again after the cached pages were forgotten.
struct DBNDXKEYS {
    int32_t r;   // record number, 0 = none
    char *k;     // key, k + 1 bytes
};

// Type 2 packet: an open NDX index.
struct DBNDXPKT {
    DBPKTHDR ph;
    int32_t fs;        // file length
    DBNDXHDR h;
    DBPAGECACHE pc;
    DBTREE *t;         // descent path; positions are byte offsets of nodes
    int16_t td;        // levels the path has room for
    DBNDXKEYS ck;
    int16_t tl;        // level of the current key, -1 = none
    char u;            // 1 while a cached page or the header is dirty
    int32_t *fl;       // blocks emptied while open, for reuse
    int32_t fln, flc;  // blocks on it, room for
    DBPAGEMAP map;     // view of a file opened exclusively
};

extern DBNDXPKT *DBd3i;

constexpr char DBNDX_LOCKED = 4;

// ---- Nodes -------------------------------------------------------------------

inline int32_t _DBd3Count(const char *pg) { return static_cast<int32_t>(_DBLoadLE32(pg)); }
inline void _DBd3SetCount(char *pg, int n) { _DBStoreLE32(pg, static_cast<uint32_t>(n)); }
inline char *_DBd3Item(char *pg, int i, int il) { return pg + 4 + i * il; }
inline const char *_DBd3Item(const char *pg, int i, int il) { return pg + 4 + i * il; }
inline int32_t _DBd3ChildBlock(const char *pg, int i, int il) { return static_cast<int32_t>(_DBLoadLE32(_DBd3Item(pg, i, il))); }
inline int32_t _DBd3Recno(const char *pg, int i, int il) { return static_cast<int32_t>(_DBLoadLE32(_DBd3Item(pg, i, il) + 4)); }
inline const char *_DBd3Key(const char *pg, int i, int il) { return _DBd3Item(pg, i, il) + 8; }
inline bool _DBd3Leaf(const char *pg, int il) { return _DBd3ChildBlock(pg, 0, il) == 0; }
// Block number to byte offset; a block no file of 2 GiB can hold becomes an
// offset the cache refuses (-204).
inline int32_t _DBd3Offset(uint32_t block) {
    return block == 0 || block > static_cast<uint32_t>(INT32_MAX / DBNDXBLOCK) ? -1 : static_cast<int32_t>(block) * DBNDXBLOCK;
}
inline int32_t _DBd3Block(int32_t offset) { return offset / DBNDXBLOCK; }

// Whether a node read from the file can be worked on: a key count whose
// items (and last child) fit in the block.
bool _DBd3SoundPage(const char *pg, const void *hdr);
// Fill item slot i.
void _DBd3SetItem(char *pg, int i, const DBNDXHDR &h, int32_t child, int32_t recno, const char *key);
// Zero the bytes of a node past what its count uses (and the record numbers
// and unused key of an interior node's last slot), as the layout wants.
void _DBd3Tidy(char *pg, const DBNDXHDR &h);

// ---- Keys --------------------------------------------------------------------

// Key order: unsigned bytes over len for character keys; numbers for numeric
// keys (len is ignored).
int _DBd3Compare(const DBNDXHDR &h, const char *a, const char *b, size_t len);
// A double as 8 bytes whose unsigned byte order is numeric order (for the
// bulk build's sorter), and back. -0 is taken as +0.
void _DBd3OrderBytes(char *out, const char *le);
void _DBd3FromOrderBytes(char *le, const char *ord);
// Store a double as a key (8 bytes little-endian, -0 as +0).
void _DBd3PutDouble(char *key, double v);
double _DBd3GetDouble(const char *key);
// Julian day numbers of the proleptic Gregorian calendar.
int32_t _DBd3JulianDay(int y, int m, int d);
void _DBd3JulianToDate(int32_t j, int *y, int *m, int *d);

// ---- The packet --------------------------------------------------------------

int _DBd3LockIndexStruc(int handle);
DBPAGEFILE _DBd3PageFile();
// Fetch the node at byte offset `page` through the cache.
int _DBd3ReadPage(int32_t page, char **pg);
// Put a whole node (a working copy) back through the cache, and write it as
// the open mode wants: later, now, or now and forgotten.
int _DBd3StorePage(int32_t page, const char *data);
// Reread root, block count and file length; cached pages are forgotten
// unless they hold changes of ours (the header has no change counter, so
// any of them may be stale).
int _DBd3GetIndexHeader();
// Write root and block count (8 bytes at 0) now, for write-through changes,
// or mark them for the next flush.
int _DBd3HeaderChanged();

// The tree as the toolkit's path moves see it: a B+-tree whose interior
// nodes have n + 1 children.
struct DBNDXTREE {
    static constexpr bool kInteriorEntries = false;
    int read(int32_t page, char **pg) { return _DBd3ReadPage(page, pg); }
    int count(const char *pg) const { return _DBd3Count(pg); }
    bool leaf(const char *pg) const { return _DBd3Leaf(pg, DBd3i->h.il); }
    int children(const char *pg) const { return _DBd3Count(pg) + 1; }
    int32_t child(const char *pg, int i) const {
        return _DBd3Offset(static_cast<uint32_t>(_DBd3ChildBlock(pg, i, DBd3i->h.il)));
    }
};

// ---- Keys and moves (DBd3i) ------------------------------------------------

int64_t _DBd3WalkLimit();
int _DBd3CurrentEntry(char *key, int32_t *recno);
// The search every mode shares. len: bytes compared (character keys); mode
// 2 also matches the record number target. Leaves the position and the key
// and record reached in key / *recno.
int _DBd3Find(const char *sk, size_t len, int mode, int32_t target, char *key, int32_t *recno);
// The search of the public modes' base: prefix length from the key given.
int _DBd3KeySearch(char *key, int32_t *recno, int mode);
// The key of table's current record in key form (k bytes and a NUL).
int _DBd3MakeKeyInto(int32_t table, char *key);
// A block for a new node: one emptied earlier, else the end of the file.
int _DBd3NewBlock(int32_t *block);
// An emptied node: zeroed in the file, forgotten by the cache, kept for reuse.
int _DBd3FreeBlock(int32_t block);
// The key as the index stores it: character keys cut or blank-padded to k,
// numeric keys their 8 bytes.
void _DBd3StoredKey(const char *key, char *out);

// A working copy of a node. The slack past the block lets items shift by a
// whole slot when the last one is an interior node's 4-byte child pointer
// (whose slot would run past the block); only the block goes to the file.
constexpr int DBNDXWORKSIZE = DBNDXBLOCK + 256;
struct DBNDXWORK {
    int32_t at;  // byte offset
    char b[DBNDXWORKSIZE];
};
int _DBd3Load(DBNDXWORK &w, int32_t page);
int _DBd3Save(DBNDXWORK &w);


int _DBd3Check(DBTREECHECK &r, bool strict);

// The family as the shared code of btclip.h sees it.
struct DBNDXFAM {
    using Pkt = DBNDXPKT;
    using Tree = DBNDXTREE;
    static constexpr int32_t kWriteLock = DBNDX_WLOCK;
    static constexpr int32_t kReadLock = DBNDX_RLOCK;
    static constexpr char kLocked = DBNDX_LOCKED;
    static constexpr int kType = DBPT_NDX;
    static constexpr int kPage = DBNDXBLOCK;
    static int close(int handle) { return DBd3CloseIndex(handle); }
    // Blocks emptied while open.
    static void releaseOwn(Pkt *x) {
        if (x->fl) DBFreeMemory(x->fl, kClipSite.id, __LINE__);
    }
    static constexpr bool kNoPlaceNotFound = false;
    static Pkt *&pkt() { return DBd3i; }
    static int resolve(int handle) { return _DBd3LockIndexStruc(handle); }
    static int readHeader() { return _DBd3GetIndexHeader(); }
    static int writeHeader();
    static DBPAGEFILE pages() { return _DBd3PageFile(); }
    static int32_t root() { return _DBd3Offset(static_cast<uint32_t>(DBd3i->h.r)); }
    static int current(char *key, int32_t *recno) { return _DBd3CurrentEntry(key, recno); }
    static int search(char *key, int32_t *recno, int mode) { return _DBd3KeySearch(key, recno, mode); }
    static bool same(const char *a, const char *b) { return _DBd3Compare(DBd3i->h, a, b, DBd3i->h.k) == 0; }
    static int64_t walkLimit() { return _DBd3WalkLimit(); }
    static int refind(char *key, int32_t *recno) { return _DBd3Find(key, DBd3i->h.k, 2, *recno, key, recno); }
    // Numeric and date keys are 8 binary bytes, NULs included.
    static size_t keyBytes(const char *key) { return DBd3i->h.type == 1 ? 8 : strnlen(key, DBd3i->h.k); }
};
using DBNDXAUTOLOCK = DBClipAutoLock<DBNDXFAM>;

// The names the family's files call; the code is btclip.h's.
inline int _DBd3LockIndex() { return _DBClipLock<DBNDXFAM>(0); }
inline int _DBd3UnLockIndex() { return _DBClipUnlock<DBNDXFAM>(); }
// Dirty nodes, then root and block count.
inline int _DBd3FlushIndex() { return _DBClipFlush<DBNDXFAM>(); }
inline void _DBd3ClearPageBuffer() { _DBClipForget<DBNDXFAM>(); }
inline int _DBd3Refresh() { return _DBClipRefresh<DBNDXFAM>(); }
inline int _DBd3Settle(int rc, const char *key, int32_t recno) { return _DBClipSettle<DBNDXFAM>(rc, key, recno); }
inline int _DBd3Changed(int rc) { return _DBClipChanged<DBNDXFAM>(rc); }
