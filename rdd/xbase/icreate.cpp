// icreate.cpp - new CDX and IDX files: a compound file holding only its
// directory, or an IDX file (compact or not) with one empty index; and the
// header and expression rules that creating a tag shares.
#include "cdx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/icreate"};
}  // namespace

int _DBfpNormalise(const char *in, char *out, size_t max, bool required) {
    while (*in == ' ') in++;
    const size_t n = std::strlen(in);
    if (n > max || (required && n == 0)) return here.fail(DBE_BADEXPR, __LINE__);
    for (size_t i = 0; i <= n; i++) out[i] = in[i] == '\'' ? '"' : in[i];
    return 0;
}

int _DBfpKeySpec(int mode, int *keylen, char *type) {
    // The low byte: the type letter (bit 0x20 cleared: lower case), 0x80 unique.
    const char t = static_cast<char>(mode & 0x5F);
    switch (t) {
    case 'C':
        if (*keylen < 1 || *keylen > DBCDXMAXKEY) return here.fail(DBE_KEYLEN, __LINE__);
        break;
    case 'N': case 'D': *keylen = 8; break;
    case 'L': *keylen = 1; break;
    default: return here.fail(DBE_KEYTYPE, __LINE__);
    }
    *type = t;
    return 0;
}

void _DBfpNewHeader(char *hdr, bool compact, uint8_t options, int k, const char *expr, const char *forexpr, int32_t root,
                    int32_t eof) {
    std::memset(hdr, 0, compact ? 2 * DBCDXPAGE : DBCDXPAGE);
    _DBStoreLE32(hdr, static_cast<uint32_t>(root));
    _DBStoreLE32(hdr + 4, 0xFFFFFFFFu);  // no free pages
    if (!compact) _DBStoreLE32(hdr + 8, static_cast<uint32_t>(eof));
    _DBStoreLE16(hdr + 12, static_cast<uint16_t>(k));
    hdr[14] = static_cast<char>(options);
    hdr[15] = 1;
    const size_t el = std::strlen(expr);
    const size_t fl = forexpr ? std::strlen(forexpr) : 0;
    if (compact) {
        // The pool: the key expression, then the FOR expression (an empty
        // one is its NUL alone), each with its NUL.
        _DBStoreLE16(hdr + 502, 0);
        _DBStoreLE16(hdr + 504, static_cast<uint16_t>(el + 1));
        _DBStoreLE16(hdr + 506, static_cast<uint16_t>(fl + 1));
        _DBStoreLE16(hdr + 508, 0);
        _DBStoreLE16(hdr + 510, static_cast<uint16_t>(el + 1));
        std::memcpy(hdr + DBCDXPAGE, expr, el + 1);
        if (fl) std::memcpy(hdr + DBCDXPAGE + el + 1, forexpr, fl + 1);
    } else {
        std::memcpy(hdr + 16, expr, el + 1);
        if (fl) std::memcpy(hdr + 236, forexpr, fl + 1);
    }
}

extern "C" DBAPI int DBfpCreateIndex(char *filename) {
    if (!filename) return here.fail(DBE_NULLPARAM, __LINE__);
    if (std::strlen(filename) >= sizeof(DBPKTHDR::n)) return here.fail(DBE_BADFILENAME, __LINE__);
    // The directory: a compact character tag of 10-byte names whose records
    // are the header offsets of the tags.
    char file[3 * DBCDXPAGE];
    _DBfpNewHeader(file, true, DBCDX_COMPACTBITS, 10, "", nullptr, 2 * DBCDXPAGE, 0);
    _DBfpEmptyLeaf(file + 2 * DBCDXPAGE, true, 10, 3);
    return _DBIndexWriteNew(filename, file, sizeof file);
}

extern "C" DBAPI int DBfbCreateIndex(char *filename, int mode, char *expr, int keylen, char *forexpr) {
    if (!filename || !expr) return here.fail(DBE_NULLPARAM, __LINE__);
    if (std::strlen(filename) >= sizeof(DBPKTHDR::n)) return here.fail(DBE_BADFILENAME, __LINE__);
    if ((mode & 0x800) && !(mode & 0x400)) return DBfpCreateIndex(filename);
    const bool compact = (mode & 0x400) != 0;
    // A non-compact header keeps the key expression in 220 bytes with its NUL.
    char e[DBCDXEXPR + 1], f[DBCDXEXPR + 1];
    if (_DBfpNormalise(expr, e, compact ? DBCDXEXPR : DBCDXEXPR - 1, true) != 0) return DBerrno;
    if (forexpr && _DBfpNormalise(forexpr, f, DBCDXEXPR, false) != 0) return DBerrno;
    const bool hasFor = forexpr && f[0];
    char type = 0;
    if (_DBfpKeySpec(mode, &keylen, &type) != 0) return DBerrno;
    const uint8_t options = static_cast<uint8_t>((compact ? DBCDX_COMPACT : 0) | ((mode & 0x80) ? DBCDX_UNIQUE : 0) |
                                                 (hasFor ? DBCDX_HASFOR : 0));
    const int hl = compact ? 2 * DBCDXPAGE : DBCDXPAGE;
    char file[3 * DBCDXPAGE];
    _DBfpNewHeader(file, compact, options, keylen, e, hasFor ? f : nullptr, hl, hl + DBCDXPAGE);
    _DBfpEmptyLeaf(file + hl, compact, keylen, 3);
    return _DBIndexWriteNew(filename, file, hl + DBCDXPAGE);
}
