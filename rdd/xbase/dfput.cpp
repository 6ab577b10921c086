// dfput.cpp - writing one field of the record buffer from the caller's
// value. Nothing reaches the file until the record is written.
#include "dbf.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/dfput"};

// Copy the first min(size, len) bytes of a value into the field.
void _raw(char *dst, int len, const void *src, size_t size) {
    std::memcpy(dst, src, static_cast<size_t>(len) < size ? static_cast<size_t>(len) : size);
}

// The caller's 16- or 32-bit integer (host order), stored little-endian.
template <class T>
void _int(char *dst, int len, const void *in) {
    T v = 0;
    std::memcpy(&v, in, sizeof v);
    uint8_t b[sizeof(T)];
    if constexpr (sizeof(T) == 2) _DBStoreLE16(b, static_cast<uint16_t>(v));
    else _DBStoreLE32(b, static_cast<uint32_t>(v));
    _raw(dst, len, b, sizeof b);
}

// Length of a caller's text, looking no further than `cap` bytes.
int _textLen(const char *s, int cap) {
    const void *z = std::memchr(s, 0, static_cast<size_t>(cap));
    return z ? static_cast<int>(static_cast<const char *>(z) - s) : cap;
}

int _putMemo(char *dst, int len, const void *in) {
    int32_t v = 0;
    std::memcpy(&v, in, sizeof v);
    if (_DBStyleOf(DBxbd) == 10) {
        // Visual FoxPro: the block number as a 4-byte integer.
        uint8_t b[4];
        _DBStoreLE32(b, static_cast<uint32_t>(v));
        _raw(dst, len, b, sizeof b);
        return 0;
    }
    // Elsewhere the number is text, right-aligned in the field; it must
    // read back as the same number or the memo would be lost.
    char text[16];
    const int n = std::snprintf(text, sizeof text, "%" PRIu32, static_cast<uint32_t>(v));
    if (v < 0 || n < 0 || n > len) return here.fail(DBE_BADDATA, __LINE__);
    if (std::strtoll(text, nullptr, 10) != v) return here.fail(DBE_BADDATA, __LINE__);
    std::memset(dst, ' ', static_cast<size_t>(len));
    std::memcpy(dst + len - n, text, static_cast<size_t>(n));
    return 0;
}

// A refused date leaves the field as it was.
int _putDate(char *dst, int len, const char *in) {
    const char *p = in;
    while (*p == ' ') p++;
    if (*p == '\0') {
        std::memset(dst, ' ', static_cast<size_t>(len));  // an empty date is eight blanks
        return 0;
    }
    int y = 0, m = 0, dd = 0;
    const int rc = DBStrDateTo3(&y, &m, &dd, const_cast<char *>(in), DBdate_style);
    if (rc < 0) return here.fail(rc, __LINE__);
    std::memset(dst, ' ', static_cast<size_t>(len));
    if (rc == DBW_EMPTY) {
        DBerrno = 0;
        return 0;
    }
    char text[16];
    if (DBDate3ToStr(text, 4, y, m, dd) != 0) return here.fail(DBerrno, __LINE__);
    _raw(dst, len, text, 8);
    return 0;
}
}  // namespace

int _DBPutFieldData(void *in, int field, int type) {
    const DBFIELDSTRUC &f = DBxbd->f[field];
    char *dst = DBxbd->b.r + f.a;
    const int len = f.l;
    DBerrno = 0;
    switch (type) {
    case 1: case 2:
        _int<int16_t>(dst, len, in);
        break;
    case 3: case 4: case 11: case 'I':
        _int<int32_t>(dst, len, in);
        break;
    case 13:
        _raw(dst, len, in, 8);
        break;
    case 'B':
        // Binary: the caller's bytes as they are.
        std::memcpy(dst, in, static_cast<size_t>(len));
        break;
    case 'F': case 'N': {
        // The caller supplies the field's text, already formatted. A text
        // that ends early is right-aligned, the way numbers are stored,
        // instead of carrying whatever followed it in memory.
        const char *s = static_cast<const char *>(in);
        const int n = _textLen(s, len);
        std::memset(dst, ' ', static_cast<size_t>(len - n));
        std::memcpy(dst + len - n, s, static_cast<size_t>(n));
        break;
    }
    case 'C': {
        const char *s = static_cast<const char *>(in);
        int n = _textLen(s, len + 1);
        if (n > len) {
            n = len;
            DBerrno = DBW_TRUNCATED;
        }
        std::memset(dst, ' ', static_cast<size_t>(len));
        std::memcpy(dst, s, static_cast<size_t>(n));
        break;
    }
    case 'L': {
        char c = *static_cast<const char *>(in);
        switch (c) {
        case 0: case 'F': case 'N': case 'f': case 'n': c = 'F'; break;
        case 1: case 'T': case 'Y': case 't': case 'y': c = 'T'; break;
        case ' ': case '?': c = ' '; break;
        default: return here.fail(DBE_BADDATA, __LINE__);
        }
        if (len > 0) dst[0] = c;
        break;
    }
    case 'G': case 'M':
        if (_putMemo(dst, len, in) != 0) return DBerrno;
        break;
    case 'T': case 'Y': {
        char v[8];
        std::memcpy(v, in, sizeof v);
        for (int half = 0; half < 2; half++) {
            int32_t x = 0;
            std::memcpy(&x, v + 4 * half, 4);
            x = _DBSwapBytesLong(x);
            std::memcpy(v + 4 * half, &x, 4);
        }
        _raw(dst, len, v, sizeof v);
        break;
    }
    case 'D':
        if (_putDate(dst, len, static_cast<const char *>(in)) != 0) return DBerrno;
        break;
    default:
        break;  // a type with no conversion writes nothing
    }
    return DBerrno;
}


extern "C" DBAPI int DBPutFieldData(int handle, int field, void *in) {
    return _DBFieldCall(_DBPutFieldData, handle, field, in, false);
}

extern "C" DBAPI int DBPutStrField(int handle, int field, char *in) {
    return _DBFieldCall(_DBPutFieldData, handle, field, in, true);
}

extern "C" DBAPI int DBPutNamedData(int handle, char *name, void *in) {
    return _DBNamedFieldCall(_DBPutFieldData, handle, name, in, false);
}

extern "C" DBAPI int DBPutNamedStr(int handle, char *name, char *in) {
    return _DBNamedFieldCall(_DBPutFieldData, handle, name, in, true);
}
