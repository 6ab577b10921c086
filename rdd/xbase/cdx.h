// cdx.h - CDX compound indexes and IDX single indexes (FoxPro, and Harbour's
// DBFCDX driver): the packet, the tag record, the page layouts and the
// internal entry points the o* files share.
//
// Every page is 512 bytes and is named by its byte offset (a multiple of
// 512, never 0). Integers are little-endian unless marked BE.
//
// Tag header at offset H (H = 0 for the directory of a CDX file and for the
// index of an IDX file; elsewhere for each tag of a CDX file):
//
//     off size field                          meaning
//       0   4  index_file_root_page_offset    root page
//       4   4  upt                            free-page list head (only the
//                                             header at 0 counts); 0 or -1 = none
//       8   4  number_of_pages_in_index_file  compact: change counter (BE),
//                                             kept at H = 0 only;
//                                             non-compact IDX: end of file
//      12   2  index_key_length               key length K, 1..200
//      14   1  unique_flag (options)          0x01 unique, 0x08 FOR expression,
//                                             0x20 compact, 0x40 compound,
//                                             0x80 the CDX directory
//      15   1  s                              signature (1)
//
// A file is compact when the options at H = 0 have any of 0xE0. A compact
// header is two pages; the rest of its first page and its expression pool:
//
//     H+502   2  ko     key order, 0 ascending, 1 descending (kept, not used)
//     H+504   2  epl    where the FOR expression starts in the pool (= kepl)
//     H+506   2  fepl   FOR expression length, its NUL included
//     H+508   2  u5     where the key expression starts (0)
//     H+510   2  kepl   key expression length, its NUL included
//     H+512   kepl      key expression
//     H+512+kepl fepl   FOR expression
//
// A non-compact IDX header is one page: the 16 bytes above, the key
// expression in 220 bytes at 16, the FOR expression from 236 on.
//
// Node frame, every node:
//
//     0   2  attributes: 0x01 root, 0x02 leaf
//     2   2  keys in the node (n)
//     4   4  left sibling, -1 none
//     8   4  right sibling, -1 none
//
// Interior items (all three kinds) and non-compact leaf items, item i at
// 12 + i x L:
//
//     compact interior:  key (K, padded with the fill)  record (4, BE)  child (4, BE)
//     non-compact:       key (K)                        record (leaf) or child (interior), 4, BE
//
// The tree is a B+-tree: every entry is in a leaf, and interior item i holds
// the last key (and, compact, its record) of child i's subtree. Entries run
// by key bytes (unsigned), then by record number, as FoxPro and Harbour
// keep them. Sibling pointers link each level from left to right.
//
// Compact leaf (CDX and compact IDX):
//
//     12   2  free bytes between the entry table and the key area
//     14   4  record-number mask (the R low bits set)
//     18   1  duplicate-count mask   (the D low bits set)
//     19   1  trailing-count mask    (the T low bits set)
//     20   1  R    21 1 D    22 1 T
//     23   1  B, bytes per entry (R + D + T <= 8 B)
//     24      entry table, entry i = B bytes at 24 + i x B, read as one
//             little-endian number V:
//               bits 0 .. R-1        record number
//               bits R .. R+D-1      duplicate count: bytes shared with
//                                    the key before (entry 0: with a key
//                                    of fill characters)
//               bits R+D .. R+D+T-1  trailing count: fill bytes at the end
//     ...     free
//    ..511    key area, filled from 511 down in entry order: entry i keeps
//             K - dup - trail bytes, the rest of its key comes from the
//             key before it and from the fill (' ' for character keys, 0
//             for the others)
//
// free = 488 - n x B - (sum of the stored lengths). A leaf can only be read
// from its first entry on; the tag remembers how far it decoded a page
// (DBCDXLEAF) for as long as the page's bytes stay the same.
//
// Free list: a free page holds the offset of the next free page in its
// first 4 bytes; the head is upt of the header at 0. All the tags of a file
// share it, while each tag caches its own pages: a page handed to the free
// list is written at once and leaves the cache of the tag that held it, so
// the tag that takes it next never meets a stale copy.
//
// Locks: one byte, 0x7FFFFFFE in compact files, 0x40000000 in non-compact
// IDX files; exclusive to change, shared to read.
#pragma once

#include "btree.h"

constexpr int DBCDXPAGE = 512;
constexpr int DBCDXTAGS = 128;
constexpr int DBCDXMAXKEY = 200;
constexpr int DBCDXEXPR = 220;
constexpr int32_t DBCDX_LOCKBYTE = 0x7FFFFFFE;
constexpr int32_t DBIDX_LOCKBYTE = 0x40000000;
constexpr uint8_t DBCDX_UNIQUE = 0x01;
constexpr uint8_t DBCDX_HASFOR = 0x08;
constexpr uint8_t DBCDX_COMPACT = 0x20;
constexpr uint8_t DBCDX_COMPOUND = 0x40;
constexpr uint8_t DBCDX_DIRECTORY = 0x80;
constexpr uint8_t DBCDX_COMPACTBITS = 0xE0;
constexpr int DBCDX_LEAFROOM = 488;   // bytes for entries and keys in a compact leaf
constexpr int DBCDX_MAXENTRIES = 490; // more than a leaf can hold (B >= 1)
// Lock-state value of ph.ls while this process holds the index lock.
constexpr char DBCDX_LOCKED = 4;

// The first 16 header bytes, in host order.
struct DBCDXHDR {
    int32_t index_file_root_page_offset;
    int32_t upt;
    uint32_t number_of_pages_in_index_file;
    uint16_t index_key_length;
    uint8_t unique_flag;
    uint8_t s;
};

// The current key of a shared tag, so that a relative move finds its place
// again after the cached pages were dropped.
struct DBCDXKEY {
    int32_t r;  // record number, 0 = none
    char *k;    // key, K + 1 bytes
};

// How far a compact leaf has been decoded: entries 0 .. n-1 are in keys
// (K bytes each) and recs. Valid while `raw` equals the page.
struct DBCDXLEAF {
    int32_t page;        // 0 = nothing decoded
    int16_t count;       // entries in the page
    int16_t n;           // entries decoded
    int16_t kt;          // where entry n-1's stored bytes begin
    int16_t cap;         // entries keys/recs have room for
    uint8_t B, R, D, T;
    uint32_t dmask, tmask;
    uint64_t rmask;
    char *keys;
    int32_t *recs;
    char raw[DBCDXPAGE + 8];  // the page, and zeros so an entry read never leaves it
};

// One open tag (or the directory, or an IDX file's index).
struct DBCDXTAG {
    uint32_t recnummask;            // mask of the last compact leaf decoded
    int32_t hdrofs;                 // H
    DBCDXHDR index_header;
    DBPAGECACHE cp;                 // cp, np, cs, pl
    DBTREE *page_tree_array;        // descent path
    int16_t td;                     // levels the path has room for
    DBCDXKEY ck;
    char *e;                        // key expression
    int16_t current_btree_page_level;  // -1: no position
    int16_t ko;
    int16_t offset_to_page_number_in_key_item;
    int16_t rno;
    char n[11];                     // tag name
    int16_t mk, mkl, max_number_keys_page;
    char index_modified;            // root changed since the last flush
    int16_t i;                      // item length
    char index_key_type;            // 'C', 'N', 'D', 'L', '?'
    char fc;                        // fill character
    char *for_expression;
    // Kept besides:
    int16_t k;                      // key length
    bool compact;
    bool stale;                     // the path may name pages changed since
                                    // it was taken: find the place by ck
    DBCDXLEAF lf;
};

// Types 8 (CDX) and 6 (IDX): an open CDX or IDX file.
struct DBCDXPKT {
    DBPKTHDR ph;
    int32_t ff;              // free list head
    int32_t file_size;
    DBCDXTAG *tt[DBCDXTAGS];
    int16_t tc;
    char index_modified;     // free list, counter or end of file to write
    char file_type;          // options at H = 0
    uint32_t cs;             // change counter
    DBPAGEMAP map;           // view of a file opened exclusively
};

extern DBCDXPKT *DBfpi;
extern DBCDXTAG *DBfpt;
extern char DBtagname[11];
extern int32_t qd_pageno;
extern int32_t qd_pagenos[512];
extern int g_logging;

inline bool _DBfpIsCompact(uint8_t options) { return (options & DBCDX_COMPACTBITS) != 0; }
inline int32_t _DBfpRoot(const DBCDXTAG *t) { return t->index_header.index_file_root_page_offset; }
inline bool _DBfpUnique(const DBCDXTAG *t) { return (t->index_header.unique_flag & DBCDX_UNIQUE) != 0; }
inline int _DBfpBitLen(uint32_t v) {
    int n = 0;
    while (v) {
        n++;
        v >>= 1;
    }
    return n;
}

// ---- Nodes ------------------------------------------------------------------

inline int _DBfpAttr(const char *pg) { return _DBLoadLE16(pg); }
inline int _DBfpCount(const char *pg) { return _DBLoadLE16(pg + 2); }
inline bool _DBfpLeaf(const char *pg) { return (_DBLoadLE16(pg) & 2) != 0; }
inline int32_t _DBfpLeft(const char *pg) { return static_cast<int32_t>(_DBLoadLE32(pg + 4)); }
inline int32_t _DBfpRight(const char *pg) { return static_cast<int32_t>(_DBLoadLE32(pg + 8)); }
inline void _DBfpSetCount(char *pg, int n) { _DBStoreLE16(pg + 2, static_cast<uint16_t>(n)); }
inline void _DBfpSetLeft(char *pg, int32_t p) { _DBStoreLE32(pg + 4, static_cast<uint32_t>(p)); }
inline void _DBfpSetRight(char *pg, int32_t p) { _DBStoreLE32(pg + 8, static_cast<uint32_t>(p)); }
inline const char *_DBfpItem(const DBCDXTAG *t, const char *pg, int i) { return pg + 12 + i * t->i; }
inline char *_DBfpItem(const DBCDXTAG *t, char *pg, int i) { return pg + 12 + i * t->i; }
inline int32_t _DBfpChild(const DBCDXTAG *t, const char *pg, int i) {
    return static_cast<int32_t>(_DBLoadBE32(_DBfpItem(t, pg, i) + t->offset_to_page_number_in_key_item));
}
// Record of an item: a compact interior item, or a non-compact leaf item.
inline int32_t _DBfpItemRec(const DBCDXTAG *t, const char *pg, int i) {
    return static_cast<int32_t>(_DBLoadBE32(_DBfpItem(t, pg, i) + t->rno));
}
// Whether a node's entries are packed (a compact leaf).
inline bool _DBfpPacked(const DBCDXTAG *t, const char *pg) { return t->compact && _DBfpLeaf(pg); }

// Whether a page read from the file can be worked on (counts, widths, masks
// and stored lengths). ctx is the tag.
bool _DBfpSoundPage(const char *pg, const void *ctx);
// Why a page is not sound, or nullptr (for the checker).
const char *_DBfpPageFault(const DBCDXTAG *t, const char *pg);

// ---- The packet and the cache ----------------------------------------------

// Resolve a file handle (slot 0) or a tag handle (slot << 16 | file) into
// DBfpi, DBfpt and DBtag: -213 for a bad file handle, -248 for an empty slot.
int _DBfpLockIndexPkt(int handle);
int _DBfpLockIndexStruc(int tag);

DBPAGEFILE _DBfpPageFile(const DBCDXTAG *t);
// Fetch a page of DBfpt through its cache. -204 for an offset that is no
// page of the file, -206 for a damaged page.
int _DBfpReadPage(int32_t page, char **pg);
// Put a whole page of DBfpt through its cache and on towards the file:
// deferred in a buffered file, at once in a write-through one (and dropped
// from the cache when the file is shared and not locked).
int _DBfpStorePage(int32_t page, const char *data);
// A new page for DBfpt: the head of the free list, else the end of the file.
int _DBfpNewPage(int32_t *page);
// Hand a page to the free list: written at once, gone from DBfpt's cache.
int _DBfpFreePage(int32_t page);
// Write the root of DBfpt into its header.
int _DBfpWriteRoot();
// Write the free list head and the counter (compact) or end of file
// (non-compact) into the header at 0.
int _DBfpWriteFileHeader();
// The end of a change: write-through files write their header fields at
// once and count the change.
int _DBfpCommit();
// Write every tag's dirty pages and roots, then the file header.
int _DBfpFlushIndex();
// Shared and not locked: write what is pending and forget every cached page.
int _DBfpClearPageBuffer();
// Forget the cached pages and decoded leaf of one tag, or of every tag.
void _DBfpForgetTag(DBCDXTAG *t);
void _DBfpForgetTags(DBCDXPKT *x);
// Whether the file header or a tag holds a change not yet written.
bool _DBfpPending(const DBCDXPKT *x);
// Reread the file header and DBfpt's root (another process may have moved them).
int _DBfpGetIndexHeader();
int _DBfpLockIndex(int type);
int _DBfpUnLockIndex();

// Takes the index lock for one call when the file locks itself (auto locks)
// and does not hold it yet; gives it back afterwards, whatever the outcome.
class DBCDXAUTOLOCK {
public:
    DBCDXAUTOLOCK() = default;
    DBCDXAUTOLOCK(const DBCDXAUTOLOCK &) = delete;
    DBCDXAUTOLOCK &operator=(const DBCDXAUTOLOCK &) = delete;
    ~DBCDXAUTOLOCK();
    int take();

private:
    DBCDXPKT *x_ = nullptr;
    int16_t tag_ = 0;
};

// ---- Opening ----------------------------------------------------------------

// Open the tag whose header is at `hdrofs` into slot `slot` of DBfpi.
int _DBfpOpenTagAt(int slot, int32_t hdrofs, const char *name);
// Free a tag record and everything it owns (no write-back).
void _DBfpFreeTag(DBCDXTAG *t);

// ---- Compact leaves -----------------------------------------------------------

// Field widths of a compact leaf.
struct DBCDXWIDTHS {
    uint8_t B, R, D, T;
};
inline uint64_t _DBfpLowBits(int n) { return n >= 64 ? ~0ull : ((1ull << n) - 1); }
// The widths this library gives a leaf that must hold record numbers up to
// maxrec: D = T = bit length of the key length, the fewest bytes B that
// leave room for the record number, R = 8B - D - T.
DBCDXWIDTHS _DBfpWidthsFor(int k, uint32_t maxrec);
// Make the decoded leaf of DBfpt describe page `page` (bytes pg), then
// decode up to entry i. *key points at its K bytes.
int _DBfpLeafEntry(DBCDXTAG *t, int32_t page, const char *pg, int i, const char **key, int32_t *rec);
// Entries decoded so far into t->lf (after _DBfpLeafEntry or _DBfpLeafOpen).
int _DBfpLeafOpen(DBCDXTAG *t, int32_t page, const char *pg);
int _DBfpLeafDecodeTo(DBCDXTAG *t, int i);
// Pack entries (K-byte keys, record numbers) into a compact leaf page with
// the given widths; false when they do not fit.
bool _DBfpLeafPack(char *pg, const DBCDXWIDTHS &w, int k, char fill, const char *keys, const int32_t *recs, int m);
// Bytes entry j of keys takes packed after entry j-1 (j = 0: first of its page).
int _DBfpPackedSize(const DBCDXWIDTHS &w, int k, char fill, const char *keys, int j, bool first);

// ---- Keys, search, moves --------------------------------------------------

// The tree as the toolkit's path moves see it.
struct DBCDXTREE {
    static constexpr bool kInteriorEntries = false;
    DBCDXTAG *t;
    int read(int32_t page, char **pg);
    int count(const char *pg) const { return _DBfpCount(pg); }
    bool leaf(const char *pg) const { return _DBfpLeaf(pg); }
    int children(const char *pg) const { return _DBfpCount(pg); }
    int32_t child(const char *pg, int i) const { return _DBfpChild(t, pg, i); }
};

// Key and record of entry i of a node (any kind); key gets K bytes.
int _DBfpEntry(int32_t page, const char *pg, int i, char *key, int32_t *rec);
// The entry at DBfpt's position into key (K bytes and a NUL) and *recno.
int _DBfpCurrentEntry(char *key, int32_t *recno);
// Search methods: 1 the first key equal over len bytes or above; 2 the first
// (key, record) at or above (key, rec); 3 the first key above over len
// bytes. Result 0 (equal), 204 (on a greater entry), 203 (past the last
// entry: on the last one, or one past it when `past`), 202 (empty).
int _DBfpSeek(const char *sk, int len, uint32_t rec, int method, bool past);
int _DBfpKeySearch(char *key, int32_t *recno, int method);
// First or last entry; one step.
int _DBfpGoEnd(char *key, int32_t *recno, bool last);
int _DBfpStep(char *key, int32_t *recno, bool forward);
// The shape of every public move: resolve, check, refresh, move, settle.
int _DBfpMove(int tag, char *key, int32_t *recno, int (*move)(char *, int32_t *));
// A public call's prologue on DBfpt: reread the header of a shared file
// that asks for it; and the epilogue: keep a shared tag's place by key and
// forget the cached pages of a shared file that is not locked.
int _DBfpRefresh();
int _DBfpSettle(int rc, const char *key, int32_t recno);
// A shared file let go of its pages since the position was taken (at the
// end of the last call, or when the lock was taken): find the place again
// from the saved key.
bool _DBfpMustReposition();
int _DBfpReposition();
// The key of a table's current record for DBfpt, K bytes and a NUL.
int _DBfpMakeKeyInto(int32_t table, char *key);
// A caller's key in stored form (K bytes): character keys blank-padded.
int _DBfpStoredKey(const char *key, char *out);
// Day number of a date as CDX keys count it; and back.
int32_t _DBfpDayNumber(int year, int month, int day);
bool _DBfpDayToDate(int32_t day, int *year, int *month, int *dayofmonth);
void _DBfpDoubleToKey(char *key, double v);
double _DBfpKeyToDouble(const char *key);

// ---- Changes -----------------------------------------------------------------

// Insert (key, rec) at the position _DBfpSeek left (with past = true).
int _DBfpInsert(const char *key, int32_t rec);
// Remove the entry at DBfpt's position.
int _DBfpRemove();
// Every page of DBfpt's tree to the free list, leaving an empty root leaf.
int _DBfpFreeTree(bool keepRoot);
// Format an empty compact or non-compact root leaf.
void _DBfpEmptyLeaf(char *pg, bool compact, int k, int attr);
// Adds and deletes end here: no position, a shared file's cache emptied.
int _DBfpChanged(int rc);

// Creating: an expression made ready for a header (leading blanks dropped,
// single quotes made double), -207 beyond `max` characters or when empty
// and `required`; the key type and length from a create call's mode and
// keylen (-222, -223); a header of a new tag or file (1024 bytes compact,
// 512 non-compact) with its root at `root`.
int _DBfpNormalise(const char *in, char *out, size_t max, bool required);
int _DBfpKeySpec(int mode, int *keylen, char *type);
void _DBfpNewHeader(char *hdr, bool compact, uint8_t options, int k, const char *expr, const char *forexpr, int32_t root,
                    int32_t eof);

// A working copy of a page: changes are made here and put back whole.
struct DBCDXWORK {
    int32_t at;
    char b[DBCDXPAGE];
};
int _DBfpLoad(DBCDXWORK &w, int32_t page);
inline int _DBfpSave(const DBCDXWORK &w) { return _DBfpStorePage(w.at, w.b); }

// Check the whole tree of DBfpt.
int _DBfpCheck(DBTREECHECK &r, bool strict);

// The vorn_debugf hook: the host's printf-like diagnostic function, if it
// has one.
extern "C" __attribute__((weak, visibility("default"))) int vorn_debugf(const char *fmt, ...);
void debug_node_leaf(const DBCDXTAG *t, const char *pg);
