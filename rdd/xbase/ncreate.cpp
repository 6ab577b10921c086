// ncreate.cpp - a new, empty NDX index: its header and one empty root leaf.
#include "ndx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/ncreate"};
}

extern "C" DBAPI int DBd3CreateIndex(char *filename, int keytype, char *expr, int keylen, int decimals) {
    if (!filename || !expr) return here.fail(DBE_NULLPARAM, __LINE__);
    if (std::strlen(filename) >= sizeof(DBPKTHDR::n)) return here.fail(DBE_BADFILENAME, __LINE__);
    // The expression is stored without blanks and in upper case.
    char e[256] = {};
    const int n = _DBIndexNewExpr(e, sizeof e, expr);
    if (n < 0) return DBerrno;
    if (n == 0) return here.fail(DBE_BADEXPR, __LINE__);
    const bool unique = (keytype & 0x80) != 0;
    int type = 0;
    switch ((keytype & ~0x80) & ~0x20) {
    case 'C':
        if (keylen < 1 || keylen > DBNDX_CREATEKEY) return here.fail(DBE_KEYLEN, __LINE__);
        break;
    case 'N':
        // A double whatever the width: the decimals only have to make sense.
        if (decimals < 0 || decimals > 15) return here.fail(DBE_DECIMALS, __LINE__);
        keylen = 8;
        type = 1;
        break;
    case 'D':
        keylen = 8;
        type = 1;
        break;
    default:
        return here.fail(DBE_KEYTYPE, __LINE__);
    }
    const int il = (keylen + 8 + 3) & ~3;
    uint8_t file[2 * DBNDXBLOCK] = {};
    _DBStoreLE32(file, 1);
    _DBStoreLE32(file + 4, 2);
    _DBStoreLE16(file + 12, static_cast<uint16_t>(keylen));
    _DBStoreLE16(file + 14, static_cast<uint16_t>((DBNDXBLOCK - 8) / il));
    _DBStoreLE16(file + 16, static_cast<uint16_t>(type));
    _DBStoreLE16(file + 18, static_cast<uint16_t>(il));
    file[23] = unique ? 1 : 0;
    std::memcpy(file + 24, e, static_cast<size_t>(n));
    // Block 1, the root, is an empty leaf: all zero.
    if (_DBIndexWriteNew(filename, file, sizeof file) != 0) return here.fail(DBerrno, __LINE__);
    return _DBStatus(0);
}
