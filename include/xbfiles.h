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
 * Status codes
 * ------------------------------------------------------------------------ */
#define DB_OK                 0
#define DBW_DELETED           201
#define DBW_EMPTY             202
#define DBW_NOMOREKEYS        203
#define DBW_KEYNOTFOUND       204
#define DBW_TRUNCATED         205
#define DBW_ROUNDED           206
#define DBW_BADFILELEN        207
#define DBW_UNBUFFERED        208
#define DBW_PARTIALALLOC      209
#define DBW_NOTSUPPORTED      210
#define DBW_EXISTS            211
#define DBW_FIELDEMPTY        212
#define DBE_WRITE             (-201)
#define DBE_READ              (-202)
#define DBE_NOMEMORY          (-203)
#define DBE_SEEK              (-204)
#define DBE_NOTFOUND          (-205)
#define DBE_CORRUPT           (-206)
#define DBE_BADEXPR           (-207)
#define DBE_NOHANDLES         (-208)
#define DBE_NOPAGES           (-209)
#define DBE_PAGENOTLOADED     (-210)
#define DBE_CLOSE             (-211)
#define DBE_BADCOMMAND        (-212)
#define DBE_BADHANDLE         (-213)
#define DBE_BADFILENAME       (-214)
#define DBE_BADDATE           (-215)
#define DBE_BADTIME           (-216)
#define DBE_NOTMEMO           (-217)
#define DBE_BADVERSION        (-218)
#define DBE_HDRLEN            (-219)
#define DBE_BADUPDATE         (-220)
#define DBE_NULLPARAM         (-221)
#define DBE_KEYTYPE           (-222)
#define DBE_KEYLEN            (-223)
#define DBE_ITEMLEN           (-224)
#define DBE_ROOTPAGE          (-225)
#define DBE_MAXKEYS           (-226)
#define DBE_NUMFIELDS         (-227)
#define DBE_FIELDNAME         (-228)
#define DBE_FIELDLEN          (-229)
#define DBE_DECIMALS          (-230)
#define DBE_FIELDTYPE         (-231)
#define DBE_RECLEN            (-232)
#define DBE_BADDATA           (-233)
#define DBE_MEMOLINE          (-234)
#define DBE_MDXFLAG           (-235)
#define DBE_READONLY          (-236)
#define DBE_LOCKVIOLATION     (-237)
#define DBE_SHAREOVERFLOW     (-238)
#define DBE_NOPATH            (-239)
#define DBE_ACCESS            (-240)
#define DBE_ACCESSCODE        (-241)
#define DBE_NOTLOCKED         (-242)
#define DBE_DISKCHANGED       (-243)
#define DBE_MINKEYS           (-244)
#define DBE_FILESOPEN         (-245)
#define DBE_OPEN              (-246)
#define DBE_FLUSH             (-247)
#define DBE_BADTAG            (-248)
#define DBE_PAGESIZE          (-249)
#define DBE_TAGNAME           (-250)
#define DBE_PAGEADDER         (-251)
#define DBE_MAXTAGS           (-252)
#define DBE_TAGELEMLEN        (-253)
#define DBE_TAGCOUNT          (-254)
#define DBE_KEYFORMAT         (-255)
#define DBE_SWITCH            (-256)
#define DBE_TAGINUSE          (-257)
#define DBE_GLOBALLOCK        (-258)
#define DBE_TASKLOOKUP        (-259)
#define DBE_LOCKOVERFLOW      (-260)
#define DBE_LOCKUNDERFLOW     (-261)

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

/* Create (truncate) path with mode 0777 less the umask. */
DBAPI int DBosCreateFile(int *fd, char *path);
/* Open path read-only (mode & 0x100) or read-write; sets m->shared and
 * m->read_only from the mode. Never creates. */
DBAPI int DBosOpenFile(int *fd, char *path, int mode, DBOMODE *m);
DBAPI int DBosCloseFile(int fd);
/* Read len bytes; any count other than len is -202. */
DBAPI int DBosReadData(int fd, void *buf, int len);
/* Write len bytes; a short write is -201 (not logged). */
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
/* Writes reach the system at once: returns DBerrno. */
DBAPI int DBosFlushFile(int fd);
/* Byte-range lock: type 0 exclusive, 2 shared, anything else unlock. Tried
 * DBlock_retry times, each refusal followed by a one-second sleep (one try,
 * no sleep, for 0). start and len are unsigned 32-bit file addresses. */
DBAPI int DBosLockData(int fd, int type, int32_t start, int32_t len);
/* 1 when the process lock table holds exactly this exclusive lock. */
DBAPI int DBosTestLock(int fd, int32_t start, int32_t len);

/* ------------------------------------------------------------------------
 * DBF tables
 * ------------------------------------------------------------------------ */

/* Open a table. mode: style (low byte) | DBO_* bits. 207 when the file
 * length disagrees with the header (the table is open). */
DBAPI int DBOpenFile(int *handle, char *filename, int mode);
/* Write pending changes, release locks, close and free the handle. */
DBAPI int DBCloseFile(int handle);
DBAPI int DBGetFileInfo(int handle, DBFILEINFO *info);
/* The header's last-update date as text in a date style. */
DBAPI int DBGetLastUpdate(int handle, char *buf, int style);

/* Read record recno into the record buffer; 201 if it is marked deleted. */
DBAPI int DBGetRecord(int handle, int32_t recno);
/* As DBGetRecord; buf (if not NULL) receives the deletion byte and every
 * field converted: 'C' text+NUL, 'D' 11-byte date text, 'N'/'F' double,
 * 'I'/'M' int32, others raw. */
DBAPI int DBGetRecordToBuffer(int handle, char *buf, int32_t recno);
/* Write the record buffer: how = DB_APPEND (0; *recno receives the new
 * number) or DB_REWRITE (256; record *recno). */
DBAPI int DBPutRecord(int handle, int32_t *recno, int how);
DBAPI int DBPutRecordFromBuffer(int handle, char *buf, int32_t *recno, int how);
/* Mark record recno deleted ('*') or active (' '). */
DBAPI int DBMarkRecordInActive(int handle, int32_t recno);
DBAPI int DBMarkRecordActive(int handle, int32_t recno);
/* 1 when the current record is marked deleted, else 0. */
DBAPI int DBIsRecordDeleted(int handle);
/* Write cached changes, the header date and count, and the end mark. */
DBAPI int DBFlushFile(int handle);
/* get = 1: *nrecs = cache capacity; get = 0: set it. */
DBAPI int DBGetSetCacheSize(int handle, int *nrecs, int get);
/* *bfr receives the record buffer's address; the buffer is cleared to
 * spaces, ready for a record to be built in place. */
DBAPI int DBSetBufferAddress(int handle, char **bfr);
/* Fill the record buffer with spaces. */
DBAPI int DBClearBuffer(int handle);
DBAPI int DBGetRecordInfo(int handle, DBRECINFO *info);
DBAPI int DBGetRecordNumber(int handle, int32_t *recno);
/* Record count (a shared table rereads its header first). */
DBAPI int DBGetRecordCount(int handle, int32_t *count);
/* 1 when the current record is the first / last (or the table is empty). */
DBAPI int DBIsBeginningOfFile(int handle);
DBAPI int DBIsEndOfFile(int handle);

/* Field access on the current record (fields count from 0). */
DBAPI int DBGetFieldData(int handle, int field, void *out);
DBAPI int DBGetStrField(int handle, int field, char *out);
DBAPI int DBGetNamedData(int handle, char *name, void *out);
DBAPI int DBGetNamedStr(int handle, char *name, char *out);
DBAPI int DBPutFieldData(int handle, int field, void *in);
DBAPI int DBPutStrField(int handle, int field, char *in);
DBAPI int DBPutNamedData(int handle, char *name, void *in);
DBAPI int DBPutNamedStr(int handle, char *name, char *in);
/* Field number of a name (case ignored); -228 and *number = field count
 * when there is none. */
DBAPI int DBGetFieldNumber(int handle, int *number, char *name);
DBAPI int DBGetFieldName(int handle, char *name, int field);
DBAPI int DBGetFieldDescription(int handle, int field, DBFIELD *desc);
DBAPI int DBGetFileDescription(int handle, int *count, DBFIELD *desc);
/* 1 when the field is all spaces, else 0. */
DBAPI int DBIsFieldBlank(int handle, int field);
DBAPI int DBIsNamedBlank(int handle, char *name);

/* Write a new empty table (styles 0..9; 0x200 sets the production-index
 * flag). Rewrites the caller's array: names upper-cased, fixed lengths set. */
DBAPI int DBCreateFile(char *filename, int nfields, DBFIELD *fields, int mode);

/* Locks between processes, at the addresses of the table's style. */
DBAPI int DBLockFile(int handle);
DBAPI int DBLockHeader(int handle);
DBAPI int DBLockAppend(int handle);
DBAPI int DBLockRecord(int handle, int32_t recno);
DBAPI int DBUnLockRecord(int handle, int32_t recno);
DBAPI int DBUnLockHeader(int handle);
DBAPI int DBUnLockAll(int handle);
/* 1 when this process holds the record's lock, else 0. */
DBAPI int DBIsRecordLocked(int handle, int32_t recno);
DBAPI int DBReadLockFile(int handle);
DBAPI int DBReadLockHeader(int handle);
DBAPI int DBReadLockRecord(int handle, int32_t recno);
/* Up to max entries of the locks held on the table; *count receives the
 * number of locks held. */
DBAPI int DBGetLockInfo(int handle, DBFILELOCKS *list, int max, int *count);

/* Remove deleted records; the table is reopened and its handle stored back. */
DBAPI int DBPackFile(int *handle);

/* ------------------------------------------------------------------------
 * FPT memo files (FoxPro)
 * ------------------------------------------------------------------------ */
DBAPI int DBfpCreateMemo(char *path, int code);
DBAPI int DBfpOpenMemo(int *handle, char *path, int mode);
DBAPI int DBfpCloseMemo(int handle);
DBAPI int DBfpGetMemoHeader(int handle);
DBAPI int DBfpGetMemoInfo(int handle, DBFPMEMOINFO *info);
DBAPI int DBfpLockMemo(int handle);
DBAPI int DBfpUnLockMemo(int handle);
DBAPI int DBfpGetMemoType(int handle, int32_t block, int32_t *length, int *binary);
DBAPI int DBfpGetMemoRecord(int handle, int32_t block, char **out, int32_t maxlen, int flags);
DBAPI int DBfpGetMemoToBuffer(int handle, int32_t block, char *buf, int32_t maxlen, int flags);
DBAPI int DBfpPutMemoRecord(int handle, int32_t *block, char *data, int32_t total, int32_t piece, int flags);
DBAPI int DBfpPackMemo(int dbf, int *memo);

/* ------------------------------------------------------------------------
 * DBT memo files (dBASE III and IV)
 * ------------------------------------------------------------------------ */
DBAPI int DBxbCreateMemo(char *path, int blocks, int version);
DBAPI int DBxbOpenMemo(int *handle, char *path, int mode);
DBAPI int DBxbCloseMemo(int handle);
DBAPI int DBxbGetMemoHeader(int handle, DBDBTHDR *hdr);
DBAPI int DBxbGetMemoInfo(int handle, DBXBMEMOINFO *info);
DBAPI int DBxbLockMemo(int handle);
DBAPI int DBxbUnLockMemo(int handle);
DBAPI int DBxbGetMemoRecord(int handle, int32_t block, char **out, int option);
DBAPI int DBxbPutMemoRecord(int handle, int32_t *block, char *text, int option);
DBAPI int DBxbPackMemo(int dbf, int *memo);

/* ------------------------------------------------------------------------
 * Key-expression evaluator
 * ------------------------------------------------------------------------ */
DBAPI int DBEvaluateStr(int32_t table, char *expr, DBEVAL *out);
DBAPI int DBProcessTable(void);
DBAPI int DBGetValue(int16_t *out);
DBAPI int DBAddParseEntry(char *name, DBPTEF f);
DBAPI int DBDeleteParseEntry(char *name);
DBAPI int DBGetEntryStr(char *name, int row);
DBAPI int DBGetTableInfo(int *rows, int *longest);

/* ------------------------------------------------------------------------
 * Dates: styles 1..15 (4 = "yyyymmdd"), day numbers from 1 (1 Jan 1) to
 * 3652059 (31 Dec 9999) by the average year of 365.2425 days.
 * ------------------------------------------------------------------------ */
DBAPI int DBDate3ToLong(int32_t *day, int year, int month, int day_of_month);
DBAPI int DBDate3ToStr(char *out, int style, int year, int month, int day);
DBAPI int DBGetDate3(int *year, int *month, int *day, int *dow);
DBAPI int DBIsLeapYear(int year);
DBAPI int DBDaysInMonth(int *days, int year, int month);
DBAPI int DBLongDateToDayOfWeek(int *dow, int32_t daynum);
DBAPI int DBLongDateTo3(int *year, int *month, int *day, int32_t daynum);
DBAPI int DBLongDateToStr(char *out, int style, int32_t daynum);
DBAPI int DBStrDateTo3(int *year, int *month, int *day, char *text, int style);
DBAPI int DBStrDateToLong(int32_t *day, char *text, int style);
DBAPI int DBStrDateToIntDayWeek(int *dow, char *text, int style);
DBAPI int DBStrDateToDayOfWeek(char *name, char *text, int style);
DBAPI int DBStrDateToMonth(char *name, char *text, int style);
DBAPI int DBConvertDateStr(char *out, int outstyle, char *in, int instyle);
DBAPI int DBDayOfWeek(char *name, int dow);
DBAPI int DBDaysBetweenStr(int32_t *days, char *text1, int style1, char *text2, int style2);
DBAPI int DBGetDateStr(char *out, int style);
DBAPI int DBIsStrLeapYear(char *text, int style);
DBAPI int DBMonthToStr(char *name, int month);
DBAPI int DBDaysInMonthStr(int *days, char *text, int style);
DBAPI int DBSetDefaultDateStyle(int style);
DBAPI int DBGetDefaultDateStyle(int *style, char *name);
DBAPI int DBIsValidDateStr(char *text, int style);

/* Times: style 1 "hh:mm:ss", style 2 "hhmm". */
DBAPI int DBTime3ToStr(char *out, int style, int hour, int minute, int second);
DBAPI int DBGetTime3(int *hour, int *minute, int *second, int *hundredths);
DBAPI int DBStrTimeTo3(int *hour, int *minute, int *second, char *text, int style);
DBAPI int DBSecondsBetweenStr(int32_t *seconds, char *text1, int style1, char *text2, int style2);
DBAPI int DBGetTimeStr(char *out, int style);
DBAPI int DBIsValidTimeStr(char *text, int style);

#ifdef __cplusplus
}
#endif

#endif /* XBFILES_H */
