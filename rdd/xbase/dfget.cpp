// dfget.cpp - reading one field of the current record, converted from the
// text the file holds into the type the caller asks for.
#include "dbf.h"

#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/dfget"};

// Copy at most `cap` bytes of the field and terminate them, for the C
// library's number parsers.
void _text(char *dst, size_t cap, const char *src, int len) {
    const size_t n = static_cast<size_t>(len) < cap - 1 ? static_cast<size_t>(len) : cap - 1;
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

// The first `size` bytes of the field, zero-filled when the field is
// shorter, so that no read leaves the field.
void _raw(void *dst, const char *src, int len, size_t size) {
    std::memset(dst, 0, size);
    std::memcpy(dst, src, static_cast<size_t>(len) < size ? static_cast<size_t>(len) : size);
}

// A 16- or 32-bit little-endian binary integer from the field, 0 when blank.
template <class T>
void _int(void *out, const char *src, int len, bool blank) {
    uint8_t b[sizeof(T)];
    _raw(b, src, len, sizeof b);
    T v = 0;
    if (!blank) {
        if constexpr (sizeof(T) == 2) v = static_cast<T>(_DBLoadLE16(b));
        else v = static_cast<T>(_DBLoadLE32(b));
    }
    std::memcpy(out, &v, sizeof v);
}

// A memo block number written as text. Parsed in 64 bits and kept in 32 so
// that a 32-bit build reads the same number as a 64-bit one.
int32_t _blockNumber(const char *src, int len) {
    char buf[32];
    _text(buf, sizeof buf, src, len);
    return static_cast<int32_t>(static_cast<uint32_t>(std::strtoll(buf, nullptr, 10)));
}

// Halves of an 8-byte date-time or currency value, each with its bytes
// reversed.
void _swapHalves(char *p) {
    int32_t a = 0, b = 0;
    std::memcpy(&a, p, 4);
    std::memcpy(&b, p + 4, 4);
    a = _DBSwapBytesLong(a);
    b = _DBSwapBytesLong(b);
    std::memcpy(p, &a, 4);
    std::memcpy(p + 4, &b, 4);
}

// How an empty date looks in each date style.
const char *_emptyDate(int style) {
    switch (style) {
    case 1: case 8: case 10: return "  /  /  ";
    case 2: case 9: case 11: return "  /  /    ";
    case 3: return "    /   ";
    case 4: return "        ";
    case 5: return "      ";
    case 6: case 14: return "  .  .  ";
    case 7: return "  .  .    ";
    case 12: return "  -  -  ";
    case 13: return "  -  -    ";
    case 15: return "    .  .  ";
    default: return nullptr;
    }
}

bool _isBlank(const DBFIELDSTRUC &f, const char *p) {
    // Numeric text is never "empty": an all-blank number simply reads as 0.
    if (f.t == 'F' || f.t == 'N') return false;
    bool spaces = true, zeros = true;
    for (int i = 0; i < f.l; i++) {
        if (p[i] != ' ') spaces = false;
        if (p[i] != 0) zeros = false;
    }
    return spaces || (f.t == 'B' && zeros);
}
}  // namespace

int _DBGetFieldData(void *out, int field, int type) {
    const DBDATAPKT *d = DBxbd;
    const DBFIELDSTRUC &f = d->f[field];
    const char *src = d->b.r + f.a;
    const int len = f.l;
    const bool blank = _isBlank(f, src);
    DBerrno = blank ? DBW_FIELDEMPTY : 0;
    // An 'I' field asked for as text gives its binary integer all the same.
    if (type == 'C' && f.t == 'I') type = 'I';
    switch (type) {
    case 1: case 2:
        _int<int16_t>(out, src, len, blank);
        break;
    case 3: case 4: case 11: case 'I':
        _int<int32_t>(out, src, len, blank);
        break;
    case 13: case 'B': case 'F': {
        // Binary doubles, and 'F' on purpose: callers that ask for 'F' get
        // the stored bytes, not the value of the text.
        double v = 0.0;
        if (!blank) _raw(&v, src, len, sizeof v);
        std::memcpy(out, &v, sizeof v);
        break;
    }
    case 'C': {
        char *o = static_cast<char *>(out);
        std::memcpy(o, src, static_cast<size_t>(len));
        o[len] = '\0';
        if (f.t == 'T' && len >= 8) _swapHalves(o);
        break;
    }
    case 'T': case 'Y': {
        char v[8];
        _raw(v, src, len, sizeof v);
        _swapHalves(v);
        std::memcpy(out, v, sizeof v);
        break;
    }
    case 'D': {
        char *o = static_cast<char *>(out);
        if (!blank) {
            char text[16];
            _text(text, sizeof text, src, len);
            int y = 0, m = 0, dd = 0;
            const int rc = DBStrDateTo3(&y, &m, &dd, text, 4);
            if (rc < 0) return here.fail(rc, __LINE__);
            if (rc == 0) {
                if (DBDate3ToStr(o, DBdate_style, y, m, dd) != 0) return here.fail(DBerrno, __LINE__);
                return _DBStatus(0);
            }
            // The parser found only blanks: the field is empty after all.
            DBerrno = DBW_FIELDEMPTY;
        }
        if (const char *e = _emptyDate(DBdate_style)) std::memcpy(o, e, std::strlen(e) + 1);
        break;
    }
    case 'G': case 'M': {
        int32_t v = 0;
        if (!blank) {
            // Visual FoxPro keeps block numbers as 4-byte integers.
            if (_DBStyleOf(d) == 10) {
                uint8_t b[4];
                _raw(b, src, len, sizeof b);
                v = static_cast<int32_t>(_DBLoadLE32(b));
            } else {
                v = _blockNumber(src, len);
            }
        }
        std::memcpy(out, &v, sizeof v);
        break;
    }
    case 'L': {
        char *o = static_cast<char *>(out);
        if (blank) {
            *o = '?';
            break;
        }
        switch (src[0]) {
        case 'T': case 'Y': case 't': case 'y': case 1: *o = 1; break;
        case 'F': case 'N': case 'f': case 'n': case 0: *o = 0; break;
        // '?' is how dBASE marks a logical never set: the same as blank.
        case '?': *o = '?'; DBerrno = DBW_FIELDEMPTY; break;
        default: break;  // not a logical value: the caller's byte stays
        }
        break;
    }
    case 'N': {
        char text[256];
        _text(text, sizeof text, src, len);
        const double v = std::atof(text);
        std::memcpy(out, &v, sizeof v);
        break;
    }
    default:
        break;
    }
    return DBerrno;
}

// The eight public field calls of this file and dfput.cpp (get or put, by
// number or by name, in the field's own type or as text) share one path:
// resolve the handle, check the field number and the pointer, convert.
int _DBFieldCall(int (*convert)(void *, int, int), int handle, int field, void *p, bool text) {
    if (_DBVerifyField(handle, field) != 0) return DBerrno;
    if (!p) return here.fail(DBE_NULLPARAM, __LINE__);
    return convert(p, field, text ? 'C' : static_cast<unsigned char>(DBxbd->f[field].t));
}

int _DBNamedFieldCall(int (*convert)(void *, int, int), int handle, char *name, void *p, bool text) {
    int field = 0;
    if (DBGetFieldNumber(handle, &field, name) != 0) return DBerrno;
    return _DBFieldCall(convert, handle, field, p, text);
}

extern "C" DBAPI int DBGetFieldData(int handle, int field, void *out) {
    return _DBFieldCall(_DBGetFieldData, handle, field, out, false);
}

extern "C" DBAPI int DBGetStrField(int handle, int field, char *out) {
    return _DBFieldCall(_DBGetFieldData, handle, field, out, true);
}

extern "C" DBAPI int DBGetNamedData(int handle, char *name, void *out) {
    return _DBNamedFieldCall(_DBGetFieldData, handle, name, out, false);
}

extern "C" DBAPI int DBGetNamedStr(int handle, char *name, char *out) {
    return _DBNamedFieldCall(_DBGetFieldData, handle, name, out, true);
}
