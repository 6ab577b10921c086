// dbf.h - the table packet and the internal entry points shared by the DBF
// table engine's files (open, records, cache, fields, locks, pack) and by
// the families that read a table's records (memo pack, evaluator, indexes).
#pragma once

#include "core.h"

// The 32-byte DBF header, exactly as on disk (little-endian).
struct DBDATAHDR {
    uint8_t v;        // version byte
    uint8_t y;        // year of last update, (year + 48) mod 256
    uint8_t m;
    uint8_t d;
    int32_t n;        // record count
    uint16_t h;       // header length
    uint16_t r;       // record length, deletion byte included
    uint8_t u1[2];
    uint8_t t;        // transaction flag
    uint8_t e;        // encryption flag
    uint8_t u2[12];
    uint8_t mdx;      // production-index flag
    uint8_t u3[3];
};
static_assert(sizeof(DBDATAHDR) == 32, "DBF header is 32 bytes");
static_assert(offsetof(DBDATAHDR, n) == 4 && offsetof(DBDATAHDR, h) == 8 &&
              offsetof(DBDATAHDR, r) == 10 && offsetof(DBDATAHDR, t) == 14 &&
              offsetof(DBDATAHDR, mdx) == 28, "DBF header offsets");

// A field descriptor: the 32 bytes on disk, with `a`, `l` and `mv` filled in
// by open (offset in the record, 16-bit length, largest numeric value).
#pragma pack(push, 1)
struct DBFIELDSTRUC {
    char n[11];        // name, NUL-padded
    char t;            // type letter
    uint16_t a;        // offset in the record (first field at 1)
    uint16_t l;        // length
    uint8_t w;         // length, low byte (on disk)
    uint8_t d;         // decimals; for 'C' the length's high byte
    uint8_t r2[2];
    double mv;         // largest value that fits ('B', 'F', 'N', 'Y')
    uint8_t r3[3];
    uint8_t i;         // indexed in the production index
};
#pragma pack(pop)
static_assert(sizeof(DBFIELDSTRUC) == 32, "field descriptor is 32 bytes");
static_assert(offsetof(DBFIELDSTRUC, t) == 11 && offsetof(DBFIELDSTRUC, w) == 16 &&
              offsetof(DBFIELDSTRUC, d) == 17 && offsetof(DBFIELDSTRUC, mv) == 20 &&
              offsetof(DBFIELDSTRUC, i) == 31, "field descriptor offsets");

// The record cache and the record buffer.
struct DBRECBFR {
    int32_t fr;    // record number of the first cached record
    char *p;       // cache block
    char *r;       // record buffer (current record)
    int16_t *io;   // offset of each cache slot in p
    char *dm;      // a mark per slot (DBSLOT_*); kept up in shared tables only
    int bl;        // block length in bytes (rl * record length)
    int rl;        // capacity in records
    int nr;        // records held (0 = empty)
    char s;        // 0x40 changed records, 0x20 appended records
};

// What a cached record of a shared table is with respect to the file.
// Another process may change any record it holds the lock of, so a shared
// table's flush writes only the records changed here (not the whole block,
// which would put back other processes' records as we last read them), and
// a record read before its lock was taken is read again once it is locked.
// An exclusive table's marks stay DBSLOT_READ: it writes whole blocks.
constexpr char DBSLOT_READ = 0;     // as read from the file
constexpr char DBSLOT_CHANGED = 1;  // changed or appended here, not yet written
constexpr char DBSLOT_STALE = 2;    // read before a lock on it: read it again before use

// Type 1 packet: an open table.
struct DBDATAPKT {
    DBPKTHDR ph;
    int32_t c;          // current record number
    DBRECBFR b;
    DBDATAHDR h;        // header as read and kept up to date
    DBFIELDSTRUC *f;    // field array
    int16_t lf;         // longest field length
    int16_t nf;         // number of fields
    int16_t numlcks;    // locks held on this table
    char u;             // 0x40 record changed, 0x20 record appended
    unsigned char v;    // style, with 0x80 when the table has memo fields
};

// The table the current public call resolved.
extern DBDATAPKT *DBxbd;

// Resolve a table handle into DBxbd: 0 <= handle < smf, else -213.
int _DBLockDataStruc(int handle);

// Reread the header of DBxbd (record count of a shared table).
int _DBGetFileHeader();
// Write DBxbd's pending changes, header date and count, end mark.
int _DBFlushFile();
// Set up DBxbd's record cache by the sizing rule.
int _DBAllocCache();
// Make the cache of `d` hold record k.
int _DBFillCache(DBDATAPKT *d, int32_t k);
// A lock on record k (0: on every record) of shared table d was just taken:
// the cached copies it now protects are marked stale.
void _DBCacheForget(DBDATAPKT *d, int32_t k);
// Record input and output on DBxbd.
int _DBGetRecord(int32_t recno);
int _DBAppendRecord(int32_t *recno);
int _DBUpdateRecord(int32_t recno);

// The offset of record k of d for calls on an existing record: -204 unless
// k is one of 1..n (drget.cpp).
int _DBExistingRecordOffset(const DBDATAPKT *d, int32_t k, int32_t *off);

// The path every public field call takes (dfget.cpp): resolve the handle,
// check the field number and the pointer, then convert, in the field's own
// type or as text.
int _DBFieldCall(int (*convert)(void *, int, int), int handle, int field, void *p, bool text);
int _DBNamedFieldCall(int (*convert)(void *, int, int), int handle, char *name, void *p, bool text);

// Field converters on DBxbd's record buffer (type: letter or binary code).
int _DBVerifyField(int handle, int field);
// A field's description in the form a table is created from (dfinfo.cpp).
void _DBDescribeField(const DBFIELDSTRUC &f, DBFIELD *out);
int _DBGetFieldData(void *out, int field, int type);
int _DBPutFieldData(void *in, int field, int type);

// Locks on DBxbd.
int _DBLockFile();
int _DBLockHeader();
int _DBLockAppend();
int _DBLockRecord(int32_t recno);
int _DBUnLockRecord(int32_t recno);
int _DBUnLockHeader();
int _DBUnLockAll();
// A pack or a change of structure copies the whole table, and nobody else
// may write meanwhile: the file lock of a shared DBxbd is taken unless this
// process holds it already. *taken says whether this call took it, and only
// such a lock is given back, by _DBGiveFileLock (which keeps DBerrno).
int _DBTakeFileLock(bool *taken);
void _DBGiveFileLock(DBDATAPKT *d, bool taken);
// The byte range of a lock kind (DBLK_*) for DBxbd.
void _DBLockRange(int kind, int32_t recno, uint32_t *start, uint32_t *len);

// The checks a new field list passes before DBCreateFile or DBModifyFile
// writes anything (dcreate.cpp): the count and the style's limits, each
// field by type, the record length. Rewrites the list as callers see it
// (names and type letters upper-cased, fixed lengths set); the version byte
// the fields call for and the record length come back.
int _DBCheckFields(int style, int nfields, DBFIELD *fields, uint8_t *version, int *reclen);

// Close function registered in DBclose for type 1.
int DBCloseFile(int handle);
// Close a work table of a pack or a change of structure without writing
// anything more: its file is complete, or about to be removed.
int _DBCloseUnwritten(int handle);

// ---------------------------------------------------------------------------
// Helpers the record, flush and field files share (dopen, drget, drput,
// drstat, dflush, dsize, dfget, dfput)
// ---------------------------------------------------------------------------

// The style of a table without its memo bit.
inline int _DBStyleOf(const DBDATAPKT *d) { return d->v & 0x7F; }

// Lock-state tests on ph.ls. A whole-file lock is the exact value 4: it is
// never combined with another bit.
inline bool _DBHoldsFileLock(const DBDATAPKT *d) { return d->ph.ls == DBLK_FILE; }
inline bool _DBHoldsHeaderLock(const DBDATAPKT *d) { return d->ph.ls != DBLK_FILE && (d->ph.ls & DBLK_HEADER); }
inline bool _DBHoldsAppendLock(const DBDATAPKT *d) { return d->ph.ls != DBLK_FILE && (d->ph.ls & DBLK_APPEND); }
// Whether this process holds the exclusive lock of record `recno` of DBxbd.
bool _DBRecordIsLocked(int32_t recno);

// File offset of record k (1-based) of table d. Records past what a 32-bit
// offset can address give -204 instead of a wrapped position.
int _DBRecordOffset(const DBDATAPKT *d, int32_t k, int32_t *off);

// Where n records of table d end, in 64 bits: the offsets of these files are
// 32-bit, so a count whose end passes 2^31 - 1 is a damaged header (-206),
// and an append whose end mark would not fit below it is refused.
inline int64_t _DBTableEnd(const DBDATAPKT *d, int64_t n) { return d->h.h + n * d->h.r; }

// Address of cache slot i: slot offsets are i * record length (io[] holds
// the same values; the cache is never sized beyond what io can express).
inline char *_DBCacheSlot(const DBDATAPKT *d, int i) {
    return d->b.p + static_cast<size_t>(i) * d->h.r;
}

// Set DBxbd's header date (y, m, d) to today. fixed_year: store the year
// byte as 'w' (0x77) instead of year + 48.
int _DBStampDate(bool fixed_year);
// Write the end-of-file mark after DBxbd's last record: one 0x1A, or a whole
// record's worth of 0x1A in style 7.
int _DBWriteEndMark();
// Whether DB_XBASE80_COMPAT is present in the environment (read on every
// append and flush, never cached).
bool _DBXbase80Compat();

// Reread DBxbd's header when the table asks for it (shared, no header-type
// lock held): the one place a shared table learns of other processes'
// appends.
int _DBRefreshHeader();

// A lock that a write in a shared table with automatic locking takes for
// itself and gives back when the write is over, whatever the outcome.
// take(): 0 when the write may go ahead (the needed lock is held, was taken
// now, or the table is not shared), -242 when it may not, or the lock's
// refusal.
class DBWriteLock {
public:
    DBWriteLock() = default;
    DBWriteLock(const DBWriteLock &) = delete;
    DBWriteLock &operator=(const DBWriteLock &) = delete;
    ~DBWriteLock();
    // kind: DBLK_APPEND for an append, DBLK_RECORD for a rewrite of recno.
    int take(int kind, int32_t recno);

private:
    int taken_ = 0;  // DBLK_HEADER or DBLK_RECORD when taken here
    int32_t recno_ = 0;
    DBDATAPKT *d_ = nullptr;
};

// Free everything a table packet owns (field array, record buffer, cache);
// the packet itself stays for the caller to release with its slot.
void _DBFreeTableBuffers(DBDATAPKT *d);

// Bytes a field takes in the caller-buffer form of a record
// (DBGetRecordToBuffer / DBPutRecordFromBuffer).
int _DBBufferFieldSize(const DBFIELDSTRUC &f, bool put);

// Seek to `off` and write. The file layer answers a write with a flush flag
// with DBerrno as it stood, so a warning left by an earlier step (a cut text,
// an empty field) would read as a failed write; it is cleared for the call
// and put back after. Failures are logged under the caller's site and line.
int _DBWriteAt(const DBSite &site, int line, int fd, int32_t off, const void *buf, int len, int16_t flush);
