// othget.cpp - the CDX and IDX header fields that change while a file is
// open: rereading them (what another process changed), counting changes,
// and the bookkeeping every public positioning call does before and after
// its work.
#include "cdx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/othget"};
}

int _DBfpGetIndexHeader() {
    DBCDXPKT *x = DBfpi;
    DBCDXTAG *t = DBfpt;
    uint8_t b[12];
    if (_DBosReadAt(x->ph.dh, 0, b, sizeof b) != 0) return here.fail(DBerrno, __LINE__);
    const bool compact = _DBfpIsCompact(static_cast<uint8_t>(x->file_type));
    x->ff = static_cast<int32_t>(_DBLoadLE32(b + 4));
    if (compact) {
        x->cs = _DBLoadBE32(b + 8);
        // Other writers append pages: the file's true end is what counts.
        int32_t len = 0;
        if (DBosFileLength(x->ph.dh, &len) != 0) return here.fail(DBerrno, __LINE__);
        if (len > x->file_size) x->file_size = len;
    } else {
        x->file_size = static_cast<int32_t>(_DBLoadLE32(b + 8));
    }
    DBCDXHDR &h0 = x->tt[0]->index_header;
    h0.index_file_root_page_offset = static_cast<int32_t>(_DBLoadLE32(b));
    h0.upt = x->ff;
    h0.number_of_pages_in_index_file = _DBLoadLE32(b + 8);
    if (t->hdrofs != 0) {
        uint8_t r[4];
        if (_DBosReadAt(x->ph.dh, t->hdrofs, r, sizeof r) != 0) return here.fail(DBerrno, __LINE__);
        t->index_header.index_file_root_page_offset = static_cast<int32_t>(_DBLoadLE32(r));
    }
    return 0;
}

int _DBfpRefresh() {
    DBCDXPKT *x = DBfpi;
    if (!x->ph.m.read_header_information) return 0;
    if (_DBfpGetIndexHeader() != 0) {
        const int rc = DBerrno;
        _DBfpForgetTags(x);
        return _DBStatus(rc);
    }
    return 0;
}

int _DBfpSettle(int rc, const char *key, int32_t recno) {
    DBCDXPKT *x = DBfpi;
    DBCDXTAG *t = DBfpt;
    if (x->ph.m.shared && t->ck.k) {
        // The cached pages may go: keep the place by its key and record.
        if (rc >= 0 && t->current_btree_page_level >= 0 && key) {
            std::memcpy(t->ck.k, key, static_cast<size_t>(t->k));
            t->ck.k[t->k] = '\0';
            t->ck.r = recno;
        } else if (rc != DBW_NOMOREKEYS) {
            t->ck.r = 0;
        }
    }
    // Not locked: the pages go, and with them the trust in the path.
    if (x->ph.m.shared && !x->ph.ls) t->stale = true;
    const int cleared = _DBfpClearPageBuffer();
    if (rc >= 0 && cleared != 0) return _DBStatus(cleared);
    return _DBStatus(rc);
}

bool _DBfpMustReposition() {
    const DBCDXTAG *t = DBfpt;
    return DBfpi->ph.m.shared && t->ck.k && t->stale;
}

int _DBfpReposition() {
    DBCDXTAG *t = DBfpt;
    if (t->ck.r == 0) {
        t->current_btree_page_level = -1;
        return _DBStatus(DBW_NOMOREKEYS);
    }
    return _DBfpSeek(t->ck.k, t->k, static_cast<uint32_t>(t->ck.r), 2, false);
}

extern "C" DBAPI int DBfpGetIndexHeader(int handle) {
    if (_DBfpLockIndexStruc(handle) != 0) return DBerrno;
    // Only another process can have moved the header: an exclusive file, or
    // one this process holds locked, has its newest header in memory (and
    // perhaps not yet on disk).
    if (!DBfpi->ph.m.shared || DBfpi->ph.ls) return _DBStatus(0);
    if (_DBfpGetIndexHeader() != 0) return DBerrno;
    _DBfpForgetTags(DBfpi);
    return _DBStatus(0);
}

extern "C" DBAPI int DBfbGetIndexHeader(int handle) { return DBfpGetIndexHeader(handle); }

extern "C" DBAPI int DBfpPutIndexHeader(int handle) {
    if (_DBfpLockIndexStruc(handle) != 0) return DBerrno;
    DBCDXPKT *x = DBfpi;
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (!_DBfpIsCompact(static_cast<uint8_t>(x->file_type))) return _DBStatus(0);
    x->cs++;
    uint8_t b[4];
    _DBStoreBE32(b, x->cs);
    if (_DBosWriteAt(x->ph.dh, 8, b, sizeof b, x->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    x->tt[0]->index_header.number_of_pages_in_index_file = x->cs;
    return _DBStatus(0);
}
