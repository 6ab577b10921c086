// dcreate.cpp - writing a new, empty table from a list of field
// descriptions: every field is checked against the limits of the chosen
// style before anything touches the disk.
#include "dbf.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/dcreate"};

constexpr int kIndexBit = 0x200;   // mode: set the production-index flag
constexpr int kFieldIndexed = 0x100;  // field type: indexed in that index

int _maxFields(int style) {
    switch (style) {
    case 2: case 8: return 255;
    case 5: case 6: return 1023;
    case 7: return 512;
    default: return 128;
    }
}

char _upper(int c) { return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c); }

// Check one field against the style, fix the lengths of fixed-size types in
// the caller's array, and note what the field does to the version byte.
int _checkField(DBFIELD &fd, int style, uint8_t *version) {
    const size_t nlen = strnlen(fd.name, sizeof fd.name);
    if (nlen == 0 || nlen > 10) return here.fail(DBE_FIELDNAME, __LINE__);
    _DBstrupr(fd.name);
    const int t = fd.type & 0xFF;
    if (t > 'n') return here.fail(DBE_FIELDTYPE, __LINE__);
    switch (t) {
    case 1: case 2: fd.len = 2; fd.decpl = 0; break;
    case 3: case 4: case 11: fd.len = 4; fd.decpl = 0; break;
    case 13: case 'D': case 'd': fd.len = 8; fd.decpl = 0; break;
    case 'L': case 'l': fd.len = 1; fd.decpl = 0; break;
    case 'C': case 'c': {
        const int most = style == 6 ? 2048 : 254;
        if (fd.len < 1 || fd.len > most) return here.fail(DBE_FIELDLEN, __LINE__);
        fd.decpl = 0;
        break;
    }
    case 'M': case 'm':
        fd.len = 10;
        fd.decpl = 0;
        // Each family marks a table with memo fields its own way; style 0
        // keeps the plain version byte.
        if (style == 4 || style == 8) *version = 0xF5;
        else if (style == 2) *version |= 0x88;
        else if (style != 0) *version |= 0x80;
        break;
    case 'F': case 'f':
        if (style != 2 && style != 4 && style != 8) return here.fail(DBE_FIELDTYPE, __LINE__);
        [[fallthrough]];
    case 'N': case 'n': {
        const int most = (style == 2 || style == 4 || style == 8) ? 20 : 19;
        if (fd.len < 1 || fd.len > most) return here.fail(DBE_FIELDLEN, __LINE__);
        if (fd.decpl < 0) return here.fail(DBE_DECIMALS, __LINE__);
        if (fd.decpl >= 1) {
            if (fd.decpl > fd.len - 2) return here.fail(DBE_DECIMALS, __LINE__);
            const bool dbase3 = style == 1 || style == 3 || style == 5 || style == 6 || style == 7 || style == 9;
            if (dbase3 && fd.decpl >= 16) return here.fail(DBE_DECIMALS, __LINE__);
        }
        break;
    }
    default:
        return here.fail(DBE_FIELDTYPE, __LINE__);
    }
    if (t >= 'a' && t <= 'z') fd.type = (fd.type & ~0xFF) | _upper(t);
    return 0;
}
}  // namespace

int _DBCheckFields(int style, int nfields, DBFIELD *fields, uint8_t *version, int *reclen) {
    if (nfields <= 0) return here.fail(DBE_NUMFIELDS, __LINE__);
    if (style < 0 || style > 9) return here.fail(DBE_BADVERSION, __LINE__);
    if (nfields > _maxFields(style)) return here.fail(DBE_NUMFIELDS, __LINE__);
    *version = 0x03;
    *reclen = 1;  // the deletion flag
    const int most = style == 6 ? 8192 : 4000;
    for (int i = 0; i < nfields; i++) {
        if (_checkField(fields[i], style, version) != 0) return DBerrno;
        *reclen += fields[i].len;
        if (*reclen > most) return here.fail(DBE_RECLEN, __LINE__);
    }
    return 0;
}

extern "C" DBAPI int DBCreateFile(char *filename, int nfields, DBFIELD *fields, int mode) {
    if (!filename || !fields) return here.fail(DBE_NULLPARAM, __LINE__);
    const bool indexed = (mode & kIndexBit) != 0;
    const int style = mode & ~kIndexBit;
    uint8_t version = 0x03;
    int reclen = 1;
    if (_DBCheckFields(style, nfields, fields, &version, &reclen) != 0) return DBerrno;

    // Style 9 ends its descriptors with a whole 32-byte terminator block.
    const int hl = 32 * nfields + (style == 9 ? 64 : 33);
    int y = 0, m = 0, dd = 0, dow = 0;
    if (DBGetDate3(&y, &m, &dd, &dow) != 0) return here.fail(DBerrno, __LINE__);

    // The whole file is built in memory and written at once: the header,
    // the descriptors, the terminator and the end mark of an empty table.
    DBOwned<uint8_t> img;
    const size_t size = static_cast<size_t>(hl) + 1;
    if (img.alloc(size, here.id, __LINE__) != 0) return DBerrno;
    uint8_t *p = img.get();
    p[0] = version;
    p[1] = static_cast<uint8_t>((y + 48) & 0xFF);
    p[2] = static_cast<uint8_t>(m);
    p[3] = static_cast<uint8_t>(dd);
    _DBStoreLE32(p + 4, 0);
    _DBStoreLE16(p + 8, static_cast<uint16_t>(hl));
    _DBStoreLE16(p + 10, static_cast<uint16_t>(reclen));
    p[28] = indexed ? 1 : 0;
    for (int i = 0; i < nfields; i++) {
        const DBFIELD &fd = fields[i];
        uint8_t *q = p + 32 + 32 * i;
        std::memcpy(q, fd.name, std::strlen(fd.name));
        const int t = fd.type & 0xFF;
        q[11] = static_cast<uint8_t>(t);
        q[16] = static_cast<uint8_t>(fd.len & 0xFF);
        // Character fields carry the high byte of their length in the
        // decimals byte; that is how they reach 2048 bytes.
        q[17] = static_cast<uint8_t>(t == 'C' ? (fd.len >> 8) & 0xFF : fd.decpl);
        if (indexed && style == 2) q[31] = (fd.type & kFieldIndexed) ? 1 : 0;
    }
    p[32 + 32 * nfields] = 0x0D;
    p[hl] = 0x1A;

    int fdesc = -1;
    if (DBosCreateFile(&fdesc, filename) != 0) return DBerrno;
    int rc = DBosWriteData(fdesc, p, static_cast<int>(size), 0);
    if (rc != 0) here.fail(rc, __LINE__);
    const int crc = DBosCloseFile(fdesc);
    if (rc == 0) rc = crc;
    // A write that failed is the answer even when the close went well: the
    // file on disk is not the table that was asked for, and it goes.
    if (rc != 0) _DBosDeleteFile(filename);
    return _DBStatus(rc);
}
