// memo.h - the DBT (dBASE III/IV) and FPT (FoxPro) memo packets and their
// internal entry points.
#pragma once

#include "core.h"
#include "dbf.h"

// FPT header (held in host order; big-endian on disk).
struct DBFPTHDR {
    int32_t ff;   // next free block
    int32_t bsa;  // block size
};

// FPT block header (big-endian on disk).
struct DBFPTRHDR {
    int32_t s;    // 1 text, 0 picture/binary
    int32_t len;  // data bytes that follow
};

// Type 4 packet: an open FPT file.
struct DBFPTPKT {
    DBPKTHDR ph;
    DBFPTHDR h;
    int32_t pcnt;  // bytes of the current memo still to read or write
    int32_t pba;   // file address of the next byte
    int32_t pcur;  // block of the memo in progress
    // What pcnt/pba/pcur describe: 0 nothing, 1 a piecewise read, 2 a
    // piecewise write of an appended memo, 3 one rewritten in place. Reads and writes share the three counters, so a
    // piecewise read must never pick up where a write stopped (or the
    // reverse); this says whose counters they are.
    int32_t pmode;
    int32_t om;    // the open-mode word as given, for a pack to reopen with
};

// dBASE IV text block header.
struct DBDBTRHDR {
    int16_t u1;
    int16_t u2;
    int32_t len;  // text length including these 8 bytes
};

// A free run in a dBASE IV memo file.
struct DBDBTFHDR {
    int32_t adrs;  // first block
    int32_t len;   // length in blocks
};

// Type 3 packet: an open DBT file.
struct DBDBTPKT {
    DBPKTHDR ph;
    int32_t fs;    // file length, refreshed when the header is read
    DBDBTHDR h;
    int v;         // layout version the file was opened with
    int32_t bs;    // block size in bytes (always 512 in the dBASE III layout)
    int32_t om;    // the open-mode word as given, for a pack to reopen with
};

extern DBFPTPKT *DBfpm;
extern DBDBTPKT *DBxbm;

// Lock bits of a memo packet's ph.ls.
constexpr char DBMEMO_LOCKED = 4;  // the memo lock (DBfpLockMemo, DBxbLockMemo)

// Both memo families lock the same single byte: the first byte of the file,
// which holds the next-free-block number. It is the byte the Harbour memo
// drivers (DBT and FPT alike) lock while they allocate blocks, so a writer
// of ours and a Harbour writer never hand out the same free block. dBASE,
// Clipper and FoxPro write memos under their table's record or file lock and
// do not lock the memo file; the table lock is what orders those writers.
constexpr int32_t DBMEMO_LOCKPOS = 0;
constexpr int32_t DBMEMO_LOCKLEN = 1;

// ---- Both families: opening, closing, the memo lock ------------------------
// A failure that the file layer has not logged already is logged under the
// caller's identifier: `site` and `line` name the caller's failure point.
//
// Open `path` for the memo packet ph with the open-mode word as given and
// set the packet's mode bits. Automatic locks make the file shared and
// write-through (and mean nothing when it is read only).
int _DBMemoOpenFile(DBPKTHDR &ph, char *path, int mode);
// Undo an open that failed part way: close the file if it was opened and
// free the slot.
void _DBMemoOpenUndo(int handle, DBPKTHDR &ph);
// Give back the lock of the memo packet of `handle` (ph), close its file and
// free the slot; the caller clears its current-packet global.
int _DBMemoClose(int handle, DBPKTHDR &ph);
// Take and release the memo lock of ph: one lock however often it is asked
// for; a read-only file cannot take it (-236).
int _DBMemoLock(DBPKTHDR &ph, const DBSite &site, int line);
int _DBMemoUnLock(DBPKTHDR &ph);
// The lock one write needs. A file that is not shared, or that holds one of
// the lock bits `held`, needs none; one opened with automatic locks takes
// the memo lock here (*taken); any other shared file fails with -242.
int _DBMemoWriteLock(DBPKTHDR &ph, char held, bool *taken, const DBSite &site, int line);
// Give back what _DBMemoWriteLock took. Returns the write's status rc, or
// the unlock's when rc is 0; a failed write keeps its own DBerrno.
int _DBMemoWriteUnlock(DBPKTHDR &ph, bool taken, int rc);

// ---- FPT ------------------------------------------------------------------
int DBfpCloseMemo(int handle);
// Resolve an FPT handle into DBfpm: -213 unless the slot holds an FPT file.
int _DBfpLockMemoStruc(int handle);
// Reread DBfpm's 8-byte header (and check it).
int _DBfpGetMemoHeader();
// Check a header as read: block size 1..65536 (-249), next free block at
// least 1 and its byte address within 32 bits (-206).
int _DBfpCheckHeader(const DBFPTHDR &h);

// ---- DBT ------------------------------------------------------------------
int DBxbCloseMemo(int handle);
// Resolve a DBT handle into DBxbm: -213 unless the slot holds a DBT file.
int _DBxbLockMemoStruc(int handle);
// Reread block 0 of DBxbm into hdr (and DBxbm->h), refresh DBxbm->fs.
int _DBxbGetMemoHeader(DBDBTHDR *hdr);
// Create a memo file whose dBASE IV header names `base` (null: the base
// name of path).
int _DBxbCreateMemo(char *path, int blocks, int version, const char *base);
// The upper-cased base name of a path (after the last ':', '\\' or '/',
// before the last '.'), cut to the 8 bytes of the header, NUL-padded.
void _DBxbBaseName(char out[8], const char *path);
// Read the text at `block` of DBxbm: *out (allocated, NUL-terminated, freed
// by the caller) and its length in bytes.
int _DBxbReadText(int32_t block, char **out, int32_t *len);
int _DBxbGetMemoRecord(int32_t block, char **out, int option);
// The dBASE III text at byte `at` of DBxbm: its length up to the first
// 0x1A, and (out not null) the text itself. -206 at the end of the file
// before an end mark, -229 after 128 blocks without one. The writer
// measures old texts with it too.
int _DBxbScanIII(int32_t at, char **out, int32_t *len);
// Write `len` bytes as a text of DBxbm; *block: 0 for a new text, else the
// text it replaces. The caller has checked locks and the open mode.
int _DBxbWriteText(int32_t *block, const char *data, int32_t len);
// Layout of an open DBT: true for the dBASE IV layout.
inline bool _DBxbIsIV(const DBDBTPKT *m) { return m->v == 2; }

// ---- Pack, both families ----------------------------------------------------
// One memo pointer that a pack changes: record, field, old and new block.
struct DBMEMOREF {
    int32_t rec;
    int32_t field;
    int32_t oldb;
    int32_t newb;
};
// A growing list of them, owned by the library allocator.
struct DBMEMOREFS {
    DBOwned<DBMEMOREF> a;
    int32_t n = 0;
    int32_t cap = 0;
    int add(const DBMEMOREF &r);
};
// Whether field `i` of DBxbd holds a memo block number.
bool _DBIsMemoField(int i);
// The block number in field i of DBxbd's record buffer: a 4-byte binary
// integer in table style 10, else decimal text (blank is 0).
int32_t _DBMemoFieldGet(int i);
// Store a block number in field i: binary in style 10, else "%10ld".
void _DBMemoFieldPut(int i, int32_t block);
// Write the new (undo: the old) pointers of refs into the table `dbf`.
int _DBMemoRewritePointers(int dbf, const DBMEMOREFS &refs, bool undo);
// The bytes that hold block number `block` in memo field i of DBxbd (a
// 4-byte binary integer in style 10, else "%10ld"): their count, in out.
int _DBMemoPointerBytes(int i, int32_t block, char out[16]);
// Put the finished work file `tmp` in place of `memo` and rewrite the
// pointers of table dbf, so that a failure or a crash at any point leaves
// the old file and pointers or the new ones (tmark.cpp). A failure that is
// reported has put the old pair back (or left the marker that the next open
// of the table uses to) and removed the work file if it still had its name.
int _DBMemoSwapIn(int dbf, bool fpt, char *memo, char *tmp, const DBMEMOREFS &refs);

// ---- The marker of a memo pack or structure change in progress (tmark.cpp) --
// Its name beside the table: "<dir><table stem>.MPK".
int _DBMemoMarkName(char *out, size_t cap, const char *table);
// Write it, in state U, for the swap of `work` into `memo` with `backup` as
// the old file's second name and the pointer changes refs.
int _DBMemoMarkWrite(char *mark, bool fpt, const char *table, const char *memo, const char *work,
                     const char *backup, const DBMEMOREFS &refs);
// Set one byte of it: DBMARK_STATE, 'U' (the old memo file is kept) or 'F'
// (the new one is); DBMARK_WORK, 1 while the work file still has its name.
constexpr int DBMARK_STATE = 8;
constexpr int DBMARK_WORK = 10;
int _DBMemoMarkByte(char *mark, int at, char value);
// A table replaced wholesale by a new one built beside it (DBModifyFile),
// with its memo file when either table has memo fields. The names: the
// table, the finished new table under its work name, and the name the old
// table keeps as a backup; the same three for the memo file. memoOld: a
// file under `memo` is replaced or, without memoNew, dropped; memoNew: the
// new memo file is finished under memoWork.
struct DBTABLESWAP {
    char *table, *work, *backup;
    char *memo, *memoWork, *memoBackup;
    bool memoOld, memoNew;
};
// Put the new files in place so that a failure or a crash at any point
// leaves the old pair or the new pair under the original names (or a
// marker from which the next open of the table makes one whole); the old
// files keep their backup names. The work files are this function's from
// the call on: a failure removes them unless the marker still needs them.
int _DBTableSwap(const DBTABLESWAP &s);
// Whether the table's name is also one of the names a swap derives from it
// (backups, marker, memo file; memo null when no memo file takes part), or
// the memo file's one of them.
bool _DBSwapNamesClash(const char *table, const char *backup, const char *memoBackup, const char *mark,
                       const char *memo);
// In DBOpenFile, on the table just opened (DBxbd, named `filename`): finish
// or undo a memo pack or structure change that a crash interrupted. 0 when
// there was nothing to do, or another process holds the table's file lock
// (its change may still be running); -236 when pointers need writing and
// the table is read only; -206 for a marker that does not fit the table.
int _DBMemoPackRecover(char *filename);
// Take the table's file lock for a pack when it is shared and does not
// hold one already; *taken says whether to give it back.
int _DBMemoPackLockTable(int dbf, bool *taken);
void _DBMemoPackUnlockTable(int dbf, bool taken);
// The start of a pack of either family, its checks done: the table's lock
// (_DBMemoPackLockTable) and a free temporary name beside `path`, with
// extension `ext`, in tmp (which must hold "" beforehand: a failure leaves
// it so). A failure is for _DBMemoPackEnd to clean up after.
int _DBMemoPackBegin(int dbf, const char *path, const char *ext, char *tmp, size_t cap, bool *taken);
// Every memo pointer of every record of table dbf, deleted records
// included (they can still be recalled), handed to copy(block, &newblock);
// the pointers that change are listed in refs. Stops at the first failure.
template <class Copy>
int _DBMemoPackCopy(int dbf, DBMEMOREFS &refs, Copy copy) {
    int32_t count = 0;
    int rc = DBGetRecordCount(dbf, &count);
    for (int32_t rec = 1; rc == 0 && rec <= count; rec++) {
        rc = DBGetRecord(dbf, rec);
        if (rc > 0) rc = 0;  // a deleted record keeps its memos
        _DBLockDataStruc(dbf);
        for (int i = 0; rc == 0 && i < DBxbd->nf; i++) {
            if (!_DBIsMemoField(i)) continue;
            const int32_t b = _DBMemoFieldGet(i);
            if (b == 0) continue;
            int32_t nb = 0;
            rc = copy(b, &nb);
            if (rc == 0 && nb != b) rc = refs.add(DBMEMOREF{rec, i, b, nb});
            _DBLockDataStruc(dbf);
        }
    }
    return rc;
}
// The end of a pack of either family (fpt says which), rc the status of the
// copy into tmp. On failure the temporary file goes and nothing else has
// changed. Else the old file's handle *memo is closed, the new file takes
// its place (_DBMemoSwapIn) and *memo is opened again under the old name
// with the open-mode word `mode`, whatever the swap did. Gives back the
// table lock that _DBMemoPackBegin took.
int _DBMemoPackEnd(int dbf, int *memo, bool fpt, char *path, char *tmp, int mode, const DBMEMOREFS &refs,
                   bool taken, int rc);

// Read the block header of FPT memo `block` of DBfpm after checking that
// the block is 1..ff-1 and lies within the file (-204), and that its length
// keeps the data within the file (-206): a damaged length can then never
// size an allocation beyond what the file holds.
int _DBfpReadBlockHeader(int32_t block, DBFPTRHDR *rh);

// The pieces of an FPT pack that a structure change shares (wpack.cpp).
// The create code (DBfpCreateMemo) that gives block size bs, or 0 when none does.
int _DBfpSizeCode(int32_t bs);
// Memo `block` of DBfpm, type word and all: *rh, and its data in buf after
// 8 bytes of room for a block header.
int _DBfpReadMemo(int32_t block, DBOwned<uint8_t> &buf, DBFPTRHDR *rh);
// Append a memo to a new file being filled (descriptor fd, block size bs,
// next free block *ff): buf holds 8 bytes of room, then len data bytes;
// the block header (type, len) goes into the room. *nb is its block.
int _DBfpAppendMemo(int fd, int32_t bs, int32_t *ff, int32_t type, uint8_t *buf, int32_t len, int32_t *nb);
// Write the next free block ff into the new file and pad it to ff blocks.
int _DBfpFinishFile(int fd, int32_t bs, int32_t ff);
