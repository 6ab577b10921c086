// dsize.cpp - the record count, and the header reread through which a
// shared table learns what other processes appended.
#include "dbf.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/dsize"};
}

int _DBGetFileHeader() {
    DBDATAPKT *d = DBxbd;
    uint8_t raw[32];
    if (DBosSetFilePosition(d->ph.dh, 0) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosReadData(d->ph.dh, raw, 32) != 0) return DBerrno;
    const auto n = static_cast<int32_t>(_DBLoadLE32(raw + 4));
    // Another process may change the count and the date, never the layout;
    // a header that says otherwise is not the table we opened.
    if (_DBLoadLE16(raw + 8) != d->h.h || _DBLoadLE16(raw + 10) != d->h.r || n < 0 ||
        _DBTableEnd(d, n) > INT32_MAX)
        return here.fail(DBE_CORRUPT, __LINE__);
    d->h.y = raw[1];
    d->h.m = raw[2];
    d->h.d = raw[3];
    // Appends of ours still in the cache are newer than the file's count:
    // they are written, with our count, at the next flush.
    if (d->u & 0x20) return _DBStatus(0);
    if (n != d->h.n && d->b.s == 0) d->b.nr = 0;
    d->h.n = n;
    return _DBStatus(0);
}

int _DBRefreshHeader() {
    if (DBxbd->ph.m.read_header_information) return _DBGetFileHeader();
    return 0;
}

extern "C" DBAPI int DBGetRecordCount(int handle, int32_t *count) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!count) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBRefreshHeader() != 0) return DBerrno;
    *count = DBxbd->h.n;
    return _DBStatus(0);
}
