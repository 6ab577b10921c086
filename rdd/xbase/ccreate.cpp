// ccreate.cpp - a new, empty NTX index: its header and one empty root page.
#include "ntx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/ccreate"};
}

extern "C" DBAPI int DBclCreateIndex(char *filename, int keytype, char *expr, int keylen, int decimals) {
    if (!filename || !expr) return here.fail(DBE_NULLPARAM, __LINE__);
    if (std::strlen(filename) >= sizeof(DBPKTHDR::n)) return here.fail(DBE_BADFILENAME, __LINE__);
    // The expression is stored without blanks and in upper case.
    char e[256] = {};
    const int n = _DBIndexNewExpr(e, sizeof e, expr);
    if (n < 0) return DBerrno;
    const bool unique = (keytype & 0x80) != 0;
    const int type = (keytype & ~0x80) & ~0x20;
    switch (type) {
    case 'D':
        keylen = 8;
        decimals = 0;
        break;
    case 'N':
        if (keylen < 1 || keylen > 19) return here.fail(DBE_KEYLEN, __LINE__);
        if (decimals != 0 && (decimals < 0 || decimals > keylen - 2 || decimals >= 16))
            return here.fail(DBE_DECIMALS, __LINE__);
        break;
    case 'C':
        if (keylen < 1 || keylen > 200) return here.fail(DBE_KEYLEN, __LINE__);
        decimals = 0;
        break;
    default:
        return here.fail(DBE_KEYTYPE, __LINE__);
    }
    DBNTXHDR h{};
    h.key_item_len = static_cast<uint16_t>(keylen + 8);
    h.k = static_cast<uint16_t>(keylen);
    h.max_number_keys_page = static_cast<uint16_t>(((DBNTXPAGE - 4) / (keylen + 10) - 1) & ~1);
    h.mnk = static_cast<uint16_t>(h.max_number_keys_page / 2);
    uint8_t file[2 * DBNTXPAGE] = {};
    _DBStoreLE16(file, 6);
    _DBStoreLE16(file + 2, 1);
    _DBStoreLE32(file + 4, DBNTXPAGE);
    _DBStoreLE16(file + 12, h.key_item_len);
    _DBStoreLE16(file + 14, h.k);
    _DBStoreLE16(file + 16, static_cast<uint16_t>(decimals));
    _DBStoreLE16(file + 18, h.max_number_keys_page);
    _DBStoreLE16(file + 20, h.mnk);
    std::memcpy(file + 22, e, static_cast<size_t>(n));
    _DBStoreLE16(file + 278, unique ? 1 : 0);
    _DBclFormatPage(reinterpret_cast<char *>(file) + DBNTXPAGE, h);
    if (_DBIndexWriteNew(filename, file, sizeof file) != 0) return here.fail(DBerrno, __LINE__);
    return _DBStatus(0);
}
