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
    int bl;        // block length in bytes (rl * record length)
    int rl;        // capacity in records
    int nr;        // records held (0 = empty)
    char s;        // 0x40 changed records, 0x20 appended records
};

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
// Record input and output on DBxbd.
int _DBGetRecord(int32_t recno);
int _DBAppendRecord(int32_t *recno);
int _DBUpdateRecord(int32_t recno);

// Field converters on DBxbd's record buffer (type: letter or binary code).
int _DBVerifyField(int handle, int field);
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
// The byte range of a lock kind (DBLK_*) for DBxbd.
void _DBLockRange(int kind, int32_t recno, uint32_t *start, uint32_t *len);

// Close function registered in DBclose for type 1.
int DBCloseFile(int handle);
