// core.h - library state shared by every family: the handle table, the
// process lock table, the failure path, the allocator's owners and the
// byte-order helpers that every on-disk field goes through.
#pragma once

#include "xbfiles.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// ---------------------------------------------------------------------------
// Handle table and packets
// ---------------------------------------------------------------------------

// The common header that begins every file packet.
struct DBPKTHDR {
    DBOMODE m;           // open-mode bits
    int dh;              // descriptor, -1 while not open
    int16_t flush_disk;  // passed to every write as its flush flag
    char n[512];         // file name as given to the open call
    char ls;             // lock bits; nonzero while the file holds locks
};

// One handle-table slot: the packet and its type (0 = free).
struct DBPACKET {
    void *p;
    int8_t s;
};

// One exclusive lock held by this process.
struct DBLOCK {
    uint32_t a;  // start
    uint32_t l;  // length
    int fh;      // descriptor that holds it
};

struct DBTASKPKT {
    DBPACKET *p;      // handle table, indexed by handle
    DBLOCK *locks;    // exclusive locks held, in the order taken
    int16_t lckused;
    int16_t maxlcks;
    int16_t dmf;
    int16_t dfc;
    int16_t smf;      // slots; every handle is below it
    int16_t sfc;      // slots in use
};

// Page-control record shared by the index families.
struct DBPCTRL {
    char *pg;      // page buffer
    int16_t ps;    // page status
    int16_t *io;   // item offsets
    int32_t pn;    // page number
};

typedef int (*DBCLOSEF)(int handle);

constexpr int DBNUMPKTTYPES = 9;  // packet types 1..8, slot 0 unused

extern DBTASKPKT DBbase;
extern DBCLOSEF DBclose[DBNUMPKTTYPES];
extern DBPCTRL DBpc[4];
extern int DBlog_errs;
extern char DBlog_filename[30];
extern char DBvers[16];
extern char DBkeybfr1[513];
extern char DBkeybfr2[513];
extern char DBkeybfr3[513];
extern int32_t DBrecno;
extern int16_t DBtag;
extern int DBsamba;
extern int DBxHarbour;
extern int qd_read_length;

// The evaluator's parse-entry table lives with the evaluator; the core only
// frees it at termination (through _DBFreeParseTable).
void _DBFreeParseTable();

// Size of the packet allocated for each type (indexed by type).
size_t _DBPacketSize(int type);

// Allocate a zeroed packet of `type` in the lowest free slot from 3 up.
int _DBAllocNewFilePacket(int *handle, int type, void **packet);
// Free the packet of `handle` and release its slot.
void _DBReleaseFilePacket(int handle);
// The packet of a handle when it is in range and of the given type, else
// nullptr. Families that need a stricter check than the range test use it.
void *_DBPacketOf(int handle, int type);

int _DBSetLocksUsed(int n);

// ---------------------------------------------------------------------------
// Status and failure path
// ---------------------------------------------------------------------------

// Store a status in DBerrno and hand it back: `return _DBStatus(x);`.
inline int _DBStatus(int code) { return DBerrno = code; }

// Append "<srcfile>\t<line>\t<code>\n" to the log when logging is on.
void _DBErrorWrite(const char *srcfile, int line, int code);

// A source file's place in the error log. Each file keeps one:
//   namespace { constexpr DBSite here{"rdd/xbase/hread"}; }
// and every failure point returns here.fail(DBE_READ, __LINE__), so a log
// line names the exact point that gave up.
struct DBSite {
    const char *id;
    int fail(int code, int line) const {
        DBerrno = code;
        _DBErrorWrite(id, line, code);
        return code;
    }
    // Log without changing DBerrno (for a status already stored).
    void log(int code, int line) const { _DBErrorWrite(id, line, code); }
};

// An operating-system error without a code of its own.
inline int _DBSysErr(int e) { return static_cast<int>(static_cast<uint32_t>(e) | 0xC0000000u); }

// ---------------------------------------------------------------------------
// Memory owners
// ---------------------------------------------------------------------------

// Owns one block from the library's allocator; frees it on every path out.
template <class T>
class DBOwned {
public:
    DBOwned() = default;
    explicit DBOwned(T *p) : p_(p) {}
    DBOwned(const DBOwned &) = delete;
    DBOwned &operator=(const DBOwned &) = delete;
    ~DBOwned() { reset(); }
    // Allocate count elements (zeroed). Returns the library status.
    int alloc(size_t count, const char *src, int line) {
        reset();
        void *v = nullptr;
        const size_t bytes = count * sizeof(T);
        int rc = DBAllocateMemoryLog(&v, bytes != 0 ? bytes : 1, src, line);
        if (rc != 0) return rc;
        std::memset(v, 0, count * sizeof(T));
        p_ = static_cast<T *>(v);
        return 0;
    }
    void reset(T *p = nullptr) {
        if (p_) DBFreeMemory(p_, "rdd/xbase/core", 0);
        p_ = p;
    }
    T *release() { T *p = p_; p_ = nullptr; return p; }
    T *get() const { return p_; }
    T &operator[](size_t i) const { return p_[i]; }
    explicit operator bool() const { return p_ != nullptr; }
    T **addr() { return &p_; }

private:
    T *p_ = nullptr;
};

// ---------------------------------------------------------------------------
// Bytes on disk
// ---------------------------------------------------------------------------

inline uint16_t _DBLoadLE16(const void *p) {
    const auto *b = static_cast<const uint8_t *>(p);
    return static_cast<uint16_t>(b[0] | (b[1] << 8));
}
inline uint32_t _DBLoadLE32(const void *p) {
    const auto *b = static_cast<const uint8_t *>(p);
    return static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) |
           (static_cast<uint32_t>(b[2]) << 16) | (static_cast<uint32_t>(b[3]) << 24);
}
inline uint32_t _DBLoadBE32(const void *p) {
    const auto *b = static_cast<const uint8_t *>(p);
    return (static_cast<uint32_t>(b[0]) << 24) | (static_cast<uint32_t>(b[1]) << 16) |
           (static_cast<uint32_t>(b[2]) << 8) | static_cast<uint32_t>(b[3]);
}
inline uint16_t _DBLoadBE16(const void *p) {
    const auto *b = static_cast<const uint8_t *>(p);
    return static_cast<uint16_t>((b[0] << 8) | b[1]);
}
inline void _DBStoreLE16(void *p, uint16_t v) {
    auto *b = static_cast<uint8_t *>(p);
    b[0] = static_cast<uint8_t>(v);
    b[1] = static_cast<uint8_t>(v >> 8);
}
inline void _DBStoreLE32(void *p, uint32_t v) {
    auto *b = static_cast<uint8_t *>(p);
    b[0] = static_cast<uint8_t>(v);
    b[1] = static_cast<uint8_t>(v >> 8);
    b[2] = static_cast<uint8_t>(v >> 16);
    b[3] = static_cast<uint8_t>(v >> 24);
}
inline void _DBStoreBE32(void *p, uint32_t v) {
    auto *b = static_cast<uint8_t *>(p);
    b[0] = static_cast<uint8_t>(v >> 24);
    b[1] = static_cast<uint8_t>(v >> 16);
    b[2] = static_cast<uint8_t>(v >> 8);
    b[3] = static_cast<uint8_t>(v);
}
inline void _DBStoreBE16(void *p, uint16_t v) {
    auto *b = static_cast<uint8_t *>(p);
    b[0] = static_cast<uint8_t>(v >> 8);
    b[1] = static_cast<uint8_t>(v);
}

// Byte-order swaps used by the index families for big-endian page fields.
int16_t _DBSwapBytesShort(int16_t v);
int32_t _DBSwapBytesLong(int32_t v);
void _DBSwapBytesFloat(void *dst, const void *src);
void _DBSwapBytesDouble(void *dst, const void *src);

// ---------------------------------------------------------------------------
// Strings and memory moves
// ---------------------------------------------------------------------------

char *_DBstrupr(char *s);
char *_DBstrlwr(char *s);
// Compare without regard to ASCII case, over the length of the longer string.
int _DBstricmp(const char *a, const char *b);
// Overlap-safe copy; a negative count copies nothing.
void *_DBmemmove(void *dst, const void *src, int count);

// The length of the directory part of a path: up to and including the last
// '/', '\\' or ':' (0 when there is none).
size_t _DBDirLength(const char *path);
// "<directory><base name without its last extension><ext>" of path, in out
// (cap bytes): the backup and marker names beside a file. False when it
// does not fit.
bool _DBSiblingName(char *out, size_t cap, const char *path, const char *ext);

// Whether a file name fits the packets' name member with its NUL. Every
// open and create refuses longer names (-214): a name cut to fit would
// name another file, and a pack would then rename that one.
inline bool _DBNameFits(const char *name) { return strnlen(name, sizeof(DBPKTHDR::n)) < sizeof(DBPKTHDR::n); }

// Bounded copy that always terminates (dst holds cap bytes).
inline void _DBCopyName(char *dst, size_t cap, const char *src) {
    size_t n = std::strlen(src);
    if (n >= cap) n = cap - 1;
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}
