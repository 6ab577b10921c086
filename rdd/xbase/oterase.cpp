// oterase.cpp - removing a tag from a CDX file (its pages to the free list,
// its entry out of the directory), and emptying a tree before a rebuild.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/oterase"};

// Every page of the tree at `root` (item length L, child at `childAt`) to
// the free list, the root last unless it is kept. Pages are read from the
// file once each; a page met twice, or no page of the file, is damage.
int _freeTree(int32_t root, int L, int childAt, int maxItems, bool keepRoot) {
    DBCDXPKT *x = DBfpi;
    const DBPAGEFILE pf = _DBfpPageFile(DBfpt);
    const int32_t cap = x->file_size / DBCDXPAGE + 2;
    DBPageSet seen;
    DBOwned<int32_t> stack;
    if (seen.open(cap) != 0 || stack.alloc(static_cast<size_t>(cap), here.id, __LINE__) != 0) return DBerrno;
    int32_t sp = 0;
    stack[sp++] = root;
    while (sp > 0) {
        const int32_t p = stack[--sp];
        if (!_DBPageValid(pf, p) || !seen.add(p / DBCDXPAGE)) return here.fail(DBE_CORRUPT, __LINE__);
        char pg[DBCDXPAGE];
        if (_DBosReadAt(x->ph.dh, p, pg, DBCDXPAGE) != 0) return here.fail(DBerrno, __LINE__);
        if (!_DBfpLeaf(pg)) {
            const int n = _DBfpCount(pg);
            if (n > maxItems) return here.fail(DBE_CORRUPT, __LINE__);
            for (int i = 0; i < n; i++) {
                if (sp >= cap) return here.fail(DBE_CORRUPT, __LINE__);
                stack[sp++] = static_cast<int32_t>(_DBLoadBE32(pg + 12 + i * L + childAt));
            }
        }
        if (p == root && keepRoot) continue;
        if (_DBfpFreePage(p) != 0) return DBerrno;
    }
    return 0;
}
}  // namespace

int _DBfpFreeTree(bool keepRoot) {
    DBCDXTAG *t = DBfpt;
    // The walk reads the file: what the cache holds goes there first, and
    // then the cache lets go, so that no dirty copy of a freed page is
    // written over the free list later.
    if (!DBfpi->ph.m.read_only && _DBPageFlushAll(t->cp, _DBfpPageFile(t)) != 0) return here.fail(DBerrno, __LINE__);
    _DBfpForgetTag(t);
    if (_freeTree(_DBfpRoot(t), t->i, t->offset_to_page_number_in_key_item, t->max_number_keys_page, keepRoot) != 0)
        return DBerrno;
    if (keepRoot) {
        char leaf[DBCDXPAGE];
        _DBfpEmptyLeaf(leaf, t->compact, t->k, 3);
        if (_DBfpStorePage(_DBfpRoot(t), leaf) != 0) return DBerrno;
    }
    t->current_btree_page_level = -1;
    return 0;
}

int _DBfpDirKey(const char *name, char *key);

extern "C" DBAPI int DBfpDeleteTag(int handle, char *tagname) {
    if (_DBfpLockIndexPkt(handle) != 0) return DBerrno;
    if (!tagname) return here.fail(DBE_NULLPARAM, __LINE__);
    char name[11];
    if (_DBfpDirKey(tagname, name) != 0) return DBerrno;
    DBCDXPKT *x = DBfpi;
    if (!(static_cast<uint8_t>(x->file_type) & DBCDX_COMPOUND)) return here.fail(DBE_TAGNAME, __LINE__);
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    char trimmed[11];
    std::memcpy(trimmed, name, sizeof trimmed);
    for (int i = 9; i >= 0 && trimmed[i] == ' '; i--) trimmed[i] = '\0';
    for (int s = 1; s < x->tc; s++)
        if (x->tt[s] && _DBstricmp(x->tt[s]->n, trimmed) == 0) return here.fail(DBE_TAGINUSE, __LINE__);
    DBCDXAUTOLOCK lock;
    if (lock.take() != 0 || _DBfpRefresh() != 0) return _DBfpChanged(DBerrno);
    int rc = _DBfpSeek(name, 10, 0, 1, false);
    if (rc < 0) return _DBfpChanged(rc);
    if (rc != 0) return _DBfpChanged(here.fail(DBE_TAGNAME, __LINE__));
    char key[DBCDXMAXKEY + 1];
    int32_t hdr = 0;
    if (_DBfpCurrentEntry(key, &hdr) != 0) return _DBfpChanged(DBerrno);
    for (int s = 1; s < x->tc; s++)
        if (x->tt[s] && x->tt[s]->hdrofs == hdr) return _DBfpChanged(here.fail(DBE_TAGINUSE, __LINE__));
    // Out of the directory first: a failure below leaves pages lost, never
    // a directory entry naming freed pages.
    if ((rc = _DBfpSeek(name, 10, static_cast<uint32_t>(hdr), 2, false)) != 0) return _DBfpChanged(rc < 0 ? rc : here.fail(DBE_CORRUPT, __LINE__));
    if (_DBfpRemove() != 0) return _DBfpChanged(DBerrno);
    uint8_t h[16];
    const DBPAGEFILE pf = _DBfpPageFile(DBfpt);
    if (!_DBPageValid(pf, hdr) || _DBosReadAt(x->ph.dh, hdr, h, sizeof h) != 0) return _DBfpChanged(here.fail(DBE_CORRUPT, __LINE__));
    const int k = _DBLoadLE16(h + 12);
    if (k < 1 || k > DBCDXMAXKEY) return _DBfpChanged(here.fail(DBE_CORRUPT, __LINE__));
    if (_freeTree(static_cast<int32_t>(_DBLoadLE32(h)), k + 8, k + 4, 500 / (k + 8), false) != 0) return _DBfpChanged(DBerrno);
    // The header's two pages go too.
    if (_DBfpFreePage(hdr) != 0 || (_DBPageValid(pf, hdr + DBCDXPAGE) && _DBfpFreePage(hdr + DBCDXPAGE) != 0))
        return _DBfpChanged(DBerrno);
    return _DBfpChanged(0);
}
