// oktype.cpp - a tag's key type and fill, and the compact-leaf routines a
// host can call on a leaf page it holds: decoding entry by entry with the
// working cursors, the counts of a key that follows another, packing an
// entry, the sums of stored lengths, the insert position, and the leaf dump
// (printed through the host's vorn_debugf, when it has one).
#include "cdx.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/oktype"};

struct _Leaf {
    int n, R, D, T, B;
    uint64_t rmask;
    uint32_t dmask, tmask;
};

int _leaf(const DBCDXTAG *t, const char *page, _Leaf *l) {
    if (!_DBfpLeaf(page) || !t->compact) return here.fail(DBE_CORRUPT, __LINE__);
    if (_DBfpPageFault(t, page)) return here.fail(DBE_CORRUPT, __LINE__);
    const auto *u = reinterpret_cast<const uint8_t *>(page);
    l->n = _DBfpCount(page);
    l->R = u[20];
    l->D = u[21];
    l->T = u[22];
    l->B = u[23];
    l->rmask = _DBfpLowBits(l->R);
    l->dmask = static_cast<uint32_t>(_DBfpLowBits(l->D));
    l->tmask = static_cast<uint32_t>(_DBfpLowBits(l->T));
    return 0;
}

uint64_t _value(const char *e, int B) {
    uint64_t v = 0;
    for (int b = 0; b < B; b++) v |= static_cast<uint64_t>(static_cast<uint8_t>(e[b])) << (8 * b);
    return v;
}

// Stored length of each entry (0 for an entry without a record number).
int _stored(const DBCDXTAG *t, const char *page, const _Leaf &l, int j, int *dup, int *trail) {
    const uint64_t v = _value(page + 24 + j * l.B, l.B);
    *dup = static_cast<int>((v >> l.R) & l.dmask);
    *trail = static_cast<int>((v >> (l.R + l.D)) & l.tmask);
    if ((v & l.rmask) == 0) return 0;
    const int len = t->k - *dup - *trail;
    return len > 0 ? len : 0;
}
}  // namespace

char *DBfpib = nullptr;
char *DBfpkt = nullptr;
int16_t DBfpdup = 0;
int16_t DBfptrail = 0;
int16_t DBfplen = 0;
int16_t DBfpnodup = 0;
DBCDXITEM DBfpitem = {};

extern "C" DBAPI int DBfpSetDefaultKeyType(int tag, int type) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    const int ty = type & ~0x20;
    DBCDXTAG *t = DBfpt;
    switch (ty) {
    case 'C': t->fc = ' '; break;
    case 'D': case 'L': case 'N': t->fc = 0; break;
    default: return here.fail(DBE_KEYTYPE, __LINE__);
    }
    t->index_key_type = static_cast<char>(ty);
    // Keys decoded with the old fill are not the keys any more.
    t->lf.page = 0;
    return _DBStatus(0);
}

extern "C" DBAPI int DBfbSetDefaultKeyType(int handle, int type) { return DBfpSetDefaultKeyType(handle, type); }

extern "C" DBAPI int DBfpGetCurKeyFromPage(int tag, char *page, char *key, int32_t *recno) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!page || !key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBCDXTAG *t = DBfpt;
    _Leaf l;
    if (_leaf(t, page, &l) != 0) return DBerrno;
    const int k = t->k;
    char *first = page + 24 - l.B;
    if (!DBfpib) {
        DBfpib = first;
        DBfpkt = page + DBCDXPAGE;
        std::memset(key, t->fc, static_cast<size_t>(k));
    }
    // The cursor must lie on an entry of this page.
    if (DBfpib < first || DBfpib > page + 24 + (l.n - 1) * l.B || (DBfpib - first) % l.B != 0 ||
        DBfpkt > page + DBCDXPAGE || DBfpkt < page + 24 + l.n * l.B)
        return here.fail(DBE_BADCOMMAND, __LINE__);
    if (DBfpib + l.B >= page + 24 + l.n * l.B) return _DBStatus(DBW_NOMOREKEYS);
    DBfpib += l.B;
    std::memcpy(DBfpitem.keydupcnt, DBfpib, static_cast<size_t>(l.B));
    const uint64_t v = _value(DBfpib, l.B);
    *recno = static_cast<int32_t>(v & l.rmask);
    // A record number of 0 is passed over: no key bytes, the key unchanged.
    if (*recno == 0) return _DBStatus(0);
    int dup = 0, trail = 0;
    const int len = _stored(t, page, l, static_cast<int>((DBfpib - page - 24) / l.B), &dup, &trail);
    if (DBfpkt - len < page + 24 + l.n * l.B) return here.fail(DBE_CORRUPT, __LINE__);
    DBfpkt -= len;
    std::memcpy(key + dup, DBfpkt, static_cast<size_t>(len));
    std::memset(key + k - trail, t->fc, static_cast<size_t>(trail));
    key[k] = '\0';
    DBfpdup = static_cast<int16_t>(dup);
    DBfptrail = static_cast<int16_t>(trail);
    DBfplen = static_cast<int16_t>(len);
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpGetKeyFromPage(int tag, char *key, int32_t *recno) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!key || !recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (DBfpt->current_btree_page_level < 0) return _DBStatus(DBW_KEYNOTFOUND);
    return _DBfpCurrentEntry(key, recno);
}

extern "C" DBAPI int DBfpGetDupTrail(int tag, char *prev, char *key, int first) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!prev || !key) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBCDXTAG *t = DBfpt;
    const int k = t->k;
    const char fill = t->fc;
    int trail = 0;
    while (trail < k && key[k - 1 - trail] == fill) trail++;
    int dup = 0, run = -1;
    while (dup < k - trail && prev[dup] == key[dup]) {
        if (key[dup] == ' ') {
            if (run < 0) run = dup;
        } else {
            run = -1;
        }
        dup++;
    }
    DBfpnodup = 0;
    if (first) {
        // The classic rule for a node's first key: stored whole, except after
        // a shared prefix that ends in blanks following the previous key's
        // text (a quirk of the original routine, kept here; this library's
        // own writers always start a node with a duplicate count of 0).
        DBfpnodup = 1;
        const bool prevFilled = prev[k - 1] == fill;
        if (run > 0 && prevFilled) {
            int pl = k;
            while (pl > 0 && prev[pl - 1] == fill) pl--;
            dup = pl;
            DBfpnodup = 0;
        } else {
            dup = 0;
        }
    }
    int len = k - trail - dup;
    if (len < 0) len = 0;
    DBfpdup = static_cast<int16_t>(dup);
    DBfptrail = static_cast<int16_t>(trail);
    DBfplen = static_cast<int16_t>(len);
    return _DBStatus(0);
}

static int _build(int tag, char *page, uint32_t rec) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!page) return here.fail(DBE_NULLPARAM, __LINE__);
    _Leaf l;
    if (_leaf(DBfpt, page, &l) != 0) return DBerrno;
    std::memset(&DBfpitem, 0, sizeof DBfpitem);
    uint64_t v = (static_cast<uint64_t>(static_cast<uint16_t>(DBfptrail) & l.tmask) << l.D) |
                 (static_cast<uint16_t>(DBfpdup) & l.dmask);
    v <<= l.R % 8;
    for (int b = l.R / 8; b < l.B; b++) DBfpitem.keydupcnt[b] = static_cast<unsigned char>(v >> (8 * (b - l.R / 8)));
    const uint32_t r = rec & static_cast<uint32_t>(l.rmask);
    for (int b = 0; b < 4; b++) DBfpitem.keydupcnt[b] = static_cast<unsigned char>(DBfpitem.keydupcnt[b] | (r >> (8 * b)));
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpBuildDupTrail(int tag, char *page, int32_t recno) {
    uint8_t b[4];
    std::memcpy(b, &recno, sizeof b);
    return _build(tag, page, _DBLoadBE32(b));
}

extern "C" DBAPI int DBfpBuildDupTrail2(int tag, char *page, int32_t recno) {
    return _build(tag, page, static_cast<uint32_t>(recno));
}

static int _sum(int tag, char *page, int *sum) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!page || !sum) return here.fail(DBE_NULLPARAM, __LINE__);
    _Leaf l;
    if (_leaf(DBfpt, page, &l) != 0) return DBerrno;
    int s = 0, dup = 0, trail = 0;
    for (int j = 0; j < l.n; j++) s += _stored(DBfpt, page, l, j, &dup, &trail);
    *sum = s;
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpCalculateCurrentKeyLengthsInBuffer(int tag, char *page, int *sum) { return _sum(tag, page, sum); }

extern "C" DBAPI int DBfpCalculateNextKeyPositionInBuffer(int tag, char *page, char **at) {
    if (!at) return here.fail(DBE_NULLPARAM, __LINE__);
    int s = 0;
    if (_sum(tag, page, &s) != 0) return DBerrno;
    *at = page + DBCDXPAGE - s;
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpFIndInsertPosition(int tag, char *page, char *key, DBFPINSERTPOS *pos) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!page || !key || !pos) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBCDXTAG *t = DBfpt;
    _Leaf l;
    if (_leaf(t, page, &l) != 0) return DBerrno;
    const int k = t->k;
    char cur[DBCDXMAXKEY + 1];
    std::memset(cur, t->fc, sizeof cur);
    int kt = DBCDXPAGE, index = l.n, before = 0;
    for (int j = 0; j < l.n; j++) {
        int dup = 0, trail = 0;
        const int len = _stored(t, page, l, j, &dup, &trail);
        if (kt - len < 24 + l.n * l.B) return here.fail(DBE_CORRUPT, __LINE__);
        kt -= len;
        std::memcpy(cur + dup, page + kt, static_cast<size_t>(len));
        std::memset(cur + k - trail, t->fc, static_cast<size_t>(trail));
        // The whole key: its trailing fill is the fill the caller's key is
        // padded with.
        if (index == l.n && std::memcmp(cur, key, static_cast<size_t>(k)) >= 0) {
            index = j;
            before = DBCDXPAGE - (kt + len);
        }
    }
    if (index == l.n) before = DBCDXPAGE - kt;
    pos->index = index;
    pos->keyarea = kt;
    pos->before = before;
    pos->after = DBCDXPAGE - kt - before;
    return _DBStatus(0);
}

void debug_node_leaf(const DBCDXTAG *t, const char *pg) {
    if (!vorn_debugf) return;
    const auto *u = reinterpret_cast<const uint8_t *>(pg);
    const int n = _DBfpCount(pg), B = u[23];
    vorn_debugf("numberofkeys=%d\n", n);
    vorn_debugf("left=%d\n", static_cast<int>(_DBfpLeft(pg)));
    vorn_debugf("right=%d\n", static_cast<int>(_DBfpRight(pg)));
    vorn_debugf("availablefreespace=%d\n", _DBLoadLE16(pg + 12));
    vorn_debugf("recnummask=%04x\n", static_cast<unsigned>(_DBLoadLE32(pg + 14)));
    vorn_debugf("duplicatebytecntmask=%04x\n", u[18]);
    vorn_debugf("trailingbytecntmask=%04x\n", u[19]);
    vorn_debugf("numberofbitsforrecnum=%d\n", u[20]);
    vorn_debugf("numberofbitsforduplicatebytecnt=%d\n", u[21]);
    vorn_debugf("numberofbitsfortrailingbytecnt=%d\n", u[22]);
    vorn_debugf("numberofbytesfor_recnum_duplicate_trailing=%d\n", B);
    _Leaf l;
    if (_DBfpPageFault(t, pg) || !_DBfpLeaf(pg)) return;
    l.n = n;
    l.R = u[20];
    l.D = u[21];
    l.T = u[22];
    l.B = B;
    l.rmask = _DBfpLowBits(l.R);
    l.dmask = static_cast<uint32_t>(_DBfpLowBits(l.D));
    l.tmask = static_cast<uint32_t>(_DBfpLowBits(l.T));
    for (int j = 0; j < n; j++) {
        char hex[16] = {};
        for (int b = 0; b < B; b++) std::snprintf(hex + 2 * b, 3, "%02x", u[24 + j * B + b]);
        vorn_debugf("[%d]=%s\n", j, hex);
    }
    char key[DBCDXMAXKEY + 1];
    std::memset(key, t->fc, sizeof key);
    key[t->k] = '\0';
    int kt = DBCDXPAGE;
    for (int j = 0; j < n; j++) {
        int dup = 0, trail = 0;
        const int len = _stored(t, pg, l, j, &dup, &trail);
        const uint64_t v = _value(pg + 24 + j * B, B);
        kt -= len;
        std::memcpy(key + dup, pg + kt, static_cast<size_t>(len));
        std::memset(key + t->k - trail, t->fc, static_cast<size_t>(trail));
        const unsigned rec = static_cast<unsigned>(v & l.rmask);
        vorn_debugf("key[%d]=%04x recnum=%d(%04x) keylen=%d dup=%d trail=%d key='%s'\n", j, kt, static_cast<int>(rec), rec,
                    len, dup, trail, key);
    }
}

extern "C" DBAPI int DBfpDumpLeaf(int tag, char *page) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!page) return here.fail(DBE_NULLPARAM, __LINE__);
    _Leaf l;
    if (_leaf(DBfpt, page, &l) != 0) return DBerrno;
    debug_node_leaf(DBfpt, page);
    return _DBStatus(0);
}
