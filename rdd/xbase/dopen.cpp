// dopen.cpp - opening and closing tables: the header and descriptor checks
// that decide whether a file is a table of the style the caller asked for,
// the in-memory field array, and the record buffer and cache set-up.
#include "dbf.h"
#include "memo.h"
#include "os.h"

#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/dopen"};

// Descriptor slots scanned for the terminator of a Visual FoxPro header.
constexpr int kMaxScanSlots = 256;
// Cache sizing: 8 records, kept between 512 and 16384 bytes.
constexpr int kCacheRecords = 8;
constexpr int kCacheMin = 512;
constexpr int kCacheMax = 16384;

bool _isVfpVersion(uint8_t v) { return v == '0' || v == '1' || v == '2'; }

// Version bytes each style accepts.
bool _versionFits(int style, uint8_t v) {
    switch (style) {
    case 1: case 3: case 5: case 6: case 7: case 9:
        return v == 0x03 || v == 0x43 || v == 0x63 || v == 0x83;
    case 2: return v == 0x03 || v == 0x83 || v == 0x8B;
    case 4: case 8: return v == 0x03 || v == 0xF5;
    case 10: return _isVfpVersion(v);
    default: return false;
    }
}

bool _isKnownType(char t) {
    switch (t) {
    case 'C': case 'N': case 'F': case 'B': case 'Y': case 'D': case 'L':
    case 'I': case 'T': case '0': case 'M': case 'G':
    case 1: case 2: case 3: case 4: case 11: case 13:
        return true;
    default: return false;
    }
}

// The largest value a numeric field can show: w nines with the decimal
// point where the decimals begin.
double _maxValue(int w, int dec) {
    char buf[260];
    const int n = w < 255 ? w : 255;
    std::memset(buf, '9', static_cast<size_t>(n));
    buf[n] = '\0';
    if (dec > 0 && n - dec - 1 >= 0) buf[n - dec - 1] = '.';
    return std::atof(buf);
}

// Build the in-memory field array from the descriptor bytes (nf slots of 32
// bytes at `desc`). Sets f, nf, lf and the memo bit of v.
int _loadFields(DBDATAPKT *d, const uint8_t *desc, int nf) {
    DBOwned<DBFIELDSTRUC> f;
    if (f.alloc(static_cast<size_t>(nf), here.id, __LINE__) != 0) return DBerrno;
    const int style = _DBStyleOf(d);
    const uint8_t ver = d->h.v;
    int32_t offset = 1;
    int longest = 0;
    bool memo = false;
    for (int i = 0; i < nf; i++) {
        DBFIELDSTRUC &x = f[static_cast<size_t>(i)];
        std::memcpy(&x, desc + 32 * i, sizeof x);
        // Names fill all 11 bytes when they have no terminator; dBASE
        // itself never reads more than 10 characters of them.
        if (std::memchr(x.n, 0, sizeof x.n) == nullptr) x.n[10] = '\0';
        _DBstrupr(x.n);
        char t = x.t;
        if (t >= 'a' && t <= 'z') t = static_cast<char>(t - 'a' + 'A');
        if (t == 'Q' || t == 'V') t = 'C';
        if (t == 'W') t = 'G';
        if (!_isKnownType(t)) return here.fail(DBE_FIELDTYPE, __LINE__);
        x.t = t;
        // Character fields longer than 255 keep the high byte of their
        // length where other fields keep their decimals.
        const int len = (t == 'C') ? x.w + 256 * x.d : x.w;
        x.l = static_cast<uint16_t>(len);
        x.mv = 0.0;
        if (t == 'B' || t == 'F' || t == 'N' || t == 'Y') x.mv = _maxValue(x.w, x.d);
        if (t == 'M' || t == 'G') {
            const bool ok = (style == 4 || style == 8 || style == 10)
                                ? (ver == 0xF5 || _isVfpVersion(ver))
                                : (ver & 0x80) != 0;
            if (!ok) return here.fail(DBE_BADVERSION, __LINE__);
            memo = true;
        }
        x.a = static_cast<uint16_t>(offset);
        offset += len;
        // The sum is checked as it grows so that it cannot wrap.
        if (offset > d->h.r) return here.fail(DBE_RECLEN, __LINE__);
        if (len > longest) longest = len;
    }
    if (offset != d->h.r) return here.fail(DBE_RECLEN, __LINE__);
    // Visual FoxPro tables keep their memo pointers binary and have no
    // separate memo style.
    if (memo && !_isVfpVersion(ver)) d->v |= 0x80;
    d->lf = static_cast<int16_t>(longest > INT16_MAX ? INT16_MAX : longest);
    d->nf = static_cast<int16_t>(nf);
    d->f = f.release();
    return 0;
}

// Count the fields of a header: whole 32-byte slots, less a last slot that
// is the terminator block; Visual FoxPro headers are scanned for the slot
// that begins with 0x0D. `area` holds the hl - 32 bytes after the header.
int _countFields(DBDATAPKT *d, const uint8_t *area, int arealen, int *nf) {
    const int slots = arealen / 32;
    if (_isVfpVersion(d->h.v)) {
        for (int i = 0; i < slots && i <= kMaxScanSlots; i++)
            if (area[32 * i] == 0x0D) {
                *nf = i;
                return 0;
            }
        return here.fail(DBE_CORRUPT, __LINE__);
    }
    int n = slots;
    if (n > 0 && area[32 * (n - 1)] == 0x0D) {
        // A terminator that fills a whole slot is the dBASE 7 form.
        n--;
        d->v = static_cast<unsigned char>((d->v & 0x80) | 9);
    }
    *nf = n;
    return 0;
}

// Everything of the open after the descriptor is open; any failure returns
// its code and leaves the cleanup to the caller.
int _open(DBDATAPKT *d, char *filename) {
    DBDATAHDR &h = d->h;
    uint8_t raw[32];
    if (DBosReadData(d->ph.dh, raw, 32) != 0) return DBerrno;
    std::memcpy(&h, raw, 32);
    h.n = static_cast<int32_t>(_DBLoadLE32(raw + 4));
    h.h = _DBLoadLE16(raw + 8);
    h.r = _DBLoadLE16(raw + 10);

    int style = d->v;
    if (style > 10) return here.fail(DBE_BADCOMMAND, __LINE__);
    if (style == 0) style = 1;
    d->v = static_cast<unsigned char>(style);
    if (!_versionFits(style, h.v)) return here.fail(DBE_BADVERSION, __LINE__);

    const int hl = h.h;
    const int form = (hl - 32) % 32;
    if (hl < 32 || (form != 0 && form != 1 && form != 2 && form != 8))
        return here.fail(DBE_HDRLEN, __LINE__);

    if (static_cast<int8_t>(h.y) > 119 || static_cast<int8_t>(h.m) < 1 || static_cast<int8_t>(h.m) > 12 ||
        static_cast<int8_t>(h.d) < 1 || static_cast<int8_t>(h.d) > 31)
        return here.fail(DBE_BADUPDATE, __LINE__);

    if ((style == 2 || style == 8) && h.mdx > 1) return here.fail(DBE_MDXFLAG, __LINE__);
    if (style == 10 && h.mdx == 2) h.mdx = 0;
    // A negative count is no table at all, nor one whose records would end
    // beyond what a 32-bit offset reaches: every offset computed from it
    // would be wrong.
    if (h.n < 0 || _DBTableEnd(d, h.n) > INT32_MAX) return here.fail(DBE_CORRUPT, __LINE__);

    const int arealen = hl - 32;
    DBOwned<uint8_t> area;
    if (area.alloc(static_cast<size_t>(arealen), here.id, __LINE__) != 0) return DBerrno;
    if (arealen > 0 && DBosReadData(d->ph.dh, area.get(), arealen) != 0) return DBerrno;
    int nf = 0;
    if (_countFields(d, area.get(), arealen, &nf) != 0) return DBerrno;
    if (nf <= 0) return here.fail(DBE_NUMFIELDS, __LINE__);
    if (_loadFields(d, area.get(), nf) != 0) return DBerrno;

    if (_DBAllocCache() != 0) return DBerrno;
    if (DBAllocateMemoryLog(reinterpret_cast<void **>(&d->b.r), h.r, here.id, __LINE__) != 0)
        return DBerrno;
    std::memset(d->b.r, ' ', h.r);

    _DBCopyName(d->ph.n, sizeof d->ph.n, filename);
    return 0;
}
}  // namespace

void _DBFreeTableBuffers(DBDATAPKT *d) {
    if (d->f) DBFreeMemory(d->f, here.id, __LINE__);
    if (d->b.r) DBFreeMemory(d->b.r, here.id, __LINE__);
    if (d->b.p) DBFreeMemory(d->b.p, here.id, __LINE__);
    if (d->b.io) DBFreeMemory(d->b.io, here.id, __LINE__);
    if (d->b.dm) DBFreeMemory(d->b.dm, here.id, __LINE__);
    d->f = nullptr;
    d->b.r = nullptr;
    d->b.p = nullptr;
    d->b.io = nullptr;
    d->b.dm = nullptr;
    d->b.nr = 0;
}

int _DBAllocCache() {
    DBDATAPKT *d = DBxbd;
    const int r = d->h.r;
    if (r <= 0) return here.fail(DBE_RECLEN, __LINE__);
    int count = 1;
    if (!d->ph.m.always_flush) {
        count = kCacheRecords;
        if (count * r > kCacheMax) count = kCacheMax / r;
        else if (count * r < kCacheMin) count = kCacheMin / r;
        // A record longer than the largest block still needs one slot.
        if (count < 1) count = 1;
    }
    DBOwned<int16_t> io;
    if (io.alloc(static_cast<size_t>(count), here.id, __LINE__) != 0) return DBerrno;
    for (int i = 0; i < count; i++) io[static_cast<size_t>(i)] = static_cast<int16_t>(i * r);
    DBOwned<char> block, marks;
    if (!d->ph.m.always_flush) {
        if (block.alloc(static_cast<size_t>(count) * r, here.id, __LINE__) != 0) return DBerrno;
        if (marks.alloc(static_cast<size_t>(count), here.id, __LINE__) != 0) return DBerrno;
    }
    if (d->b.p) DBFreeMemory(d->b.p, here.id, __LINE__);
    if (d->b.io) DBFreeMemory(d->b.io, here.id, __LINE__);
    if (d->b.dm) DBFreeMemory(d->b.dm, here.id, __LINE__);
    d->b.p = block.release();
    d->b.io = io.release();
    d->b.dm = marks.release();
    d->b.rl = count;
    // A write-through table has no block: every record goes straight to
    // the file through the record buffer.
    d->b.bl = d->b.p ? count * r : 0;
    d->b.nr = 0;
    d->b.fr = 0;
    d->b.s = 0;
    return 0;
}

extern "C" DBAPI int DBOpenFile(int *handle, char *filename, int mode) {
    DBclose[DBPT_DBF] = DBCloseFile;
    if (!handle || !filename) return here.fail(DBE_NULLPARAM, __LINE__);
    DBerrno = 0;
    void *pkt = nullptr;
    if (_DBAllocNewFilePacket(handle, DBPT_DBF, &pkt) != 0) {
        *handle = -1;
        return _DBStatus(static_cast<int16_t>(DBerrno));
    }
    auto *d = static_cast<DBDATAPKT *>(pkt);
    if (mode & DBO_AUTOLOCK) {
        mode |= DBO_FLUSH | DBO_SHARED;
        if (mode & DBO_READONLY) mode &= ~DBO_AUTOLOCK;
    }
    d->v = static_cast<unsigned char>(mode & 0xFF);
    d->ph.dh = -1;
    DBxbd = d;
    int rc = DBosOpenFile(&d->ph.dh, filename, mode, &d->ph.m);
    if (rc == 0) {
        if (mode & DBO_FLUSH) {
            d->ph.m.always_flush = 1;
            d->ph.flush_disk = 1;
        }
        if (mode & DBO_UNBUFFERED) d->ph.m.always_flush = 1;
        if ((mode & DBO_AUTOLOCK) && d->ph.m.shared) d->ph.m.auto_locks = 1;
        if ((mode & DBO_MULTILOCK) && d->ph.m.shared) d->ph.m.multi_locks = 1;
        if (d->ph.m.shared) d->ph.m.read_header_information = 1;
        rc = _open(d, filename);
        if (rc == 0) rc = _DBMemoPackRecover(filename);
    }
    if (rc != 0) {
        // Nothing of a failed open survives: descriptor, buffers, slot.
        if (d->ph.dh >= 0) DBosCloseFile(d->ph.dh);
        _DBFreeTableBuffers(d);
        _DBReleaseFilePacket(*handle);
        if (DBxbd == d) DBxbd = nullptr;
        *handle = -1;
        // This path has always carried its code in 16 bits, so a system
        // error arrives as the bare errno.
        return _DBStatus(static_cast<int16_t>(rc));
    }
    // The length must be the records and at most an end mark (one byte, or
    // a whole record of them in style 7); anything else is reported but the
    // table stays usable.
    int32_t len = 0;
    if (DBosFileLength(d->ph.dh, &len) != 0) return _DBStatus(DBW_BADFILELEN);
    const int64_t e = _DBTableEnd(d, d->h.n);
    if (len != e && len != e + 1 && len != e + d->h.r) return _DBStatus(DBW_BADFILELEN);
    return _DBStatus(0);
}

int _DBCloseUnwritten(int handle) {
    auto *d = static_cast<DBDATAPKT *>(_DBPacketOf(handle, DBPT_DBF));
    if (!d) return here.fail(DBE_BADHANDLE, __LINE__);
    d->u = 0;
    d->ph.m.always_flush = 1;
    return DBCloseFile(handle);
}

extern "C" DBAPI int DBCloseFile(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    DBDATAPKT *d = DBxbd;
    if (!d->ph.m.always_flush && _DBFlushFile() != 0) return DBerrno;
    if (d->ph.ls && _DBUnLockAll() != 0) return DBerrno;
    if (d->ph.dh >= 0) {
        if (DBosCloseFile(d->ph.dh) != 0) return DBerrno;
        d->ph.dh = -1;
    }
    _DBFreeTableBuffers(d);
    _DBReleaseFilePacket(handle);
    if (DBxbd == d) DBxbd = nullptr;
    return _DBStatus(0);
}
