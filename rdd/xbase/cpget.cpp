// cpget.cpp - fetching NTX pages through the page cache, and what a page
// must look like before any code works on it.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/cpget"};
}

void _DBclFormatPage(char *pg, const DBNTXHDR &h) {
    std::memset(pg, 0, DBNTXPAGE);
    const int m = h.max_number_keys_page;
    for (int i = 0; i <= m; i++) _DBclSetOffset(pg, i, 2 * m + 4 + i * h.key_item_len);
}

bool _DBclSoundPage(const char *pg, const void *pkt) {
    const auto *x = static_cast<const DBNTXPKT *>(pkt);
    const int m = x->h.max_number_keys_page, len = x->h.key_item_len;
    if (_DBclCount(pg) > m) return false;
    // Every offset must name a whole slot past the offset array, and no two
    // slots may overlap: inserts take the spare offsets as free room, so
    // overlapping slots would let two keys share bytes. Slots on the grid
    // that formatting lays out are checked by lookup; any other layout is
    // sorted and checked pairwise.
    uint8_t used[DBNTXPAGE / 9 + 2] = {};
    bool grid = true;
    for (int i = 0; i <= m && grid; i++) {
        const int off = _DBclOffset(pg, i);
        const int j = off < DBNTXPAGE ? x->grid[off] : 0;
        if (j == 0 || used[j]) grid = false;
        else used[j] = 1;
    }
    if (grid) return true;
    int16_t off[DBNTXPAGE / 9 + 1];
    for (int i = 0; i <= m; i++) {
        off[i] = static_cast<int16_t>(_DBclOffset(pg, i));
        if (off[i] < 2 + 2 * (m + 1) || off[i] + len > DBNTXPAGE) return false;
    }
    std::sort(off, off + m + 1);
    for (int i = 1; i <= m; i++)
        if (off[i] - off[i - 1] < len) return false;
    return true;
}

DBPAGEFILE _DBclPageFile() {
    DBNTXPKT *x = DBcli;
    return DBPAGEFILE{x->ph.dh, DBNTXPAGE, x->fs, x->ph.flush_disk, 2, _DBclSoundPage, x,
                      x->ph.m.shared ? nullptr : &x->map};
}

int _DBclReadPage(int32_t page, char **pg) {
    // The page fetched last is asked for again and again by the moves.
    const DBPAGECACHE &c = DBcli->pc;
    if (c.head >= 0 && c.cp[c.head].page_number == page) {
        *pg = c.cp[c.head].index_page_cache;
        return 0;
    }
    const DBPAGEFILE f = _DBclPageFile();
    if (_DBPageFetch(DBcli->pc, f, page, pg) != 0) return here.fail(DBerrno, __LINE__);
    return 0;
}

int _DBclLoad(DBNTXWORK &w, int32_t page) {
    char *pg = nullptr;
    if (_DBclReadPage(page, &pg) != 0) return DBerrno;
    w.at = page;
    std::memcpy(w.b, pg, DBNTXPAGE);
    return 0;
}

void _DBclSetItem(char *pg, int i, int32_t child, int32_t recno, const char *key, int k) {
    char *it = _DBclItem(pg, i);
    _DBStoreLE32(it, static_cast<uint32_t>(child));
    _DBStoreLE32(it + 4, static_cast<uint32_t>(recno));
    std::memcpy(it + 8, key, static_cast<size_t>(k));
}

void _DBclMoveOffsets(char *pg, int to, int from, int count) {
    if (count <= 0 || to == from) return;
    uint16_t off[DBNTXPAGE / 9 + 2];
    const int lo = to < from ? to : from;
    const int hi = (to < from ? from : to) + count;
    for (int i = lo; i < hi; i++) off[i - lo] = static_cast<uint16_t>(_DBclOffset(pg, i));
    // Moving the run [from, from+count) to `to` is a rotation of the span the
    // two cover: the entries it passes over fill the gap it leaves.
    if (to > from)
        std::rotate(off, off + count, off + (hi - lo));
    else
        std::rotate(off, off + (from - to), off + (hi - lo));
    for (int i = lo; i < hi; i++) _DBclSetOffset(pg, i, off[i - lo]);
}

void _DBclRemoveAt(char *pg, int p, int m) {
    _DBclMoveOffsets(pg, p, p + 1, m - p);
    _DBclSetCount(pg, _DBclCount(pg) - 1);
}
