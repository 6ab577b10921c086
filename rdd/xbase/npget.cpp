// npget.cpp - fetching NDX nodes through the page cache, what a node must
// look like before any code works on it, and the item helpers.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/npget"};
}

bool _DBd3SoundPage(const char *pg, const void *hdr) {
    const auto &h = *static_cast<const DBNDXHDR *>(hdr);
    // The count is four bytes: anything past the block's room, negative
    // included, is damage. An interior node also needs the child after its
    // last key.
    const uint32_t n = _DBLoadLE32(pg);
    if (n > static_cast<uint32_t>((DBNDXBLOCK - 4) / h.il)) return false;
    if (!_DBd3Leaf(pg, h.il) && 4 + n * h.il + 4 > static_cast<uint32_t>(DBNDXBLOCK)) return false;
    return true;
}

void _DBd3SetItem(char *pg, int i, const DBNDXHDR &h, int32_t child, int32_t recno, const char *key) {
    char *it = _DBd3Item(pg, i, h.il);
    _DBStoreLE32(it, static_cast<uint32_t>(child));
    _DBStoreLE32(it + 4, static_cast<uint32_t>(recno));
    std::memcpy(it + 8, key, h.k);
    std::memset(it + 8 + h.k, 0, static_cast<size_t>(h.il - 8 - h.k));
}

void _DBd3Tidy(char *pg, const DBNDXHDR &h) {
    const int n = _DBd3Count(pg);
    int used = 4 + n * h.il;
    if (!_DBd3Leaf(pg, h.il) || (n == 0 && _DBd3ChildBlock(pg, 0, h.il) != 0)) used += 4;
    if (used < DBNDXBLOCK) std::memset(pg + used, 0, static_cast<size_t>(DBNDXBLOCK - used));
}

DBPAGEFILE _DBd3PageFile() {
    DBNDXPKT *x = DBd3i;
    return DBPAGEFILE{x->ph.dh, DBNDXBLOCK, x->fs, x->ph.flush_disk, 4, _DBd3SoundPage, &x->h,
                      x->ph.m.shared ? nullptr : &x->map};
}

int _DBd3ReadPage(int32_t page, char **pg) {
    const DBPAGEFILE f = _DBd3PageFile();
    if (_DBPageFetch(DBd3i->pc, f, page, pg) != 0) return here.fail(DBerrno, __LINE__);
    return 0;
}

int _DBd3Load(DBNDXWORK &w, int32_t page) {
    char *pg = nullptr;
    if (_DBd3ReadPage(page, &pg) != 0) return DBerrno;
    w.at = page;
    std::memcpy(w.b, pg, DBNDXBLOCK);
    std::memset(w.b + DBNDXBLOCK, 0, sizeof w.b - DBNDXBLOCK);
    return 0;
}

int _DBd3Save(DBNDXWORK &w) {
    _DBd3Tidy(w.b, DBd3i->h);
    return _DBd3StorePage(w.at, w.b);
}
