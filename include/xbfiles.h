/*
 * xbfiles.h - record-level access to xBase files: DBF tables, DBT and FPT
 * memo files (and, later, NTX, CDX and IDX indexes) laid out exactly as the
 * dBASE, Clipper and FoxPro families write them.
 *
 * Every function returns a status and also leaves it in DBerrno:
 *   0         success
 *   201..212  warnings: the operation was carried out
 *   -201..-261 errors: the operation was not carried out
 *   errno | 0xC0000000  an operating-system error without a code of its own
 * Outputs come through pointers, which come first after the handle. The
 * library is single-threaded: the host serialises its calls. Processes share
 * files through advisory byte-range locks.
 *
 * Valid C99 and C++.
 */
#ifndef XBFILES_H
#define XBFILES_H

#include <stdint.h>
#include <stddef.h>

#if defined(__GNUC__)
#define DBAPI __attribute__((visibility("default")))
#else
#define DBAPI
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Status codes, each with the text DBGetErrorStr gives for it
 * ------------------------------------------------------------------------ */
#define DB_OK                 0      /* "No error or warnings" */
#define DBW_DELETED           201    /* "WARNING - record read is marked deleted" */
#define DBW_EMPTY             202    /* "WARNING - file is empty" */
#define DBW_NOMOREKEYS        203    /* "WARNING - no more keys" */
#define DBW_KEYNOTFOUND       204    /* "WARNING - could not find key in index file" */
#define DBW_TRUNCATED         205    /* "WARNING - data field truncated" */
#define DBW_ROUNDED           206    /* "WARNING - numeric field rounded" */
#define DBW_BADFILELEN        207    /* "WARNING - file length is incorrect" */
#define DBW_UNBUFFERED        208    /* "WARNING - file I/O not buffered" */
#define DBW_PARTIALALLOC      209    /* "WARNING - partial memory allocation" */
#define DBW_NOTSUPPORTED      210    /* "WARNING - function not supported" */
#define DBW_EXISTS            211    /* "WARNING - object already exists" */
#define DBW_FIELDEMPTY        212    /* "WARNING - field is empty" */
#define DBE_WRITE             (-201) /* "ERROR - file write failure" */
#define DBE_READ              (-202) /* "ERROR - file read failure" */
#define DBE_NOMEMORY          (-203) /* "ERROR - memory allocation error" */
#define DBE_SEEK              (-204) /* "ERROR - file pointer reposition failed" */
#define DBE_NOTFOUND          (-205) /* "ERROR - file not found" */
#define DBE_CORRUPT           (-206) /* "ERROR - file corrupted" */
#define DBE_BADEXPR           (-207) /* "ERROR - bad user specified key expression" */
#define DBE_NOHANDLES         (-208) /* "ERROR - no handles available" */
#define DBE_NOPAGES           (-209) /* "ERROR - no index pages loaded" */
#define DBE_PAGENOTLOADED     (-210) /* "ERROR - index page was not loaded" */
#define DBE_CLOSE             (-211) /* "ERROR - file close failure" */
#define DBE_BADCOMMAND        (-212) /* "ERROR - invalid command" */
#define DBE_BADHANDLE         (-213) /* "ERROR - invalid handle number" */
#define DBE_BADFILENAME       (-214) /* "ERROR - invalid filename" */
#define DBE_BADDATE           (-215) /* "ERROR - invalid date" */
#define DBE_BADTIME           (-216) /* "ERROR - invalid time" */
#define DBE_NOTMEMO           (-217) /* "ERROR - file not in memo format" */
#define DBE_BADVERSION        (-218) /* "ERROR - invalid dBaseIII version" */
#define DBE_HDRLEN            (-219) /* "ERROR - file header length error" */
#define DBE_BADUPDATE         (-220) /* "ERROR - last file change date in error" */
#define DBE_NULLPARAM         (-221) /* "ERROR - parameter address NULL" */
#define DBE_KEYTYPE           (-222) /* "ERROR - invalid key type" */
#define DBE_KEYLEN            (-223) /* "ERROR - invalid key length" */
#define DBE_ITEMLEN           (-224) /* "ERROR - item length incorrect" */
#define DBE_ROOTPAGE          (-225) /* "ERROR - invalid root page" */
#define DBE_MAXKEYS           (-226) /* "ERROR - bad maximum number of keys per page" */
#define DBE_NUMFIELDS         (-227) /* "ERROR - invalid number of fields" */
#define DBE_FIELDNAME         (-228) /* "ERROR - field name invalid" */
#define DBE_FIELDLEN          (-229) /* "ERROR - bad field length" */
#define DBE_DECIMALS          (-230) /* "ERROR - decimal places parameter invalid" */
#define DBE_FIELDTYPE         (-231) /* "ERROR - invalid field type" */
#define DBE_RECLEN            (-232) /* "ERROR - invalid record length" */
#define DBE_BADDATA           (-233) /* "ERROR - bad data" */
#define DBE_MEMOLINE          (-234) /* "ERROR - memo soft line length invalid" */
#define DBE_MDXFLAG           (-235) /* "ERROR - MDX flag in DBF file invalid" */
#define DBE_READONLY          (-236) /* "ERROR - file open for reading only" */
#define DBE_LOCKVIOLATION     (-237) /* "ERROR - file locking violation" */
#define DBE_SHAREOVERFLOW     (-238) /* "ERROR - sharing buffer overflow" */
#define DBE_NOPATH            (-239) /* "ERROR - path not found" */
#define DBE_ACCESS            (-240) /* "ERROR - access to file denied" */
#define DBE_ACCESSCODE        (-241) /* "ERROR - invalid access code" */
#define DBE_NOTLOCKED         (-242) /* "ERROR - file must be locked first" */
#define DBE_DISKCHANGED       (-243) /* "ERROR - diskette changed" */
#define DBE_MINKEYS           (-244) /* "ERROR - bad minimum number of keys per page" */
#define DBE_FILESOPEN         (-245) /* "ERROR - some files remain open" */
#define DBE_OPEN              (-246) /* "ERROR - could not open the file" */
#define DBE_FLUSH             (-247) /* "ERROR - flush to disk failure" */
#define DBE_BADTAG            (-248) /* "ERROR - invalid tag handle" */
#define DBE_PAGESIZE          (-249) /* "ERROR - invalid page size in blocks" */
#define DBE_TAGNAME           (-250) /* "ERROR - invalid tag name" */
#define DBE_PAGEADDER         (-251) /* "ERROR - invalid page offset adder" */
#define DBE_MAXTAGS           (-252) /* "ERROR - invalid maximum number of tag table elements" */
#define DBE_TAGELEMLEN        (-253) /* "ERROR - bad tag table element length" */
#define DBE_TAGCOUNT          (-254) /* "ERROR - invalid tag count" */
#define DBE_KEYFORMAT         (-255) /* "ERROR - unknown key format switches" */
#define DBE_SWITCH            (-256) /* "ERROR - unknown switch error" */
#define DBE_TAGINUSE          (-257) /* "ERROR - tag in use" */
#define DBE_GLOBALLOCK        (-258) /* "ERROR - Windows GlobalLock error" */
#define DBE_TASKLOOKUP        (-259) /* "ERROR - Windows Task lookup Failed" */
#define DBE_LOCKOVERFLOW      (-260) /* "ERROR - internal lock buffer overflow" */
#define DBE_LOCKUNDERFLOW     (-261) /* "ERROR - internal lock buffer underflow" */

/* An operating-system error with no code of its own comes back as
 * errno | DB_SYSERR (a negative number whose low bits carry errno). */
#define DB_SYSERR             ((int)0xC0000000)

/* ------------------------------------------------------------------------
 * Open-mode word: the low byte is the table style (0..10) or access code.
 * ------------------------------------------------------------------------ */
#define DBO_READONLY    0x0100  /* open for reading only */
#define DBO_FLUSH       0x0200  /* write-through: every write reaches the file */
#define DBO_SHARED      0x0400  /* shared with other processes */
#define DBO_AUTOLOCK    0x0800  /* take locks around single operations (adds 0x600) */
#define DBO_UNBUFFERED  0x1000  /* one-record cache, writes not flushed */
#define DBO_MULTILOCK   0x2000  /* several record locks at once */

/* Packet (file kind) types of the handle table. */
#define DBPT_DBF 1
#define DBPT_NDX 2
#define DBPT_DBT 3
#define DBPT_FPT 4
#define DBPT_MDX 5
#define DBPT_IDX 6
#define DBPT_NTX 7
#define DBPT_CDX 8

/* Record-write modes of DBPutRecord. */
#define DB_APPEND  0
#define DB_REWRITE 256

/* Lock kinds (DBFILELOCKS.type). */
#define DBLK_RECORD 1
#define DBLK_HEADER 2
#define DBLK_FILE   4
#define DBLK_APPEND 8

/* The open-mode bits as a packet keeps them, lowest bit first. */
typedef struct DBOMODE {
    unsigned int read_only : 1;
    unsigned int always_flush : 1;
    unsigned int shared : 1;
    unsigned int auto_locks : 1;
    unsigned int multi_locks : 1;
    unsigned int read_header_information : 1;
    unsigned int u : 26;
} DBOMODE;

/* How a file is open, as the info calls report it. */
typedef struct DBOPENFLAGS {
    int isreadonly;
    int isshareable;
    int isunbuffered;
} DBOPENFLAGS;

/* A caller's description of one table field. type: the type letter ('C',
 * 'N', 'F', 'D', 'L', 'M', ...) or a binary code (1, 2, 3, 4, 11, 13);
 * bit 0x100 asks DBCreateFile for the field's production-index flag. */
typedef struct DBFIELD {
    char name[12];
    int type;
    int len;
    int decpl;
} DBFIELD;

typedef struct DBFILEINFO {
    DBOPENFLAGS flags;
    char fname[512];
    int style;    /* table style 0..10 */
    int memo;     /* 1 when the table has memo fields */
    int mdx;      /* production-index flag of the header */
    int trans;    /* transaction flag of the header */
    int encrypt;  /* encryption flag of the header */
    int lockt;    /* lock bits held: 1 record, 2 header, 4 file, 8 append */
    int numlcks;  /* number of locks held on the table */
} DBFILEINFO;

typedef struct DBRECINFO {
    int reclen;   /* record length, deletion byte included */
    int numflds;
    char *bfr;    /* the record buffer */
} DBRECINFO;

typedef struct DBFILELOCKS {
    int type;       /* DBLK_RECORD, DBLK_HEADER, DBLK_FILE or DBLK_APPEND */
    int32_t record; /* record number for record locks, else 0 */
} DBFILELOCKS;

typedef struct DBFPMEMOINFO {
    DBOPENFLAGS flags;
    char fname[80];
    int32_t lockt;
    int32_t blksz;
} DBFPMEMOINFO;

/* Block 0 of a dBASE IV memo file (the dBASE III layout uses only ff). */
typedef struct DBDBTHDR {
    int32_t ff;        /* next free block */
    int32_t u1;
    char n[8];         /* base name, upper case */
    int16_t u2;
    unsigned char u3;  /* 2 */
    unsigned char u4;  /* 1 */
    int16_t bsa;       /* block size in bytes */
    int16_t u5;
} DBDBTHDR;

typedef struct DBXBMEMOINFO {
    DBOPENFLAGS flags;
    char fname[80];
    int style;         /* layout version the file was opened with */
    int32_t lockt;
    int32_t blksz;
} DBXBMEMOINFO;

/* Result of a key-expression evaluation. eval: a NUL-terminated string for
 * 'C' and 'D', a double for 'N' and 'F'; the caller frees it with
 * DBFreeMemory. */
typedef struct DBEVAL {
    char *eval;
    int16_t etyp;
    int16_t elen;
} DBEVAL;

/* One term under evaluation; also the cursor (xprsn) into the expression. */
typedef struct DBEVALTEMP {
    void *fval;
    int16_t ftyp;
    int16_t flen;
    char *xprsn;
} DBEVALTEMP;

/* A function the host registers with the evaluator. */
typedef int32_t (*DBPTEF)(DBEVALTEMP *);

/* ------------------------------------------------------------------------
 * Documented globals
 * ------------------------------------------------------------------------ */
DBAPI extern int DBerrno;          /* last status */
DBAPI extern int DBdate_style;     /* default date style, 1..15 */
DBAPI extern int DBlock_retry;     /* lock attempts (0: one attempt, no sleep) */
DBAPI extern int8_t DBdpm[13];     /* month lengths; entry 2 follows the last leap-year test */

/* ------------------------------------------------------------------------
 * Library core
 * ------------------------------------------------------------------------ */

/* Initialise the library: maxfiles (5..512, capped) sizes the handle table
 * (maxfiles - 5 slots; handles 3 and up), datestyle (1..15, else 1) the
 * default date style. Reads DB_SAMBA and DB_XHARBOUR ("YES" or "yes").
 * -213 when maxfiles <= 4; -203 when memory runs out. */
DBAPI int DBInitialize(int maxfiles, char datestyle);

/* Close every handle still open through its family's close function and
 * free the library's tables. */
DBAPI void DBTerminate(void);

/* The DB_SAMBA and DB_XHARBOUR switches as read by DBInitialize. */
DBAPI int getDBsamba(void);
DBAPI int getDBxHarbour(void);

/* Return DBerrno; store code in DBerrno and return it. */
DBAPI int DBGetErrorCode(void);
DBAPI int DBSetErrorCode(int code);

/* Copy the version text ("1.00 (yyyymmdd)", 16 bytes with NUL) into buf.
 * Leaves DBerrno alone. -221 for a NULL buf. */
DBAPI int DBGetVersion(char *buf);

/* The descriptor of an open table, or -213 for a bad handle. */
DBAPI int DBGetFileDescriptor(int handle);

/* The message for the current DBerrno. */
DBAPI const char *DBGetErrorStr(void);

/* Switch the error log on (on = 1, filename: a buffer of at least 30 bytes
 * holding the name) or off (on = 0, filename may be NULL). Each failure then
 * appends "<source>\t<line>\t<code>\n". Returns DBerrno unchanged. */
DBAPI int DBErrorLog(int on, char *filename);

/* Lock retries: attempts made for each lock (0 = one attempt, no sleep). */
DBAPI int DBSetLockRetryCount(int n);
DBAPI int DBGetLockRetryCount(int *n);
/* Entries in use and capacity of the process lock table. */
DBAPI int DBGetLockCount(int *used, int *max);
/* Resize the process lock table to n entries; -261 when more are in use. */
DBAPI int DBSetLockCount(int n);

/* The library's allocator. Failure stores -203 in DBerrno, logs the caller's
 * source and line, and returns -203; *where is replaced only on success. */
DBAPI int DBAllocateMemoryLog(void **where, size_t size, const char *srcfile, int line);
DBAPI int DBReAllocateMemory(void **where, size_t size, const char *srcfile, int line);
DBAPI int DBFreeMemory(void *p, const char *srcfile, int line);

/* ------------------------------------------------------------------------
 * Operating-system file layer (statuses: errno mapped onto codes)
 * ------------------------------------------------------------------------ */

/* Create (truncate) path with mode 0777 less the umask. -214 for an empty
 * path or one of 512 characters or more (the packets keep 511 and a NUL;
 * every open and create of the library goes through here or through
 * DBosOpenFile, so none works on a cut name). */
DBAPI int DBosCreateFile(int *fd, char *path);
/* Open path read-only (mode & 0x100) or read-write; sets m->shared and
 * m->read_only from the mode. Never creates. -214 as for DBosCreateFile. */
DBAPI int DBosOpenFile(int *fd, char *path, int mode, DBOMODE *m);
DBAPI int DBosCloseFile(int fd);
/* Read len bytes; any count other than len is -202. */
DBAPI int DBosReadData(int fd, void *buf, int len);
/* Write len bytes; a short write is -201 (not logged). With flush set the
 * result is DBosFlushFile's: DBerrno as the caller left it. */
DBAPI int DBosWriteData(int fd, void *buf, int len, int16_t flush);
/* Absolute seek; landing elsewhere is -204 (not logged). */
DBAPI int DBosSetFilePosition(int fd, int32_t offset);
/* Seek on a table's descriptor; returns the new position, or -1 with
 * DBerrno set. */
DBAPI int32_t DBSetFilePosition(int handle, int32_t offset, int whence);
DBAPI int DBosGetFilePosition(int fd, int32_t *pos);
/* Length of the file; the position is kept. Clears DBerrno first. */
DBAPI int DBosFileLength(int fd, int32_t *len);
/* *eof = 1 when the position is at or past the end. */
DBAPI int DBosEndOfFile(int fd, char *eof);
/* Grow with zero bytes (pieces of at most 1024) or cut the file. */
DBAPI int DBosSetFileSize(int fd, int32_t size);
/* Writes reach the system at once, so nothing is flushed: returns DBerrno
 * as the caller left it. */
DBAPI int DBosFlushFile(int fd);
/* Byte-range lock: type 0 exclusive, 2 shared, anything else unlock. Tried
 * DBlock_retry times, each refusal followed by a one-second sleep (one try,
 * no sleep, for 0). start and len are unsigned 32-bit file addresses. A
 * full lock table refuses an exclusive lock with -260 before the system is
 * asked. On success the result is DBerrno as the caller left it: clear it
 * first (every public table call does). */
DBAPI int DBosLockData(int fd, int type, int32_t start, int32_t len);
/* 1 when the process lock table holds exactly this exclusive lock. */
DBAPI int DBosTestLock(int fd, int32_t start, int32_t len);

/* ------------------------------------------------------------------------
 * DBF tables
 * ------------------------------------------------------------------------ */

/* Open a table. mode: the style (low byte, 0..10; 0 is kept as 1) | DBO_*
 * bits. DBO_AUTOLOCK adds DBO_FLUSH and DBO_SHARED (and is dropped again
 * with DBO_READONLY); DBO_FLUSH and DBO_UNBUFFERED give a write-through
 * table without a record cache. The version byte must be one the style
 * accepts: 1, 3, 5, 6, 7, 9: 0x03, 0x43, 0x63, 0x83; 2: 0x03, 0x83, 0x8B;
 * 4, 8: 0x03, 0xF5; 10 (Visual FoxPro): '0', '1', '2'. A header whose
 * descriptors end in a whole 32-byte terminator slot is opened as style 9.
 * *handle receives the handle, or -1 on failure, when nothing stays open or
 * allocated. Statuses: -221 NULL argument; -212 style above 10; -218
 * version byte (or memo field) the style does not accept; -219 header
 * length of no allowed form; -220 last-update date out of range (year byte
 * above 119 as a signed byte); -235 production-index byte other than 0 or
 * 1 in styles 2 and 8; -227 no fields; -231 unknown field type; -232 field
 * lengths that do not add up to the record length; -206 a negative record
 * count, a count whose records would end past 2^31 - 1 bytes, or a Visual
 * FoxPro header without terminator; -202 a file cut
 * inside its header; the open errors of DBosOpenFile (a system error comes
 * back as the bare errno). 207: the file length is not the header's records
 * plus at most an end mark; the table is open and usable. A memo pack or
 * a structure change (DBModifyFile) that a crash interrupted (its marker
 * "<dir><table stem>.MPK" is there) is finished or undone first; a shared open does so only when it gets the
 * file lock (else another process may still be packing), and a read-only
 * open that would have to write memo pointers fails with -236. */
DBAPI int DBOpenFile(int *handle, char *filename, int mode);
/* Close a table: write pending changes (not for write-through tables),
 * release its locks, close the file and free the handle. When writing or
 * releasing fails, the error is returned and the handle stays open, so
 * nothing is lost. -213 for a bad handle. */
DBAPI int DBCloseFile(int handle);
/* How a table is open and what its header says: flags (read only,
 * shareable, write-through), the name it was opened with, style (0..10),
 * memo (1 when it has memo fields), the production-index, transaction and
 * encryption bytes, the lock bits and count. -221 for a NULL info. */
DBAPI int DBGetFileInfo(int handle, DBFILEINFO *info);
/* The header's last-update date (year byte + 2000, month, day) as text in
 * date style `style` (1..15) in buf (11 bytes are enough). -221 for a NULL
 * buf; the date layer's -212 or -215 for a bad style or date. */
DBAPI int DBGetLastUpdate(int handle, char *buf, int style);

/* Read record recno (1..record count; -204 otherwise, leaving the current
 * record as it was) into the record buffer and make it the current record.
 * 201 when it is marked deleted (it is read all the same). A shared table
 * rereads its header first, so records other processes appended are
 * seen. A buffered table reads a block of neighbouring records at a time;
 * -202 when the file holds less than the record. */
DBAPI int DBGetRecord(int handle, int32_t recno);
/* As DBGetRecord; buf (if not NULL) then receives the deletion byte and
 * every field in order, converted: 'C' its text and a NUL (length + 1
 * bytes), 'D' the date text in the default date style (11 bytes), 'N' and
 * 'F' the value as a double (8 bytes), 'I' and 'M' an int32 (4 bytes),
 * every other type its stored bytes. A bad date in a field returns -215. */
DBAPI int DBGetRecordToBuffer(int handle, char *buf, int32_t recno);
/* Write the record buffer. how = DB_APPEND (0): a new last record (its
 * deletion byte becomes ' '), *recno receives its number; how = DB_REWRITE
 * (256): record *recno (1..count, else -204). Buffered tables keep the
 * record in the cache until DBFlushFile, DBCloseFile or the cache moves on;
 * write-through tables write it, the header date and count at once. In a
 * shared table an append needs the file, header or append lock and a
 * rewrite the record's lock (or the file or append lock); with DBO_AUTOLOCK
 * the lock is taken for the one write and released after, else -242.
 * -221 NULL recno; -236 read-only table; -212 any other how; -206 for an
 * append to a table whose file ends before the records its header counts
 * (the 207 case), -204 for one that would end past 2^31 - 1 bytes; write
 * errors of the file layer. */
DBAPI int DBPutRecord(int handle, int32_t *recno, int how);
/* As DBPutRecord; buf (if not NULL) is first converted into the record
 * buffer, in the layout DBGetRecordToBuffer gives ('N' and 'F' doubles are
 * printed with the field's width and decimals: -233 when too wide; 'I'
 * takes its field length). 205 when a text was cut to its field. */
DBAPI int DBPutRecordFromBuffer(int handle, char *buf, int32_t *recno, int how);
/* Mark record recno deleted ('*') or active (' '). The record is read into
 * the record buffer and written only when its mark changes. -236 read-only;
 * -204 recno outside 1..count; the lock rule and statuses of a rewrite. */
DBAPI int DBMarkRecordInActive(int handle, int32_t recno);
DBAPI int DBMarkRecordActive(int handle, int32_t recno);
/* 1 when the current record (the record buffer) is marked deleted, 0 when
 * not, -213 for a bad handle. */
DBAPI int DBIsRecordDeleted(int handle);
/* Write cached changes, then the header's date and record count and, after
 * appends, the end mark (0x1A; a whole record of them in style 7). Nothing
 * is written when nothing changed. A shared table holding no lock locks
 * its header for this. The year byte is year + 48, or 'w' when the
 * environment has DB_XBASE80_COMPAT (write-through appends do the
 * opposite). A failed flush leaves the changes pending for the next one. */
DBAPI int DBFlushFile(int handle);
/* The record cache's capacity in records. get = 1: *nrecs receives it (0
 * for a write-through table). get = 0: set it to *nrecs (below 1 becomes
 * 1; capped where slot offsets stop fitting 16 bits, 32767 / record length
 * + 1) after writing pending changes; *nrecs receives the capacity set. 208
 * on a write-through table (nothing set), 209 when memory ran short (the
 * old cache stays), -212 for any other get, -221 for a NULL nrecs. */
DBAPI int DBGetSetCacheSize(int handle, int *nrecs, int get);
/* *bfr receives the record buffer's address (record length bytes, the
 * deletion byte first); the buffer is cleared to spaces, ready for a
 * record to be built in place. -221 for a NULL bfr. */
DBAPI int DBSetBufferAddress(int handle, char **bfr);
/* Fill the record buffer with spaces: every field empty, the record
 * active. */
DBAPI int DBClearBuffer(int handle);
/* Record length, field count and record buffer address. -221 for NULL. */
DBAPI int DBGetRecordInfo(int handle, DBRECINFO *info);
/* The current record number (0 before any record was read or written).
 * -221 for a NULL recno. */
DBAPI int DBGetRecordNumber(int handle, int32_t *recno);
/* Record count (a shared table rereads its header first). -221 for NULL. */
DBAPI int DBGetRecordCount(int handle, int32_t *count);
/* 1 when the current record is the first (or none was read yet) / the
 * last, or the table is empty; else 0; -213 for a bad handle. */
DBAPI int DBIsBeginningOfFile(int handle);
DBAPI int DBIsEndOfFile(int handle);

/* Field access on the current record (the record buffer; fields count from
 * 0). Nothing reaches the file until the record is written with
 * DBPutRecord. Every call gives -213 for a bad handle, -227 for a field
 * number outside the table, -221 for a NULL pointer; the by-name calls
 * find the field as DBGetFieldNumber does (-228 when there is none).
 *
 * DBGetFieldData converts by the field's own type into out: 'C' text and
 * a NUL (an 'I' field read as text gives its int32); 'N' double (the
 * text's value); 'F', 'B' and type 13 the first 8 stored bytes as a
 * double; 'D' the date text in the default date style (-215 for a stored
 * date that is not one); 'L' one byte: 1 true (T, t, Y, y), 0 false (F,
 * f, N, n), '?' unknown, any other byte leaves out untouched; 'M' and 'G'
 * the int32 block number (4-byte integer in style 10, text elsewhere);
 * 'I' and types 3, 4, 11 int32; types 1, 2 int16; 'T' and 'Y' their 8
 * bytes with each 4-byte half reversed. A field of blanks (of zero bytes
 * for 'B'; never for 'N' and 'F') gives 212 and the empty value: 0, "?",
 * or the default style's empty date picture. DBGetStrField gives the
 * stored text of any field and a NUL ('T' halves reversed). */
DBAPI int DBGetFieldData(int handle, int field, void *out);
DBAPI int DBGetStrField(int handle, int field, char *out);
DBAPI int DBGetNamedData(int handle, char *name, void *out);
DBAPI int DBGetNamedStr(int handle, char *name, char *out);
/* DBPutFieldData converts in by the field's own type: 'C' text, cut to the
 * field with 205; 'N' and 'F' the field's text, already formatted (a
 * shorter text is right-aligned); 'D' a date text in the default style
 * (blanks or an empty picture store an empty date; -215 for a bad date,
 * the field unchanged); 'L' one byte as for get (' ' and '?' store a
 * blank; anything else -233); 'M' and 'G' an int32 block number (-233 when
 * negative or too wide); 'I' and types 3, 4, 11 an int32; types 1, 2 an
 * int16; type 13 and 'B' 8 bytes as they are; 'T' and 'Y' 8 bytes with
 * each half reversed. DBPutStrField stores text into any field, left
 * aligned, cut with 205. */
DBAPI int DBPutFieldData(int handle, int field, void *in);
DBAPI int DBPutStrField(int handle, int field, char *in);
DBAPI int DBPutNamedData(int handle, char *name, void *in);
DBAPI int DBPutNamedStr(int handle, char *name, char *in);
/* Field number of a name, letter case ignored, first match; -228 and
 * *number = field count when there is none. */
DBAPI int DBGetFieldNumber(int handle, int *number, char *name);
/* The field's name and its NUL (at most 11 bytes) into name. */
DBAPI int DBGetFieldName(int handle, char *name, int field);
/* One field's description (name, type, length, decimals; 0 decimals for
 * 'C'), or all of them into desc (room for every field) with the count in
 * *count. */
DBAPI int DBGetFieldDescription(int handle, int field, DBFIELD *desc);
DBAPI int DBGetFileDescription(int handle, int *count, DBFIELD *desc);
/* 1 when every byte of the field is a space (a field of no bytes is not
 * blank), else 0; negative status on a bad handle, field or name. */
DBAPI int DBIsFieldBlank(int handle, int field);
DBAPI int DBIsNamedBlank(int handle, char *name);

/* Write a new, empty table (header, descriptors, terminator, end mark) in
 * style mode & 0xFF (0..9; -218 otherwise); mode 0x200 sets the header's
 * production-index byte, and in style 2 each field's index flag from bit
 * 0x100 of its type. Field types: 'C' (1..254 bytes; 2048 in style 6), 'N'
 * (1..19 bytes; 20 in styles 2, 4, 8; decimals 0 or up to length - 2, and
 * below 16 in styles 1, 3, 5, 6, 7, 9), 'F' (as 'N', styles 2, 4, 8 only),
 * 'D', 'L', 'M', and the binary codes 1, 2 (2 bytes), 3, 4, 11 (4 bytes)
 * and 13 (8 bytes). The version byte is 0x03, with memo fields 0x83 (0x8B
 * in style 2, 0xF5 in styles 4 and 8; style 0 keeps 0x03). Every field is
 * checked before the file is created, and the caller's array is rewritten:
 * names upper-cased, type letters upper-cased, lengths and decimals of the
 * fixed-size types set. Statuses: -221 NULL name or array; -227 no fields
 * or more than the style allows (128; 255 in styles 2 and 8; 1023 in 5, 6;
 * 512 in 7); -228 name empty or over 10 characters; -231 unknown type;
 * -229 bad length; -230 bad decimals; -232 record over 4000 bytes (8192 in
 * style 6); the file layer's create and write errors (-214 for a name of
 * 512 characters or more). A create that fails part way removes the file. */
DBAPI int DBCreateFile(char *filename, int nfields, DBFIELD *fields, int mode);

/* Locks between processes. Every lock is an exclusive (or, for the ReadLock
 * calls, shared) advisory byte-range lock at the addresses the table's
 * dialect uses, chosen by its style, the header's production-index byte and
 * the DB_SAMBA / DB_XHARBOUR switches, so that other xBase programs sharing
 * the file see it. Each lock is tried as DBSetLockRetryCount says (one try
 * without sleeping by default). A refused lock returns -237 (EACCES), -238
 * (EDEADLK) or errno | DB_SYSERR (EAGAIN and the rest) and changes nothing;
 * a full process lock table (DBSetLockCount) gives -260 before the system is
 * asked; a bad handle gives -213. DBFILEINFO.lockt shows the lock bits
 * (1 record, 2 header, 8 append; exactly 4 for the file lock) and numlcks
 * the number of locks the table holds. */

/* Lock the whole table. Nothing when the file lock is already held;
 * otherwise every other lock of the table is released first (so a refused
 * file lock leaves the table holding none), then the file range is locked
 * and the header reread (rereads before each call stop while it is held). */
DBAPI int DBLockFile(int handle);
/* Lock the header (needed to append or to write the header in a shared
 * table) and reread it. Nothing when the file or header lock is held. */
DBAPI int DBLockHeader(int handle);
/* Lock the table for appending and reread the header. Nothing when the file
 * or header lock is held; a second call takes and counts a second lock. */
DBAPI int DBLockAppend(int handle);
/* Lock record recno (1 and up; -204 below 1) of a shared table. Without
 * DBO_MULTILOCK any lock the table holds, of any kind, is released first,
 * so one record lock at a time is the default. Nothing when the file lock or
 * this record's lock is held. Returns 0 and does nothing on a table not
 * opened DBO_SHARED. */
DBAPI int DBLockRecord(int handle, int32_t recno);
/* Release record recno's lock if this table holds it (0 otherwise, and on a
 * table not opened shared). */
DBAPI int DBUnLockRecord(int handle, int32_t recno);
/* Release the header lock if held; a shared table then rereads its header
 * before each use again. Changes of a shared table still in its cache
 * (records appended or rewritten under the lock) are flushed first, as
 * they are by DBUnLockRecord, DBUnLockAll, DBLockRecord and DBLockFile, so
 * no lock goes while another process could miss or overwrite them; a
 * failed flush returns its error and keeps the locks. */
DBAPI int DBUnLockHeader(int handle);
/* Release every lock the table holds, exclusive and shared (read) locks
 * alike; lock bits and count become 0. Closing a table that holds
 * exclusive locks does the same. */
DBAPI int DBUnLockAll(int handle);
/* 1 when this process holds record recno's exclusive lock through this
 * table, else 0 (always 0 on a table not opened shared); DBerrno is left at
 * 0. -213 for a bad handle. */
DBAPI int DBIsRecordLocked(int handle, int32_t recno);
/* Shared (read) locks on the file, header or record range: other processes
 * may read-lock the same bytes but not lock them exclusively. They set no
 * lock bits and are not counted; they are released only by DBUnLockAll (and
 * so by DBLockFile, by the implicit release of DBLockRecord, and by closing
 * the table). A read lock on bytes the table already holds exclusively, or
 * while it holds the file lock, is not taken (it would weaken the
 * exclusive lock) and returns 0. DBReadLockRecord does nothing on a table
 * not opened shared and gives -204 for recno below 1. At most 256 read
 * locks are held at once in the process: -260 beyond. */
DBAPI int DBReadLockFile(int handle);
DBAPI int DBReadLockHeader(int handle);
DBAPI int DBReadLockRecord(int handle, int32_t recno);
/* The exclusive locks the table holds, in the order they were taken: for
 * each, type (DBLK_FILE, DBLK_HEADER, DBLK_APPEND or DBLK_RECORD) and, for
 * a record lock, its record number (0 when the style's scheme does not tell
 * records apart, as xHarbour's FoxPro scheme). Where the header and append
 * locks are the same bytes, the first such lock is reported as the header
 * lock when one is held. Up to max entries are stored in list (which may be
 * NULL when max is 0); *count receives the number held, which may exceed
 * max. Read locks are not listed. -221 for a NULL count (or a NULL list
 * with max above 0), -213 for a bad handle. */
DBAPI int DBGetLockInfo(int handle, DBFILELOCKS *list, int max, int *count);

/* Remove the records marked deleted. The active records are copied in order
 * into a new table of the same fields and style ("<dir><n>.DBF", the first n
 * from 0 whose file does not exist), the old file is kept as the backup
 * "<dir><base>.BAK" (an older backup is replaced), the new file takes the
 * old name, and the table is reopened there with its style, DBO_FLUSH if it
 * was opened write-through or unbuffered, and DBO_SHARED if it was shared
 * (other open bits and all locks are not carried over); the new handle is
 * stored through *handle, and the cache size is kept. A shared table is
 * file-locked for the copy. Memo files and indexes are not touched: rebuild
 * indexes afterwards. -221 for a NULL handle pointer, -213 for a bad
 * handle, -236 for a read-only table; a style-10 table, or fields that
 * DBCreateFile cannot create in the table's style, give DBCreateFile's
 * status; a lock refused by another process gives the lock's status. Any
 * failure before the tables are closed leaves the table open under its
 * handle with its content unchanged, removes the new file, and releases the
 * file lock if the pack took it (a shared table's other locks were let go
 * when it was taken). The old file gets the backup name as a second name
 * (a hard link, or a copy where the file system has none) before the new
 * file is renamed over the table's name, so at every moment, a crash
 * included, the table's name holds the old file or the new one. A failure
 * in that hand-over removes the backup name again, reopens the old table
 * (*handle is -1 only when even that fails) and returns the failure; -240
 * when the marker of an unfinished memo pack or structure change stands
 * beside the table, -214 for a table named like its backup ("X.BAK"). */
DBAPI int DBPackFile(int *handle);
/* Give the open table *handle a new list of fields and keep its records.
 * The list is checked and rewritten exactly as DBCreateFile checks and
 * rewrites one, in the table's style (which stays), before anything is
 * written. Fields are matched by name, letter case ignored: a kept field
 * keeps its value, converted when its type or size changes; new fields
 * start blank; dropped fields disappear. Every record is kept in order,
 * deleted ones still marked. The new header is DBCreateFile's (today's
 * date, the production-index byte kept); other header bytes, such as a
 * FoxPro code-page mark, are not carried over, as in DBPackFile.
 *
 * Conversions. A field of the same type, length and decimals keeps its
 * bytes as they are; a blank value, an empty memo included, stays blank
 * (an empty memo kept as a memo stays one). Otherwise a value changes type
 * through its text: a number's as stored ("12.50"; a binary number's
 * digits), a date's "yyyymmdd", a logical's "T" or "F", a memo's content.
 * "Lost" below means the new field is left blank (or a text cut) and the
 * call returns 205:
 * - to 'C': the text; a text (or memo) longer than the field is cut, lost
 *   when more than trailing blanks go; a number or date whose text does
 *   not fit is lost, never cut; a binary memo is lost.
 * - to 'N' and 'F': the number, or the number a text shows (blanks around
 *   it, a sign, digits and one '.'; anything else is lost), right-aligned
 *   with the new decimals, rounded half away from zero on its decimal
 *   digits (206 when that changed the value); too wide for the new length
 *   it is lost (after dropping the 0 before the point, as dBASE writes
 *   "-.50"). Logicals are lost.
 * - to 'D': a date, or a text of eight digits that is a valid "yyyymmdd"
 *   or a date in the default date style; anything else is lost.
 * - to 'L': a logical, or the text T, Y, .T., TRUE, YES (true) or F, N,
 *   .F., FALSE, NO (false) in any letter case; "?" is blank; anything else
 *   is lost.
 * - to 'M': a memo keeps its content (an FPT memo its type word too); any
 *   other value becomes a text memo (lost when a dBASE III memo cannot
 *   hold it: a text with the byte 0x1A).
 * - to the binary codes 1, 2 (16-bit) and 3, 4, 11 (32-bit integer): the
 *   number or the number a text shows, rounded half away from zero (206),
 *   lost out of range; 13 (double): that number as a double.
 * Other old types ('T', 'Y', 'B', '0' ...) convert only to themselves.
 * When both 205 and 206 apply, 205 is returned.
 *
 * Memo files. The style decides the kind: FPT in styles 4 and 8, dBASE IV
 * DBT in style 2, dBASE III DBT otherwise; the file is "<stem>.DBT" or
 * "<stem>.FPT" beside the table (lower-case extension when the table's has
 * a lower-case letter; an existing file in the other case is used). When
 * either list has memo fields the memo file is rewritten: the new one
 * holds, in record order, only the memos the records point to (deleted
 * records included) with their pointers renumbered, in the old file's
 * block size (64 bytes FPT, 512 DBT for a first memo file). A table that
 * gains its first memo field gets a memo file; one that loses its last
 * drops it.
 *
 * The new table ("<dir><n>.DBF") and memo file ("<dir><n>.DBT"/".FPT") are
 * built beside the old ones; only when both are complete do they take the
 * old names, and the old files keep the backup names "<stem>.BAK" and
 * "<stem>.TBK" (older backups are replaced). A failure before that leaves
 * the old files untouched and removes the new ones. The swap is ordered so
 * that a failure, or a crash, at any step leaves the old pair or the new
 * pair under the original names; while two files change a marker
 * "<dir><table stem>.MPK" stands, from which the next DBOpenFile of the
 * table finishes or undoes the change (the new table under the name means
 * finish). A shared table is file-locked for the change, as by DBPackFile
 * (other processes that have it open keep the old file, as after a pack).
 * On success *handle keeps its number and holds the new table, opened with
 * the old open mode and cache size and without locks; on failure it still
 * holds the old table, unchanged.
 *
 * Statuses: 0, 205, 206; -221 NULL handle pointer or field list; -213 bad
 * handle; -236 read-only table; DBCreateFile's statuses for the list (-218
 * for a style-10 table, which cannot be created); -214 a table named like
 * its own backup, marker or memo file ("X.BAK", "X.DBT"); -245 this
 * process has the table open under another handle, or its memo file under
 * a memo handle (close them first); -240 the marker of an unfinished change
 * or memo pack is there; -204 a memo pointer that is no block number; -205
 * memo fields that point to memos without a memo file; the memo and file
 * layers' errors. Indexes are not rebuilt: rebuild them afterwards. */
DBAPI int DBModifyFile(int *handle, int nfields, DBFIELD *fields);

/* ------------------------------------------------------------------------
 * FPT memo files (FoxPro)
 * ------------------------------------------------------------------------ */
/* Create an empty FPT file and close it. code 1..32: blocks of code x 512
 * bytes; 33..511: the block size in bytes. The header area covers at least
 * 512 bytes (next free block (bs + 511) / bs). -221 NULL path, -249 code
 * outside 1..511, file-layer statuses; a failed write removes the file. */
DBAPI int DBfpCreateMemo(char *path, int code);
/* Open an FPT file; *handle receives the handle (-1 on failure). mode: low
 * byte 0, 4, 8 or 10 (else -218) | DBO_* bits (DBO_AUTOLOCK adds shared and
 * write-through). -217 for a file of 511 bytes or less, -249 for a header
 * block size outside 1..65536, -206 for a next-free block below 1 or past
 * 2 GiB, -221 NULL argument. */
DBAPI int DBfpOpenMemo(int *handle, char *path, int mode);
/* Release the memo lock if held, close and free the handle. -213 bad handle. */
DBAPI int DBfpCloseMemo(int handle);
/* Reread the header (next free block, block size) of a shared file; a
 * no-op for an exclusive one. -213, -206/-249 for a damaged header. */
DBAPI int DBfpGetMemoHeader(int handle);
/* How the file is open: flags, file name (cut to 79), lockt (4 while the
 * memo lock is held), block size. -221 NULL info, -213 bad handle. */
DBAPI int DBfpGetMemoInfo(int handle, DBFPMEMOINFO *info);
/* Take (release) the memo lock: an exclusive lock on byte 0, length 1, of
 * the FPT file, the byte the Harbour memo drivers lock while allocating.
 * Taking it twice is one lock. A shared file needs it (or automatic locks)
 * to be written. -236 on a read-only handle, lock statuses (-237 ...). */
DBAPI int DBfpLockMemo(int handle);
DBAPI int DBfpUnLockMemo(int handle);
/* Length of memo `block` (data bytes) and *binary = 1 when its type word is
 * 0 (picture/binary), else 0. -221 NULL output, -204 block outside
 * 1..ff-1 or past the end of the file, -206 a length past the file's end. */
DBAPI int DBfpGetMemoType(int handle, int32_t block, int32_t *length, int *binary);
/* Read memo `block` into *out, a buffer of at most maxlen bytes plus a NUL
 * that the library allocates and the caller frees with DBFreeMemory (NULL
 * on failure). flags 0: the whole memo (up to maxlen); 2: piecewise, each
 * call returns the next piece of at most maxlen bytes, status 1 while bytes
 * remain and 0 with the last piece. -204 bad block, -206 length past the
 * end of the file (checked before allocating), -212 maxlen below 1, other
 * flag bits, or a piecewise read while a piecewise write is unfinished. */
DBAPI int DBfpGetMemoRecord(int handle, int32_t block, char **out, int32_t maxlen, int flags);
/* As DBfpGetMemoRecord into the caller's buffer of maxlen + 1 bytes. */
DBAPI int DBfpGetMemoToBuffer(int handle, int32_t block, char *buf, int32_t maxlen, int flags);
/* Write `total` bytes of data as a memo; *block is the memo it replaces (0
 * for none) and receives its block. flags: 1 binary (type 0) instead of
 * text (type 1); 2 piecewise: `piece` bytes now, the header with the first
 * piece, later pieces (same *block, flag 2) continue where the last ended;
 * 256 reuse: rewrite in place when total + 8 fits the blocks the old memo
 * owns, else (and always without 256) append at the next free block; old
 * blocks are left for DBfpPackMemo. -221 NULL, -233 total or piece below 1
 * or a piece beyond what remains, -212 flags other than 0/256 besides 1
 * and 2, -236 read-only, -242 shared without the memo lock. */
DBAPI int DBfpPutMemoRecord(int handle, int32_t *block, char *data, int32_t total, int32_t piece, int flags);
/* Rewrite the memo file of table `dbf` without dead blocks: every memo a
 * record points to ('M' and 'G' fields, deleted records included) is copied
 * with its type word into a new file named "<dir><n>.FPT", then the old
 * file is renamed aside, the new one takes its name, the table's pointers
 * are rewritten (4-byte binary in style 10, else "%10ld"), and the old file
 * is removed. *memo is closed and reopened with its open mode (new handle
 * stored). Any failure leaves the old file and the pointers as they were.
 * While the files change places a marker "<dir><table stem>.MPK" stands
 * beside the table; should the process die then, the next DBOpenFile of
 * the table finishes or undoes the pack from it (a death at the very end
 * can leave the old file behind under its backup name "<dir><n>.FPT",
 * and one during the copy the work file). A shared table is
 * file-locked for the pack. -221, -213, -236 read-only memo or table,
 * -204/-206 a pointer to a bad memo, -240 a marker of another pack still
 * there. */
DBAPI int DBfpPackMemo(int dbf, int *memo);

/* ------------------------------------------------------------------------
 * DBT memo files (dBASE III and IV)
 * ------------------------------------------------------------------------ */
/* Create an empty DBT file and close it. version 1, 3, 5, 6, 7: dBASE III
 * layout (512-byte block 0 holding next free block 1, then one 0x1A;
 * 512-byte blocks whatever `blocks` says); version 2: dBASE IV layout
 * (block 0 of blocks x 512 bytes: next free 1, the upper-case base name,
 * 2, 1, the block size). -249 blocks outside 1..32 (nothing created), -218
 * any other version (the empty file is left behind), -221 NULL path; -203
 * or a failed write leave no file. */
DBAPI int DBxbCreateMemo(char *path, int blocks, int version);
/* Open a DBT file; the layout comes from the version in the mode's low
 * byte (2 dBASE IV; 0, 1, 3, 5, 6, 7 dBASE III; else -218) | DBO_* bits.
 * -217 for a file shorter than 512 bytes, -249 for a dBASE IV block size
 * that is not a multiple of 64 from 64 to 32768, -206 for a next-free block
 * below 1 or past 2 GiB, -221 NULL argument. */
DBAPI int DBxbOpenMemo(int *handle, char *path, int mode);
/* Release the memo lock if held, close and free the handle. -213. */
DBAPI int DBxbCloseMemo(int handle);
/* Read block 0 into *hdr (host order; in the dBASE III layout only ff is
 * meaningful) and refresh the file length. -221, -213, -217/-249/-206 as
 * for open. */
DBAPI int DBxbGetMemoHeader(int handle, DBDBTHDR *hdr);
/* How the file is open: flags, file name (cut to 79), style (the layout
 * version it was opened with), lockt (4 while locked), block size. */
DBAPI int DBxbGetMemoInfo(int handle, DBXBMEMOINFO *info);
/* Take (release) the memo lock: exclusive, byte 0, length 1 of the DBT
 * file (the next-free-block number; the byte the Harbour memo drivers lock
 * while allocating). Taking it twice is one lock. A shared file needs it
 * (or automatic locks) to be written. -236 read-only, lock statuses. */
DBAPI int DBxbLockMemo(int handle);
DBAPI int DBxbUnLockMemo(int handle);
/* Read the text at `block` into *out, allocated by the library and freed by
 * the caller with DBFreeMemory (NULL on failure). dBASE III: up to the
 * first 0x1A; dBASE IV: the length in its block header. option 0 as
 * stored, 256 without soft returns (0x8D and the byte after it). -204
 * block below 1 or past the end of the file, -206 end of file before the
 * 0x1A or a dBASE IV length below 8 or past the end (checked before
 * allocating), -229 no 0x1A in 128 blocks, -212 other options, -221. */
DBAPI int DBxbGetMemoRecord(int handle, int32_t block, char **out, int option);
/* Write a NUL-terminated text; *block: the text it replaces, 0 for a new
 * one; receives where it went. dBASE III: rewritten in place (ended by two
 * 0x1A) while it fits the blocks the old text reached to its first 0x1A,
 * else appended at the next free block, which moves on; the old blocks are
 * left for DBxbPackMemo. dBASE IV: the 8-byte block header FF FF 08 00 and
 * the length with those 8 bytes, then the text and a 0x1F; freed blocks
 * are kept in a chain of free runs and reused (first fit, runs split and
 * joined). -221 NULL, -233 empty text (or, dBASE III, one holding 0x1A),
 * -212 option other than 0, -204 block past the end of the file, -236
 * read-only, -242 shared without the memo lock. */
DBAPI int DBxbPutMemoRecord(int handle, int32_t *block, char *text, int option);
/* Rewrite the memo file of table `dbf` without dead texts, as
 * DBfpPackMemo does: temporary name "<dir><n>.DBT", same layout and block
 * size, pointers rewritten with "%10ld", the old file removed only when
 * the new one and the pointers are in place, *memo reopened. Any failure
 * leaves the old file and the pointers as they were, and a crash is
 * repaired by the next open of the table, as for DBfpPackMemo. */
DBAPI int DBxbPackMemo(int dbf, int *memo);

/* ------------------------------------------------------------------------
 * Key-expression evaluator
 *
 * An expression is a flat sequence of terms joined by "+" or "-", with no
 * spaces, parentheses for grouping or quoted literals. A term is a field
 * name, a number (digits and "."), any other text of up to 10 characters
 * (taken as that text), a host-registered function, or a built-in: DTOC(d)
 * and DTOC(d,1) (yyyymmdd), LEFT(s,n), RIGHT(s,n)/RIGH(, PADR(s,n),
 * UPPER(s), LOWE(s), STR(x[,width[,decimals]]) ("%width.decimalslf",
 * default 10 and 0), SUBSTR(s,start[,count])/SUBST(/SUBS(. UPPE( lower-cases
 * and LOWER( upper-cases, as the xBase originals do. Strings joined by "+"
 * or "-" are concatenated; numbers are added or subtracted; a date, logical
 * or memo term after the first term is skipped.
 * ------------------------------------------------------------------------ */

/* Evaluate expr against the current record of table into *out: etyp 'C'
 * (eval a NUL-terminated string of elen bytes), 'N' or 'F' (eval a double,
 * elen 8), 'D' (a date string in the default style), 'L' or 'M' (a first
 * term of that type), or ' ' with an empty string for an empty expression.
 * The caller owns out->eval and frees it with DBFreeMemory. Statuses: 0;
 * -221 NULL expr or out; -213 bad table handle; -207 bad expression (mixed
 * strings and numbers, wrong argument type, missing argument or ")", a
 * token over 10 characters, a value over 32767 bytes); -203 no memory; a
 * date conversion's or a host function's own negative status; -212 when
 * called from inside a host function. On failure out->eval is NULL. */
DBAPI int DBEvaluateStr(int32_t table, char *expr, DBEVAL *out);

/* For host functions: evaluate the one term at the cursor (t->xprsn) and
 * leave it in the DBEVALTEMP, fval being a fresh block the function owns
 * (free it with DBFreeMemory, or hand it back as its result). Statuses: as
 * DBEvaluateStr; -212 outside an evaluation. */
DBAPI int DBProcessTable(void);

/* For host functions: step over the character at the cursor (the "," before
 * an argument) and read the integer up to the next "," or ")", leaving the
 * cursor on that separator. -207 when there is no separator, the argument
 * is empty or outside -32768..32767; -221 NULL out; -212 outside an
 * evaluation. */
DBAPI int DBGetValue(int16_t *out);

/* Register f under name (matched byte for byte, and as a prefix: end names
 * with "(" so that they cannot swallow field names). Host functions are
 * tried before built-ins and fields. f is called with the cursor just past
 * the name; it evaluates its arguments with DBProcessTable and DBGetValue,
 * steps over its ")", leaves a fresh DBAllocateMemoryLog block, its type and
 * flen in the DBEVALTEMP and returns 0, or returns a negative status (then
 * anything left in fval stays the function's). 211 when a registered name
 * begins name (nothing changes); -221 NULL name or f; -207 empty name;
 * -203 no memory. */
DBAPI int DBAddParseEntry(char *name, DBPTEF f);

/* Remove the function registered under name. 204 when there is none; -221
 * NULL name. */
DBAPI int DBDeleteParseEntry(char *name);

/* Copy the name of registered function number row (0 up, sorted by name)
 * into name (longest + 1 bytes, see DBGetTableInfo). 203 when row is not
 * below the number of rows; -221 NULL name. */
DBAPI int DBGetEntryStr(char *name, int row);

/* Number of registered functions into *rows and the length of the longest
 * name into *longest. 202 (and *longest untouched) when there are none;
 * -221 for a NULL pointer. */
DBAPI int DBGetTableInfo(int *rows, int *longest);

/* ------------------------------------------------------------------------
 * Dates: styles 1..15 (4 = "yyyymmdd"), day numbers from 1 (1 Jan 1) to
 * 3652059 (31 Dec 9999) by the average year of 365.2425 days.
 *
 * A day number is not a true day count: each year starts at the whole days
 * in (year - 1) average years, so some 31 December shares its number with
 * the next 1 January (31 Dec 2024 and 1 Jan 2025 are both 739251) and a few
 * numbers belong to no date. Index keys hold these numbers unchanged.
 * Date strings travel in caller buffers of 11 bytes (10 characters and the
 * NUL); day and month names need 10, style names 23. Statuses: -221 for a
 * NULL pointer, -215 for a bad date, wrong length, missing separator or
 * bad name number, -212 for a style outside 1..15; failures are logged
 * unless said otherwise. Functions built from two steps stop at the first
 * negative status and return it, logging it once more under their own
 * name. The month-length table DBdpm is rewritten (entry 2) by every
 * leap-year test.
 * ------------------------------------------------------------------------ */

/* Date triple to day number in *day. The triple is valid when year is
 * 0..9999, month 1..12 and day_of_month within the month (year 0 counts as
 * leap). 0, -221 (day NULL), -215 (invalid triple). */
DBAPI int DBDate3ToLong(int32_t *day, int year, int month, int day_of_month);
/* Date triple to a date string in style 1..15 ("yy" is the year modulo
 * 100; style 3 prints the day of the year). The triple is checked before
 * the style. 0, -221, -215, -212. */
DBAPI int DBDate3ToStr(char *out, int style, int year, int month, int day);
/* Today's local date: year, month 1..12, day, day of the week (0 =
 * Sunday). 0, -221 when any output is NULL. */
DBAPI int DBGetDate3(int *year, int *month, int *day, int *dow);
/* 1 when year is a leap year (Gregorian rule), else 0. Sets DBdpm[2] to 29
 * or 28; leaves DBerrno alone. */
DBAPI int DBIsLeapYear(int year);
/* Days in month 1..12 of year 1..9999 into *days. Only February tests the
 * year. 0, -221, -215 (year or month out of range). */
DBAPI int DBDaysInMonth(int *days, int year, int month);
/* Day of the week of day number 1..3652059: daynum modulo 7, 0 = Sunday
 * (day 1 is a Monday). 0, -221, -215 (out of range). */
DBAPI int DBLongDateToDayOfWeek(int *dow, int32_t daynum);
/* Day number 1..3652059 to a triple. A number shared by a 31 December and
 * the next 1 January gives the 1 January; a number that belongs to no date
 * gives -215. 0, -221 (any output NULL), -215. */
DBAPI int DBLongDateTo3(int *year, int *month, int *day, int32_t daynum);
/* Day number to a date string in style 1..15: DBLongDateTo3, then
 * DBDate3ToStr. Their statuses. */
DBAPI int DBLongDateToStr(char *out, int style, int32_t daynum);
/* The date-string parser. Leading blanks are skipped; an empty or blank
 * text, or one of only separators and blanks, is the blank date: 0, 0, 0
 * with the warning 202 (not logged). Otherwise the whole text, leading
 * blanks included, must have the style's length (6..8 for two-digit-year
 * styles, 8..10 for four-digit ones, exactly 8 for styles 3 and 4, 6 for
 * style 5); separated styles lose every blank, take "\" for "/" in styles
 * 1..3 only, and accept one-digit pieces. Two-digit years 0..99 are 2000..
 * 2099 (no pivot). 0, 202, -221, -212 (style), -215 (length, separator or
 * invalid date); the outputs hold what was read even when the date is
 * refused. */
DBAPI int DBStrDateTo3(int *year, int *month, int *day, char *text, int style);
/* Date string to day number: DBStrDateTo3, then DBDate3ToLong. A blank
 * date gives -215. 0, -221, -212, -215. */
DBAPI int DBStrDateToLong(int32_t *day, char *text, int style);
/* Date string to its day of the week (0 = Sunday): DBStrDateToLong, then
 * DBLongDateToDayOfWeek. 0, -221, -212, -215 (also for a blank date). */
DBAPI int DBStrDateToIntDayWeek(int *dow, char *text, int style);
/* Date string to the name of its day of the week ("Sunday".."Saturday",
 * name holds 10 bytes). 0, -221, -212, -215 (also for a blank date). */
DBAPI int DBStrDateToDayOfWeek(char *name, char *text, int style);
/* Date string to the name of its month ("January".."December", name holds
 * 10 bytes). 0, -221, -212, -215 (also for a blank date). */
DBAPI int DBStrDateToMonth(char *name, char *text, int style);
/* A date string from instyle to outstyle: DBStrDateTo3, then DBDate3ToStr.
 * 0, -221, -212, -215 (also for a blank date). */
DBAPI int DBConvertDateStr(char *out, int outstyle, char *in, int instyle);
/* The name of day of the week 0..6 (0 = "Sunday"; name holds 10 bytes).
 * 0, -221, -215 (dow out of range). */
DBAPI int DBDayOfWeek(char *name, int dow);
/* Absolute difference in day numbers of two date strings, each in its own
 * style. The output is checked first. 0, -221, -212, -215 (also for a
 * blank date). */
DBAPI int DBDaysBetweenStr(int32_t *days, char *text1, int style1, char *text2, int style2);
/* Today's local date as a date string in style 1..15. 0, -221, -212. */
DBAPI int DBGetDateStr(char *out, int style);
/* 1 when the year of a date string is a leap year, else 0; the parser's
 * negative status when the text is refused. A blank date has year 0 and
 * gives 1 (DBerrno then holds 202). */
DBAPI int DBIsStrLeapYear(char *text, int style);
/* The name of month 1..12 ("January".."December"; name holds 10 bytes).
 * 0, -221, -215 (month out of range). */
DBAPI int DBMonthToStr(char *name, int month);
/* Days in the month of a date string: DBStrDateTo3, then DBDaysInMonth.
 * 0, -221, -212, -215 (also for a blank date, whose year 0 is refused). */
DBAPI int DBDaysInMonthStr(int *days, char *text, int style);
/* Make style 1..15 the default date style (DBdate_style): 0, DBerrno left
 * alone. Any other style: -212 in DBerrno, not logged, default unchanged. */
DBAPI int DBSetDefaultDateStyle(int style);
/* The default date style and its name ("Gregorian (mm/dd/yy)" ..., name
 * holds 23 bytes): 0, DBerrno left alone. -221 for a NULL output and -212
 * when DBdate_style names no style (before DBInitialize; name is then
 * empty), both stored in DBerrno and not logged. */
DBAPI int DBGetDefaultDateStyle(int *style, char *name);
/* The status DBStrDateTo3 gives for the text: 0, 202 (blank date), -221,
 * -212 or -215. */
DBAPI int DBIsValidDateStr(char *text, int style);

/* ------------------------------------------------------------------------
 * Times: style 1 "hh:mm:ss" (8 characters), style 2 "hhmm" (4 characters,
 * seconds 0). Time texts travel in caller buffers of 9 bytes. Statuses:
 * -221 for a NULL pointer, -216 for a bad time, -212 for a style other
 * than 1 or 2; failures are logged.
 * ------------------------------------------------------------------------ */

/* Hour 0..23, minute 0..59, second 0..59 to a time text. The time is
 * checked before the style. 0, -221, -216, -212. */
DBAPI int DBTime3ToStr(char *out, int style, int hour, int minute, int second);
/* The local time of day; hundredths is always 0. 0, -221 when any output
 * is NULL. */
DBAPI int DBGetTime3(int *hour, int *minute, int *second, int *hundredths);
/* Time text to a triple. The text is accepted only when it is exactly the
 * canonical print of the values read ("09:05:00", "0930"); in style 1 a
 * leading blank may stand for the hour's leading zero. The outputs hold
 * what was read even when the text is refused. 0, -221, -212, -216 (wrong
 * length, missing colon, not canonical, out of range). */
DBAPI int DBStrTimeTo3(int *hour, int *minute, int *second, char *text, int style);
/* Absolute difference in seconds between two time texts, each in its own
 * style. Both texts are parsed before the output is checked, so a bad text
 * is reported even with a NULL output. 0, -216, -212, then -221. */
DBAPI int DBSecondsBetweenStr(int32_t *seconds, char *text1, int style1, char *text2, int style2);
/* The local time of day as a time text in style 1 or 2. 0, -221, -212. */
DBAPI int DBGetTimeStr(char *out, int style);
/* The status DBStrTimeTo3 gives for the text: 0, -221, -212 or -216. */
DBAPI int DBIsValidTimeStr(char *text, int style);

/* ------------------------------------------------------------------------
 * Indexes: what every family shares
 *
 * Keys travel as NUL-terminated strings in buffers of at least key length
 * + 1 bytes; every call that hands a key back writes exactly the key length
 * and a NUL. Record numbers are 32-bit, 0 names no record. Navigation
 * returns 0, 202 (empty index), 203 (a move ran off an end: the position
 * stays on the first or last key) or 204 (a search found no such key).
 * NULL pointers give -221, wrong handles -213.
 * ------------------------------------------------------------------------ */

/* What a whole-tree check found (DBclCheckIndex and its twins): msg is ""
 * when the tree is sound, else its first problem in words. */
typedef struct DBINDEXCHECK {
    char msg[160];
    int32_t keys;   /* entries walked in order */
    int32_t pages;  /* pages of the tree */
    int32_t free;   /* pages on the free list */
    int height;     /* levels, root to leaves */
} DBINDEXCHECK;

/* ------------------------------------------------------------------------
 * NTX indexes (Clipper, Harbour's DBFNTX): single-key B-trees of 1024-byte
 * pages. Locks: the write lock is byte 1,000,000,000, the read lock byte
 * 2,147,483,647 (both length 1), as Clipper and Harbour place them.
 * ------------------------------------------------------------------------ */

/* How an NTX index is open (DBclGetIndexInfo). */
typedef struct DBCLINDEXINFO {
    char fname[512];  /* the name it was opened with */
    int keylen;       /* key length */
    int keytype;      /* '?': an NTX header does not record the key type */
    int keydpl;       /* decimals of a numeric key */
    int keyfmt;       /* 128 unique, + 256 when the expression begins DESCEND */
    int exprlen;      /* length of the key expression */
    char expr[100];   /* the expression; one of 100 bytes or more is cut
                         without a terminator */
    int lockt;        /* 4 while this process holds the index lock */
    DBOPENFLAGS flags;
} DBCLINDEXINFO;

/* Open an NTX index; *handle receives its handle (-1 on failure). mode:
 * access code 0, 5 or 6 in the low byte (else -218) | DBO_READONLY,
 * DBO_FLUSH (write-through: 3 page buffers, every change written at once),
 * DBO_SHARED, DBO_AUTOLOCK (adds DBO_FLUSH and DBO_SHARED; adds and deletes
 * then take the write lock themselves; dropped with DBO_READONLY),
 * DBO_UNBUFFERED (write-through). The header is checked in this order:
 * key length 1..200 (-223), item length = key length + 8 (-224), root a
 * page inside the file (-225), keys per page as the format computes them
 * (-226), half of that as the minimum (-244), a terminated expression
 * (-207). 207 when the file length is not a multiple of 1024 (the index is
 * open). -221 NULL argument, -214 a name of 512 characters or more, the
 * file layer's open errors. */
DBAPI int DBclOpenIndex(short *handle, char *filename, int mode);
/* Write what is pending (not for write-through indexes), release the lock,
 * close and free the handle. A failure keeps the handle open. */
DBAPI int DBclCloseIndex(int handle);
/* Write an empty NTX file and close it. keytype: 'C' (keylen 1..200), 'N'
 * (keylen 1..19, decimals 0 or up to keylen - 2 and below 16), 'D' (keylen
 * and decimals are set to 8 and 0); lower case accepted; | 0x80 for a
 * unique index. Blanks are removed from expr, which is stored upper-cased
 * (255 characters at most, else -207). -221 NULL, -222 key type, -223 key
 * length, -230 decimals, -214 name too long, file-layer errors. */
DBAPI int DBclCreateIndex(char *filename, int keytype, char *expr, int keylen, int decimals);
/* Create the index as DBclCreateIndex does and fill it with the key of
 * every record of the open table (deleted records included), in one pass:
 * keys are sorted in memory (beyond the sort budget, in runs through a
 * temporary "STKS<n>.TMP" beside the index) and written as full pages.
 * Equal keys come in ascending record order; a unique index keeps the
 * first record of each key. Changes pending in the table's cache are
 * written first; a shared table's locks are released at the end. On
 * failure the index file is removed. */
DBAPI int DBclBuildIndex(int table, char *filename, int keytype, char *expr, int keylen, int decimals);
/* Add key (cut or blank-padded to the key length) for record recno. 211
 * when the entry is there already (a unique index: the key; otherwise the
 * key with this record), -236 on a read-only index. Equal keys of a
 * non-unique index are kept in the order they were added. The current
 * position is lost. */
DBAPI int DBclAddKey(int handle, char *key, int32_t recno);
/* Remove key for record recno (a unique index: the key, whatever its
 * record). 204 when there is no such entry, 202 when the index is empty,
 * -236 read-only. The current position is lost. */
DBAPI int DBclDeleteKey(int handle, char *key, int32_t recno);
/* Search. key: the text to find (a shorter one is a prefix search; on
 * return it holds the key reached); *recno: the record for mode 2, and the
 * record reached on return. Modes: 1 (and any other) the first key equal
 * over the text's length; 2 that key with record *recno; 11 the last key
 * below the text; 12 the key, or the one before it; 13 as 1, never 203;
 * 14 the key, or the first one above it; 15 the first key above it. A
 * failed search leaves the position on the greatest key below the text (or
 * on the first key, with 203 in modes 1 and 2). Results: 0, 202, 203, 204
 * (see each mode). */
DBAPI int DBclKeySearch(int handle, char *key, int32_t *recno, int mode);
/* Move to the first, last, next or previous key, or report the current
 * one; next and previous without a position go to the first and last key.
 * DBclGetCurrentKey gives 204 when there is no current key. A shared
 * write-through index keeps its place by key between calls, since its
 * pages are not kept. */
DBAPI int DBclGoFirstKey(int handle, char *key, int32_t *recno);
DBAPI int DBclGoLastKey(int handle, char *key, int32_t *recno);
DBAPI int DBclGoNextKey(int handle, char *key, int32_t *recno);
DBAPI int DBclGoPreviousKey(int handle, char *key, int32_t *recno);
DBAPI int DBclGetCurrentKey(int handle, char *key, int32_t *recno);
/* The key of the table's current record by the index's expression, in a
 * block *key the caller frees with DBFreeMemory (NULL on failure).
 * Character results are handed back as evaluated. Dates become "yyyymmdd"
 * (an empty date eight blanks); the evaluator gives them in the default
 * date style, so with a two-digit-year style a 1970 date becomes a 2070 key:
 * initialise with a four-digit style when dates before 2000 matter.
 * Numbers are printed "%0<keylen>.<decimals>f": zero-padded text, and a
 * negative number as plain text with a leading minus. That is not how
 * Clipper and Harbour store negative numeric keys (complemented, as
 * DBclDoubleToKey does): in an index shared with them, keys of negative
 * numbers sort among themselves by their text (-1.00 before -9.00), and
 * keys of ours and theirs for the same negative number differ. -207 for a
 * result that is neither text, date nor number. */
DBAPI int DBclMakeKey(int table, int handle, char **key);
/* A number in the index's complemented numeric key form: key length and
 * decimals from the index; digits beyond its decimals are cut; a negative
 * number has every character but the point replaced by 92 - character, so
 * byte order is numeric order. key needs key length + 1 bytes. */
DBAPI int DBclDoubleToKey(int handle, char *key, double v);
/* The value of a numeric key of either form. */
DBAPI int DBclKeyToDouble(double *v, char *key);
/* A date in style `style` to its "yyyymmdd" key. An empty date gives eight
 * blanks and a NUL at key[9] (key[8] is left as it was: keep buffers of 10
 * or more). The date layer's -212 and -215. */
DBAPI int DBclDateToKey(char *key, char *date, int style);
/* A "yyyymmdd" key to a date in style `style`. For a blank key the key
 * buffer is rewritten (eight blanks, NUL at key[9]) and date is left
 * untouched; 0. */
DBAPI int DBclKeyToDate(char *date, int style, char *key);
/* Where key (with record recno when it is not 0) lies in the index, as a
 * whole percentage of the way along: each level of the path to it counts
 * its position by the share of the tree one child position covers. The
 * status is the search's (204 when the key is not there: the percentage is
 * that of the key before it). */
DBAPI int DBclGetKeyPercent(int handle, int *percent, char *key, int32_t recno);
/* Move to the leaf key at `percent` (0..100, clamped) of the way along. */
DBAPI int DBclGetKeyAtPercent(int handle, int percent, char *key, int32_t *recno);
/* Index locks, on a shared index only (0 and nothing done otherwise). The
 * write lock (DBclLockIndex) is exclusive on byte 1,000,000,000; the read
 * lock (DBclRLockIndex) is shared on byte 2,147,483,647. Either rereads the
 * header after it is taken and does nothing when a lock is held already.
 * DBclUnLockIndex releases the write byte only: a read lock stays until the
 * file is closed. Lock statuses as for tables. */
DBAPI int DBclLockIndex(int handle);
DBAPI int DBclRLockIndex(int handle);
DBAPI int DBclUnLockIndex(int handle);
/* Write dirty pages and the header (its change counter goes up by one).
 * 208 on a write-through index, -236 read-only. */
DBAPI int DBclFlushIndex(int handle);
/* Reread the header (change counter, root, free list) and the file length
 * of a shared index; nothing for an exclusive one. */
DBAPI int DBclGetIndexHeader(int handle);
DBAPI int DBclGetIndexInfo(int handle, DBCLINDEXINFO *info);
/* The key expression with its NUL (up to 256 bytes). */
DBAPI int DBclGetIndexKeyExpr(int handle, char *expr);
/* Page buffers: op 1 gets the count into *size, op 0 sets it (above 2, else
 * -212; dirty pages are written before buffers go; 209 with the count
 * reached in *size when memory ran short). A write-through index keeps its
 * 3 buffers (0). Other ops -212. */
DBAPI int DBclGetSetCacheSize(int handle, short *size, int op);
/* Check the whole tree: every page reached once, page counts and offsets
 * sound, leaves at one depth, the free list outside the tree, keys in
 * order (and distinct in a unique index). strict also asks every page but
 * the root to be at least half full, as our own changes keep them (other
 * producers leave the right edge of a bulk-built tree short). 0 when
 * sound, -206 with the problem in check->msg. */
DBAPI int DBclCheckIndex(int handle, DBINDEXCHECK *check, int strict);

/* ------------------------------------------------------------------------
 * CDX compound indexes and IDX single indexes (FoxPro, Harbour's DBFCDX):
 * B+-trees of 512-byte pages; compact files (CDX, compact IDX) pack their
 * leaves, non-compact IDX files keep fixed items. Entries run by key bytes,
 * then by record number.
 *
 * Handles: a file handle names the file's slot 0 (the directory of a CDX
 * file, the index of an IDX file); a tag handle is (slot << 16) | file
 * handle, slots 1..127 holding the tags opened. Every call below that takes
 * a tag also takes a file handle (slot 0). -213 for a bad file handle, -248
 * for an empty slot.
 *
 * Keys travel in buffers of key length + 1 bytes: character keys as text
 * (blank-padded when stored), numeric and date keys as their 8 binary bytes,
 * logical keys as 'T' or 'F'; every key handed back is the key length and a
 * NUL. The file does not record a tag's key type: it is '?' (binary keys,
 * fill 0) until DBfpSetDefaultKeyType names it, DBfpMakeKey or a build
 * learns it from the key expression, or DBfpCreateTag gives it; adds and
 * deletes refuse an unknown type (-222).
 *
 * Open modes: low byte 0, 3, 4 or 8 (else -218) | DBO_READONLY, DBO_FLUSH
 * (write-through: every change written at once, 4 page buffers),
 * DBO_SHARED, DBO_AUTOLOCK (adds DBO_FLUSH and DBO_SHARED; adds and deletes
 * take the lock themselves; dropped with DBO_READONLY), DBO_UNBUFFERED
 * (write-through). Locks: one byte, 0x7FFFFFFE in compact files and
 * 0x40000000 in non-compact IDX files. A shared file that this process has
 * not locked keeps no page between calls: every call reads what other
 * processes wrote, and a tag finds its place again by its current key.
 * ------------------------------------------------------------------------ */

/* How a CDX file is open (DBfpGetIndexInfo). */
typedef struct DBFPINDEXINFO {
    int usedtags;      /* slots open, slot 0 included */
    DBOPENFLAGS flags;
    char fname[80];    /* the name it was opened with, cut to 79 characters */
    int lockt;         /* 4 while this process holds the index lock */
} DBFPINDEXINFO;

/* An IDX file, or one tag (DBfbGetIndexInfo). */
typedef struct DBFBINDEXINFO {
    char fname[80];
    DBOPENFLAGS flags;
    int keylen;
    int keytype;       /* 'C', 'N', 'D', 'L', or '?' while unknown */
    int keyfmt;        /* 128 unique, + 256 descending order */
    int ftype;         /* the header's options byte: 0x01 unique, 0x08 FOR,
                          0x20 compact, 0x40 compound, 0x80 directory */
    int lockt;
    int exprlen;
    char expr[220];    /* an expression of 220 characters is cut without NUL */
    char forexpr[257];
} DBFBINDEXINFO;

/* Where a key would go in a compact leaf (DBfpFIndInsertPosition): index of
 * the first entry whose key is not below the key (key length bytes, padded
 * with the fill), or the entry count; keyarea: the offset where the key area
 * begins; before / after: bytes of stored keys of the entries before index
 * and from index on. */
typedef struct DBFPINSERTPOS {
    int index;
    int keyarea;
    int before;
    int after;
} DBFPINSERTPOS;

/* The 6-byte work buffer of a packed leaf entry. */
typedef union DBCDXITEM {
    unsigned char keydupcnt[6];
    int32_t keyrecnum;
} DBCDXITEM;

/* Working cursors of the compact-leaf routines: the entry decoded last, the
 * start of its stored key bytes, its duplicate and trailing counts and
 * stored length, whether DBfpGetDupTrail found a node's first key, and the
 * entry DBfpBuildDupTrail packed. */
DBAPI extern char *DBfpib;
DBAPI extern char *DBfpkt;
DBAPI extern int16_t DBfpdup;
DBAPI extern int16_t DBfptrail;
DBAPI extern int16_t DBfplen;
DBAPI extern int16_t DBfpnodup;
DBAPI extern DBCDXITEM DBfpitem;

/* Open a CDX or IDX file and its slot 0 (type 8 packet; DBfbOpenIndex: type
 * 6, the same otherwise). The header is checked in this order: key length
 * 1..200 (-223); compact: expression lengths that fit the pool, a NUL in
 * each, 220 characters at most, and a key expression unless the tag is the
 * directory (-207); non-compact: the same for the 220-byte area; the root a
 * page inside the file (-225). 207 when a non-compact file's recorded end
 * differs from its length (it is open). -221 NULL, -214 name of 512
 * characters or more, -218 access code, file-layer errors; *handle is -1
 * on failure. */
DBAPI int DBfpOpenIndex(int *handle, char *filename, int mode);
DBAPI int DBfbOpenIndex(int *handle, char *filename, int mode);
/* Open the CDX tag `name` (1..10 characters, any case; else -250) into the
 * first free slot: -257 when it is open already, -252 when no slot is free,
 * -250 when the directory has no such tag or the file is an IDX. */
DBAPI int DBfpOpenNamedTag(int *tag, int handle, char *name);
/* Open the n-th tag in order of creation (1-based) into slot n: -254 for a
 * number outside 1..127 or beyond the tags; 0 without touching *tag when
 * slot n is open already; -257 when the tag is open in another slot. */
DBAPI int DBfpOpenTag(int *tag, int handle, int number);
/* Write what is pending and free one tag (not slot 0: -248). */
DBAPI int DBfpCloseTag(int tag);
/* Write what is pending, release the lock, close every tag and the file. A
 * failed write keeps the handle open. */
DBAPI int DBfpCloseIndex(int handle);
DBAPI int DBfbCloseIndex(int handle);
/* The index lock, on a shared file only (0 and nothing done otherwise, or
 * when held already): type 0 exclusive, 2 shared (else -212). Taking it
 * rereads the header and every open tag's root and forgets the cached
 * pages; releasing it writes what is pending first. srcfile and line only
 * feed the debug trace (NULL and 0 are fine). DBfbLockIndex takes type 0. */
DBAPI int DBfpLockIndex(int handle, int type, char *srcfile, int line);
DBAPI int DBfpUnLockIndex(int handle, char *srcfile, int line);
DBAPI int DBfbLockIndex(int handle);
DBAPI int DBfbUnLockIndex(int handle);
/* Write every tag's dirty pages and roots and the file header (the change
 * counter of a compact file goes up by one). 208 write-through, -236
 * read-only. */
DBAPI int DBfpFlushIndex(int handle);
DBAPI int DBfbFlushIndex(int handle);
/* Reread the file header and the tag's root. */
DBAPI int DBfpGetIndexHeader(int handle);
DBAPI int DBfbGetIndexHeader(int handle);
/* Count a change: the compact file's counter, big-endian at offset 8, goes
 * up by one and is written (nothing for non-compact files). -236 read-only. */
DBAPI int DBfpPutIndexHeader(int handle);
/* Page buffers of a tag: op 1 gets the count into *size, op 0 sets it
 * (above 2, else -212; dirty pages are written before buffers go; 209 with
 * the count reached when memory ran short). Other ops -212. */
DBAPI int DBfpGetSetCacheSize(int tag, short *size, int op);
DBAPI int DBfbGetSetCacheSize(int handle, short *size, int op);
DBAPI int DBfpGetIndexInfo(int handle, DBFPINDEXINFO *info);
DBAPI int DBfbGetIndexInfo(int handle, DBFBINDEXINFO *info);
/* The tag's key expression with its NUL (up to 221 bytes). */
DBAPI int DBfpGetIndexKeyExpr(int tag, char *expr);
DBAPI int DBfbGetIndexKeyExpr(int handle, char *expr);
/* 1 when the tag used last is compact, else 0. */
DBAPI int DBfbCompressedIndex(void);
/* Name the tag's key type: 'C' (fill ' '), 'N', 'D', 'L' (fill 0); lower
 * case accepted; else -222. */
DBAPI int DBfpSetDefaultKeyType(int tag, int type);
DBAPI int DBfbSetDefaultKeyType(int handle, int type);

/* Compact-leaf routines on a leaf page the caller holds (512 bytes), with
 * the tag's key length and fill. -206 when the page is no sound compact
 * leaf. DBfpGetCurKeyFromPage decodes the entry after DBfpib into key (key
 * length + 1 bytes, updated in place from the key before it) and *recno;
 * set DBfpib to NULL to start at entry 0. An entry whose record number is 0
 * is passed over (key unchanged, *recno 0). 203 after the last entry, -212
 * when the cursors do not lie in this page. */
DBAPI int DBfpGetCurKeyFromPage(int tag, char *page, char *key, int32_t *recno);
/* The key and record at the tag's position, decoded from its page. 204 when
 * the tag has no position. */
DBAPI int DBfpGetKeyFromPage(int tag, char *key, int32_t *recno);
/* DBfpdup, DBfptrail, DBfplen of key following prev; first != 0 when key is
 * to be its node's first (DBfpnodup is then set, and the duplicate count is
 * 0 but for the classic blank-run exception). */
DBAPI int DBfpGetDupTrail(int tag, char *prev, char *key, int first);
/* Pack DBfpdup, DBfptrail and a record number into DBfpitem with the
 * page's widths: recno in file (big-endian) byte order, or in host order
 * (DBfpBuildDupTrail2). */
DBAPI int DBfpBuildDupTrail(int tag, char *page, int32_t recno);
DBAPI int DBfpBuildDupTrail2(int tag, char *page, int32_t recno);
/* Where the next key's stored bytes would end (page + 512 - the stored
 * lengths), and the sum of the stored lengths. */
DBAPI int DBfpCalculateNextKeyPositionInBuffer(int tag, char *page, char **at);
DBAPI int DBfpCalculateCurrentKeyLengthsInBuffer(int tag, char *page, int *sum);
DBAPI int DBfpFIndInsertPosition(int tag, char *page, char *key, DBFPINSERTPOS *pos);
/* Print the leaf through the host's vorn_debugf (nothing when the host has
 * none): its header fields, each raw entry and each decoded key. */
DBAPI int DBfpDumpLeaf(int tag, char *page);

/* The key of the table's current record by the tag's expression, into key
 * (key length + 1 bytes): text blank-padded or cut, numbers and dates in
 * their binary forms, logicals 'T'/'F'. Dates come from the evaluator in
 * the default date style: initialise with a four-digit-year style when
 * dates before 2000 matter. Sets an unknown key type; -207 when the result
 * is of another type than the tag's, -223 for a numeric or date result in a
 * key that is not 8 bytes. */
DBAPI int DBfpMakeKey(int table, int tag, char *key);
DBAPI int DBfbMakeKey(int table, int handle, char *key);
/* A double as an 8-byte key: big-endian, sign bit set for a positive
 * number, all bits inverted for a negative one. key: 9 bytes. */
DBAPI int DBfpDoubleToKey(char *key, double v);
DBAPI int DBfpKeyToDouble(double *v, char *key);
DBAPI int DBfbDoubleToKey(char *key, double v);
DBAPI int DBfbKeyToDouble(double *v, char *key);
/* A date in the default style as the key of its day number, counted as
 * FoxPro keys count it (the Julian day number from 1901 on); an empty date
 * is day 0. Back: the date in the default style, "" for day 0, -215 for a
 * key that is no date. */
DBAPI int DBfpDateToKey(char *key, char *date);
DBAPI int DBfpKeyToDate(char *date, char *key);
DBAPI int DBfbDateToKey(char *key, char *date);
DBAPI int DBfbKeyToDate(char *date, char *key);
/* Search. key: the text (a shorter character text is a prefix; on return
 * the key reached); *recno: the record for mode 2, and the record reached.
 * The search ends on the first entry at or after the key (mode 3 and 15:
 * after every equal key). Results, with "past" a key above every entry (the
 * position is then on the last one):
 *   1, 2, 3 and other modes below 11: 0 found, 204 not found or past;
 *   11: found: the entry before it (0, or 203 with none before); not found:
 *       0 on the greater entry; past: 203;
 *   12: 0 on the key or the greater entry; past: 203;
 *   13: 0, 204, or 203 past;
 *   14: found: 0; not found: the entry after the greater one (0, or 203);
 *       past: 0;
 *   15: 204 on the first entry above the key; past: 0;
 *   16 and up: method 1, result as found (0, 204, 203).
 * 202 for an empty tag. */
DBAPI int DBfpKeySearch(int tag, char *key, int32_t *recno, int mode);
DBAPI int DBfbKeySearch(int handle, char *key, int32_t *recno, int mode);
/* Move to the first, last, next or previous entry, or report the current
 * one; next and previous without a position go to the first and last
 * entry; 203 at an end (the position stays), 202 empty; DBfpGetCurrentKey
 * gives 204 without a position. */
DBAPI int DBfpGoFirstKey(int tag, char *key, int32_t *recno);
DBAPI int DBfpGoLastKey(int tag, char *key, int32_t *recno);
DBAPI int DBfpGoNextKey(int tag, char *key, int32_t *recno);
DBAPI int DBfpGoPreviousKey(int tag, char *key, int32_t *recno);
DBAPI int DBfpGetCurrentKey(int tag, char *key, int32_t *recno);
DBAPI int DBfbGoFirstKey(int handle, char *key, int32_t *recno);
DBAPI int DBfbGoLastKey(int handle, char *key, int32_t *recno);
DBAPI int DBfbGoNextKey(int handle, char *key, int32_t *recno);
DBAPI int DBfbGoPreviousKey(int handle, char *key, int32_t *recno);
DBAPI int DBfbGetCurrentKey(int handle, char *key, int32_t *recno);
/* Where the current entry lies, as a whole percentage: 0 at the first entry,
 * 100 at the last (204 and 0 without a position). And the move to the
 * entry at a percentage (clamped to 0..100). */
DBAPI int DBfpGetKeyPercent(int tag, int *percent);
DBAPI int DBfpGetKeyAtPercent(int tag, int percent, char *key, int32_t *recno);
DBAPI int DBfbGetKeyPercent(int handle, int *percent);
DBAPI int DBfbGetKeyAtPercent(int handle, int percent, char *key, int32_t *recno);

/* Add (key, recno): character keys blank-padded (-223 when longer than the
 * key), other keys the key length in bytes. 211 when the entry is there
 * already (a unique tag: the key). -204 for a record number below 1, -236
 * read-only, -222 unknown key type. Deletes remove exactly (key, recno): 204
 * when it is not there. Both lose the tag's position. */
DBAPI int DBfpAddKey(int tag, char *key, int32_t recno);
DBAPI int DBfpDeleteKey(int tag, char *key, int32_t recno);
DBAPI int DBfbAddKey(int handle, char *key, int32_t recno);
DBAPI int DBfbDeleteKey(int handle, char *key, int32_t recno);
/* A new compound file holding only its (empty) directory. */
DBAPI int DBfpCreateIndex(char *filename);
/* A new IDX file: mode = key type letter ('C', 'N', 'D', 'L'; lower case
 * accepted; else -222) | 0x80 unique | 0x400 compact (without 0x400 or 0x800:
 * non-compact; 0x800 alone makes a compound file like DBfpCreateIndex).
 * keylen: 1..200 for 'C' (else -223); 'N' and 'D' take 8, 'L' 1. expr: the
 * key expression (leading blanks dropped, single quotes made double; 220
 * characters at most, else -207); forexpr: a FOR expression or NULL. */
DBAPI int DBfbCreateIndex(char *filename, int mode, char *expr, int keylen, char *forexpr);
/* Add a compact tag (options 0x60, | 0x01 unique, | 0x08 FOR) to an open
 * CDX file, as DBfbCreateIndex describes its arguments; tagname 1..10
 * characters (-250), stored upper case; -257 when the tag exists. */
DBAPI int DBfpCreateTag(int handle, char *tagname, int mode, char *expr, int keylen, char *forexpr);
/* Remove a tag: its pages go to the free list, its entry leaves the
 * directory. -250 no such tag, -257 while it is open. */
DBAPI int DBfpDeleteTag(int handle, char *tagname);
/* Fill a tag (or an IDX file) from every record of the open table (deleted
 * records included; a FOR expression that reads as a logical keeps the
 * records where it is true): keys sorted in memory, beyond the sort budget
 * in runs through a temporary "STKS<n>.TMP" beside the index, then written
 * as full pages from the leaves up. A tag that holds keys is emptied first.
 * Equal keys come in record order; a unique tag keeps the first record of
 * each key. */
DBAPI int DBfpBuildIndex(int table, int tag);
DBAPI int DBfbBuildIndex(int table, int handle);
/* Write count items (key length bytes and a 4-byte big-endian record
 * number each, in any order) into the tag as DBfpBuildIndex writes keys. */
DBAPI int DBfpWriteKeys(int tag, char *items, int32_t count);
/* Check the whole tag: every page reached once and sound (counts, widths,
 * masks, stored lengths, free space), leaves at one depth, separators equal
 * to their child's last entry, sibling links at every level, the free list
 * outside the tree, entries in order (distinct keys in a unique tag).
 * strict also asks the separators' record numbers to match and every leaf
 * to use the widths this library writes. 0 when sound, -206 with the
 * problem in check->msg. */
DBAPI int DBfpCheckTag(int tag, DBINDEXCHECK *check, int strict);
DBAPI int DBfbCheckIndex(int handle, DBINDEXCHECK *check, int strict);

/* ------------------------------------------------------------------------
 * NDX indexes (dBASE III): single-key B+-trees of 512-byte blocks. Every
 * entry is in a leaf; an interior key is the greatest key of its child's
 * subtree. Character keys (key type 0) compare as unsigned bytes; numeric
 * and date keys (key type 1) are 8-byte little-endian doubles compared as
 * numbers, a date as its Julian day number (2451545 = 1 January 2000, an
 * empty date 0). Locks: the same bytes as NTX, the write lock on byte
 * 1,000,000,000 (exclusive) and the read lock on byte 2,147,483,647
 * (shared), both length 1.
 *
 * The operations mirror the NTX ones (DBcl...), with the same modes and
 * statuses, except where said. Keys of a numeric index travel as their 8
 * bytes (which may hold NULs: never take their length with strlen) and are
 * always compared whole; character keys as NUL-terminated text.
 *
 * Deleting keys: a node left without keys is unlinked from the tree; nodes
 * are not merged. NDX has no free list, so the blocks of unlinked nodes are
 * reused by later splits while the index stays open; those still unused at
 * close remain in the file, unreachable, until the index is built again.
 * ------------------------------------------------------------------------ */

/* How an NDX index is open (DBd3GetIndexInfo). */
typedef struct DBD3INDEXINFO {
    char fname[512];  /* the name it was opened with */
    int keylen;       /* key length (8 for numeric and date keys) */
    int keytype;      /* 'C' character keys, 'N' numeric or date keys */
    int itemlen;      /* bytes per item: key length + 8, rounded up to 4 */
    int maxkeys;      /* keys per node, as the header says */
    int unique;       /* 1 for a unique index */
    int32_t root;     /* block number of the root node */
    int32_t blocks;   /* blocks in the file, as the header says */
    int exprlen;      /* length of the key expression */
    char expr[488];   /* the expression, NUL-terminated */
    int lockt;        /* 4 while this process holds the index lock */
    DBOPENFLAGS flags;
} DBD3INDEXINFO;

/* Open an NDX index; *handle receives its handle (-1 on failure). mode as
 * for DBclOpenIndex (access code 0, 5 or 6, else -218; DBO_READONLY,
 * DBO_FLUSH, DBO_SHARED, DBO_AUTOLOCK, DBO_UNBUFFERED). The header is
 * checked in this order: key length 1..244 (-223), key type 0 or 1, and 8
 * bytes for type 1 (-222), item length = key length + 8 rounded up to a
 * multiple of 4 (-224), root a block inside the file (-225), keys per node
 * 2 .. (512 - 8) / item length (-226), a terminated, non-empty expression
 * (-207). 207 when the file length is not a multiple of 512 (the index is
 * open). -221 NULL argument, -214 a name of 512 characters or more, the
 * file layer's open errors. A shared index keeps its current key by value
 * and forgets its cached nodes whenever another process may have changed
 * them (the header has no change counter). */
DBAPI int DBd3OpenIndex(short *handle, char *filename, int mode);
/* Write what is pending, release the lock, close and free the handle. A
 * failure keeps the handle open. */
DBAPI int DBd3CloseIndex(int handle);
/* Write an empty NDX file (header and an empty root leaf) and close it.
 * keytype: 'C' (keylen 1..100), 'N' (decimals 0..15, else -230; keylen is
 * ignored: the key is an 8-byte double), 'D' (Julian day number, 8 bytes);
 * lower case accepted; | 0x80 for a unique index. Blanks are removed from
 * expr, which is stored upper-cased (1..255 characters, else -207). Maximum
 * keys per node = (512 - 8) / item length. -221 NULL, -222 key type, -223
 * key length, -214 name too long, file-layer errors. */
DBAPI int DBd3CreateIndex(char *filename, int keytype, char *expr, int keylen, int decimals);
/* Create the index as DBd3CreateIndex does and fill it with the key of
 * every record of the open table (deleted records included), sorted in
 * memory (beyond the sort budget, in runs through a temporary "STKS<n>.TMP"
 * beside the index) and written as full nodes, the last two of each level
 * evened out so that every node but the root is at least half full. Equal
 * keys come in ascending record order; a unique index keeps the first
 * record of each key. On failure the index file is removed. */
DBAPI int DBd3BuildIndex(int table, char *filename, int keytype, char *expr, int keylen, int decimals);
/* Add key for record recno (character keys cut or blank-padded to the key
 * length). 211 when the entry is there already (a unique index: the key;
 * otherwise the key with this record), -236 read-only. Equal keys of a
 * non-unique index are kept in the order they were added. The current
 * position is lost. */
DBAPI int DBd3AddKey(int handle, char *key, int32_t recno);
/* Remove key for record recno (a unique index: the key, whatever its
 * record). 204 when there is no such entry, 202 when the index is empty,
 * -236 read-only. The current position is lost. */
DBAPI int DBd3DeleteKey(int handle, char *key, int32_t recno);
/* Search, with the modes and results of DBclKeySearch: 1 (and any other)
 * the first key equal over the text's length (a shorter character key is a
 * prefix search; numeric keys are whole); 2 that key with record *recno;
 * 11 the last key below; 12 the key or the one before it; 13 as 1, never
 * 203; 14 the key or the first above; 15 the first key above. key holds the
 * key reached on return (key length + 1 bytes). */
DBAPI int DBd3KeySearch(int handle, char *key, int32_t *recno, int mode);
/* Move to the first, last, next or previous key, or report the current one
 * (204 when there is none); next and previous without a position go to the
 * first and last key; 203 when a move runs off an end. */
DBAPI int DBd3GoFirstKey(int handle, char *key, int32_t *recno);
DBAPI int DBd3GoLastKey(int handle, char *key, int32_t *recno);
DBAPI int DBd3GoNextKey(int handle, char *key, int32_t *recno);
DBAPI int DBd3GoPreviousKey(int handle, char *key, int32_t *recno);
DBAPI int DBd3GetCurrentKey(int handle, char *key, int32_t *recno);
/* The key of the table's current record by the index's expression, in a
 * block *key of key length + 1 bytes the caller frees with DBFreeMemory
 * (NULL on failure). A character index takes text (cut or blank-padded)
 * and dates as "yyyymmdd" (eight blanks when empty); a numeric index takes
 * numbers as their double and dates as their Julian day number. The
 * evaluator hands dates over in the default date style: initialise with a
 * four-digit style when dates before 2000 matter. -207 for a result the
 * index's key type cannot hold. */
DBAPI int DBd3MakeKey(int table, int handle, char **key);
/* A number as the key of a numeric index: 8 bytes (little-endian double, -0
 * as 0) and a NUL. -222 for a character index. */
DBAPI int DBd3DoubleToKey(int handle, char *key, double v);
/* The value of an 8-byte numeric key. */
DBAPI int DBd3KeyToDouble(double *v, char *key);
/* A date in style `style` to its key: the Julian day number as 8 bytes and
 * a NUL (an empty date gives 0). The date layer's -212 and -215. */
DBAPI int DBd3DateToKey(char *key, char *date, int style);
/* A date key to a date in style `style`; key 0 (an empty date) gives "".
 * -215 for a key that is no whole day of the years 1..9999. */
DBAPI int DBd3KeyToDate(char *date, int style, char *key);
/* Where key (with record recno when it is not 0) lies in the index, and
 * the leaf key at a percentage (0..100, clamped), as for NTX. */
DBAPI int DBd3GetKeyPercent(int handle, int *percent, char *key, int32_t recno);
DBAPI int DBd3GetKeyAtPercent(int handle, int percent, char *key, int32_t *recno);
/* Index locks, on a shared index only (0 and nothing done otherwise): the
 * write lock (DBd3LockIndex) is exclusive on byte 1,000,000,000, the read
 * lock (DBd3RLockIndex) shared on byte 2,147,483,647, length 1, the bytes
 * NTX uses. Either rereads the header after it is taken and does nothing
 * when a lock is held already. DBd3UnLockIndex releases the write byte
 * only: a read lock stays until the file is closed. */
DBAPI int DBd3LockIndex(int handle);
DBAPI int DBd3RLockIndex(int handle);
DBAPI int DBd3UnLockIndex(int handle);
/* Write dirty nodes and the header's root and block count. 208 on a
 * write-through index, -236 read-only. */
DBAPI int DBd3FlushIndex(int handle);
/* Reread the root, block count and file length of a shared index (its
 * cached nodes are forgotten unless it has changes of its own not yet
 * written); nothing for an exclusive one. */
DBAPI int DBd3GetIndexHeader(int handle);
DBAPI int DBd3GetIndexInfo(int handle, DBD3INDEXINFO *info);
/* The key expression with its NUL (up to 488 bytes). */
DBAPI int DBd3GetIndexKeyExpr(int handle, char *expr);
/* Node buffers, as DBclGetSetCacheSize: op 1 gets, op 0 sets (above 2). */
DBAPI int DBd3GetSetCacheSize(int handle, short *size, int op);
/* Check the whole tree: every node reached once and sound (a count that
 * fits the block, leaves without children and with record numbers,
 * interior nodes without child 0), leaves at one depth, nodes below the
 * root not empty, keys in order (and distinct in a unique index), and each
 * interior key not below its child's keys nor above the next child's
 * first. strict also asks each interior key to be exactly the greatest key
 * of its child, as dBASE keeps them and so do we, and no node to hold more
 * keys than the header allows. The blocks held for reuse must lie outside
 * the tree. 0 when sound, -206 with the problem in check->msg. */
DBAPI int DBd3CheckIndex(int handle, DBINDEXCHECK *check, int strict);

#ifdef __cplusplus
}
#endif

#endif /* XBFILES_H */
