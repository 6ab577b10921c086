// opget.cpp - reading CDX and IDX pages: through the tag's page cache, what
// a page must look like before any code works on it, and the compact leaf
// codec (decoding a leaf from its first entry, remembering how far it got;
// packing entries into a leaf).
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/opget"};

inline uint64_t _entry(const uint8_t *e, int B) {
    uint64_t v = 0;
    for (int b = 0; b < B; b++) v |= static_cast<uint64_t>(e[b]) << (8 * b);
    return v;
}

// Duplicate and trailing counts of key after prev (prev null: the first key
// of its page, stored whole from its start).
inline void _counts(const DBCDXWIDTHS &w, int k, char fill, const char *key, const char *prev, int *dup, int *trail) {
    int t = 0;
    while (t < k && key[k - 1 - t] == fill) t++;
    const int tmax = static_cast<int>(_DBfpLowBits(w.T));
    if (t > tmax) t = tmax;
    int d = 0;
    if (prev) {
        const int lim = k - t;
        while (d < lim && prev[d] == key[d]) d++;
        const int dmax = static_cast<int>(_DBfpLowBits(w.D));
        if (d > dmax) d = dmax;
    }
    *dup = d;
    *trail = t;
}
}  // namespace

const char *_DBfpPageFault(const DBCDXTAG *t, const char *pg) {
    const int attr = _DBfpAttr(pg);
    if (attr & ~3) return "node attributes other than root and leaf";
    const int n = _DBfpCount(pg);
    if (!(attr & 2) || !t->compact) {
        if (n > t->max_number_keys_page) return "more items than a node holds";
        return nullptr;
    }
    const auto *u = reinterpret_cast<const uint8_t *>(pg);
    const int R = u[20], D = u[21], T = u[22], B = u[23];
    if (B < 1 || B > 6) return "entry width out of range";
    if (R < 1 || R > 32 || D < 1 || D > 8 || T < 1 || T > 8 || R + D + T > 8 * B)
        return "field widths do not fit the entry width";
    if (_DBLoadLE32(pg + 14) != static_cast<uint32_t>(_DBfpLowBits(R))) return "record mask disagrees with its width";
    if (u[18] != _DBfpLowBits(D) || u[19] != _DBfpLowBits(T)) return "count masks disagree with their widths";
    if (n * B > DBCDX_LEAFROOM) return "more entries than a leaf holds";
    const int room = DBCDX_LEAFROOM - n * B, k = t->k;
    const uint64_t rmask = _DBfpLowBits(R);
    int sum = 0;
    for (int j = 0; j < n; j++) {
        const uint64_t v = _entry(u + 24 + j * B, B);
        if ((v & rmask) == 0) continue;
        const int dup = static_cast<int>((v >> R) & _DBfpLowBits(D));
        const int trail = static_cast<int>((v >> (R + D)) & _DBfpLowBits(T));
        if (dup + trail > k) return "counts longer than the key";
        sum += k - dup - trail;
        if (sum > room) return "stored keys run past the key area";
    }
    return nullptr;
}

bool _DBfpSoundPage(const char *pg, const void *ctx) {
    return _DBfpPageFault(static_cast<const DBCDXTAG *>(ctx), pg) == nullptr;
}

DBPAGEFILE _DBfpPageFile(const DBCDXTAG *t) {
    DBCDXPKT *x = DBfpi;
    return DBPAGEFILE{x->ph.dh, DBCDXPAGE, x->file_size, x->ph.flush_disk, 0, _DBfpSoundPage, t,
                      x->ph.m.shared ? nullptr : &x->map};
}

int _DBfpReadPage(int32_t page, char **pg) {
    if (_DBPageFetch(DBfpt->cp, _DBfpPageFile(DBfpt), page, pg) != 0) return here.fail(DBerrno, __LINE__);
    return 0;
}

int DBCDXTREE::read(int32_t page, char **pg) {
    // A page named by another page must be one of the file: anything else
    // is damage, not a bad argument.
    if (!_DBPageValid(_DBfpPageFile(t), page)) return here.fail(DBE_CORRUPT, __LINE__);
    return _DBfpReadPage(page, pg);
}

int _DBfpLoad(DBCDXWORK &w, int32_t page) {
    DBCDXTREE tr{DBfpt};
    char *pg = nullptr;
    if (tr.read(page, &pg) != 0) return DBerrno;
    w.at = page;
    std::memcpy(w.b, pg, DBCDXPAGE);
    return 0;
}

// ---------------------------------------------------------------------------
// Compact leaves
// ---------------------------------------------------------------------------

DBCDXWIDTHS _DBfpWidthsFor(int k, uint32_t maxrec) {
    DBCDXWIDTHS w{};
    w.D = w.T = static_cast<uint8_t>(_DBfpBitLen(static_cast<uint32_t>(k)));
    int n = _DBfpBitLen(maxrec);
    if (n < 1) n = 1;
    w.B = static_cast<uint8_t>((n + w.D + w.T + 7) / 8);
    w.R = static_cast<uint8_t>(8 * w.B - w.D - w.T);
    if (w.R > 32) w.R = 32;
    return w;
}

int _DBfpLeafOpen(DBCDXTAG *t, int32_t page, const char *pg) {
    DBCDXLEAF &L = t->lf;
    // The same bytes decode the same way: as long as the page is unchanged,
    // the decoding goes on from where it stopped.
    if (L.page == page && std::memcmp(L.raw, pg, DBCDXPAGE) == 0) return 0;
    L.page = 0;
    std::memcpy(L.raw, pg, DBCDXPAGE);
    std::memset(L.raw + DBCDXPAGE, 0, sizeof L.raw - DBCDXPAGE);
    const auto *u = reinterpret_cast<const uint8_t *>(pg);
    L.count = static_cast<int16_t>(_DBfpCount(pg));
    L.R = u[20];
    L.D = u[21];
    L.T = u[22];
    L.B = u[23];
    // Pages are checked as they are read; these few tests keep the decoder
    // inside its buffers even so.
    if (L.B < 1 || L.B > 6 || L.R + L.D + L.T > 8 * L.B || L.R > 32 || L.D > 8 || L.T > 8 ||
        L.count * L.B > DBCDX_LEAFROOM)
        return here.fail(DBE_CORRUPT, __LINE__);
    L.rmask = _DBfpLowBits(L.R);
    L.dmask = static_cast<uint32_t>(_DBfpLowBits(L.D));
    L.tmask = static_cast<uint32_t>(_DBfpLowBits(L.T));
    if (L.cap < L.count) {
        int cap = L.count < 32 ? 32 : L.count;
        void *k = L.keys, *r = L.recs;
        const size_t kb = static_cast<size_t>(cap) * t->k, rb = static_cast<size_t>(cap) * sizeof(int32_t);
        if ((k ? DBReAllocateMemory(&k, kb, here.id, __LINE__) : DBAllocateMemoryLog(&k, kb, here.id, __LINE__)) != 0)
            return DBerrno;
        L.keys = static_cast<char *>(k);
        if ((r ? DBReAllocateMemory(&r, rb, here.id, __LINE__) : DBAllocateMemoryLog(&r, rb, here.id, __LINE__)) != 0)
            return DBerrno;
        L.recs = static_cast<int32_t *>(r);
        L.cap = static_cast<int16_t>(cap);
    }
    L.n = 0;
    L.kt = DBCDXPAGE;
    L.page = page;
    t->recnummask = static_cast<uint32_t>(L.rmask);
    return 0;
}

int _DBfpLeafDecodeTo(DBCDXTAG *t, int i) {
    DBCDXLEAF &L = t->lf;
    const int k = t->k, B = L.B;
    const char fill = t->fc;
    const int floor = 24 + L.count * B;
    const auto *raw = reinterpret_cast<const uint8_t *>(L.raw);
    while (L.n <= i && L.n < L.count) {
        const int j = L.n;
        const uint64_t v = _entry(raw + 24 + j * B, B);
        char *key = L.keys + static_cast<size_t>(j) * k;
        const char *prev = j > 0 ? key - k : nullptr;
        const int32_t rec = static_cast<int32_t>(v & L.rmask);
        if (rec == 0) {
            // A record number of 0 consumes no key bytes: the entry repeats
            // the key before it.
            if (prev) std::memcpy(key, prev, static_cast<size_t>(k));
            else std::memset(key, fill, static_cast<size_t>(k));
            L.recs[j] = 0;
            L.n++;
            continue;
        }
        const int dup = static_cast<int>((v >> L.R) & L.dmask);
        const int trail = static_cast<int>((v >> (L.R + L.D)) & L.tmask);
        const int len = k - dup - trail;
        if (len < 0 || L.kt - len < floor) {
            L.page = 0;
            return here.fail(DBE_CORRUPT, __LINE__);
        }
        L.kt = static_cast<int16_t>(L.kt - len);
        if (prev) std::memcpy(key, prev, static_cast<size_t>(dup));
        else std::memset(key, fill, static_cast<size_t>(dup));
        std::memcpy(key + dup, L.raw + L.kt, static_cast<size_t>(len));
        std::memset(key + k - trail, fill, static_cast<size_t>(trail));
        L.recs[j] = rec;
        L.n++;
    }
    return 0;
}

int _DBfpLeafEntry(DBCDXTAG *t, int32_t page, const char *pg, int i, const char **key, int32_t *rec) {
    if (_DBfpLeafOpen(t, page, pg) != 0) return DBerrno;
    if (i < 0 || i >= t->lf.count) return here.fail(DBE_CORRUPT, __LINE__);
    if (_DBfpLeafDecodeTo(t, i) != 0) return DBerrno;
    *key = t->lf.keys + static_cast<size_t>(i) * t->k;
    *rec = t->lf.recs[i];
    return 0;
}

int _DBfpPackedSize(const DBCDXWIDTHS &w, int k, char fill, const char *keys, int j, bool first) {
    int dup = 0, trail = 0;
    const char *key = keys + static_cast<size_t>(j) * k;
    _counts(w, k, fill, key, first ? nullptr : key - k, &dup, &trail);
    return w.B + k - dup - trail;
}

bool _DBfpLeafPack(char *pg, const DBCDXWIDTHS &w, int k, char fill, const char *keys, const int32_t *recs, int m) {
    const uint64_t rmask = _DBfpLowBits(w.R);
    std::memset(pg + 12, 0, DBCDXPAGE - 12);
    int kt = DBCDXPAGE;
    const int floor = 24 + m * w.B;
    if (floor > DBCDXPAGE) return false;
    for (int j = 0; j < m; j++) {
        const uint32_t rec = static_cast<uint32_t>(recs[j]);
        if (rec == 0 || rec > rmask) return false;
        const char *key = keys + static_cast<size_t>(j) * k;
        int dup = 0, trail = 0;
        _counts(w, k, fill, key, j > 0 ? key - k : nullptr, &dup, &trail);
        const int len = k - dup - trail;
        if (kt - len < floor) return false;
        kt -= len;
        std::memcpy(pg + kt, key + dup, static_cast<size_t>(len));
        const uint64_t v = rec | (static_cast<uint64_t>(dup) << w.R) | (static_cast<uint64_t>(trail) << (w.R + w.D));
        for (int b = 0; b < w.B; b++) pg[24 + j * w.B + b] = static_cast<char>(v >> (8 * b));
    }
    _DBfpSetCount(pg, m);
    _DBStoreLE16(pg + 12, static_cast<uint16_t>(kt - floor));
    _DBStoreLE32(pg + 14, static_cast<uint32_t>(rmask));
    pg[18] = static_cast<char>(_DBfpLowBits(w.D));
    pg[19] = static_cast<char>(_DBfpLowBits(w.T));
    pg[20] = static_cast<char>(w.R);
    pg[21] = static_cast<char>(w.D);
    pg[22] = static_cast<char>(w.T);
    pg[23] = static_cast<char>(w.B);
    return true;
}

void _DBfpEmptyLeaf(char *pg, bool compact, int k, int attr) {
    std::memset(pg, 0, DBCDXPAGE);
    _DBStoreLE16(pg, static_cast<uint16_t>(attr));
    _DBfpSetLeft(pg, -1);
    _DBfpSetRight(pg, -1);
    if (compact) _DBfpLeafPack(pg, _DBfpWidthsFor(k, 1), k, ' ', nullptr, nullptr, 0);
}

int _DBfpEntry(int32_t page, const char *pg, int i, char *key, int32_t *rec) {
    DBCDXTAG *t = DBfpt;
    if (i < 0 || i >= _DBfpCount(pg)) return here.fail(DBE_CORRUPT, __LINE__);
    if (_DBfpPacked(t, pg)) {
        const char *k = nullptr;
        if (_DBfpLeafEntry(t, page, pg, i, &k, rec) != 0) return DBerrno;
        std::memcpy(key, k, static_cast<size_t>(t->k));
        return 0;
    }
    std::memcpy(key, _DBfpItem(t, pg, i), static_cast<size_t>(t->k));
    // A non-compact interior item has a child where a leaf has a record.
    *rec = (t->compact || _DBfpLeaf(pg)) ? _DBfpItemRec(t, pg, i) : 0;
    return 0;
}

int _DBfpCurrentEntry(char *key, int32_t *recno) {
    DBCDXTAG *t = DBfpt;
    const int16_t tl = t->current_btree_page_level;
    if (tl < 0) return _DBStatus(DBW_NOMOREKEYS);
    char *pg = nullptr;
    if (_DBfpReadPage(t->page_tree_array[tl].current_page_number, &pg) != 0) return DBerrno;
    if (_DBfpEntry(t->page_tree_array[tl].current_page_number, pg, t->page_tree_array[tl].i, key, recno) != 0) return DBerrno;
    key[t->k] = '\0';
    return _DBStatus(0);
}
