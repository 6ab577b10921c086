// otnew.cpp - a new tag in an open CDX file: its header in two new pages at
// the end of the file, an empty root leaf, and its name and header offset
// entered in the directory.
#include "cdx.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/otnew"};

// The directory's key for a tag name: upper case, blank-padded to 10.
int _dirKey(const char *name, char *key) {
    const size_t len = std::strlen(name);
    if (len < 1 || len > 10) return here.fail(DBE_TAGNAME, __LINE__);
    std::memset(key, ' ', 10);
    std::memcpy(key, name, len);
    key[10] = '\0';
    _DBstrupr(key);
    return 0;
}
}  // namespace

int _DBfpDirKey(const char *name, char *key) { return _dirKey(name, key); }

extern "C" DBAPI int DBfpCreateTag(int handle, char *tagname, int mode, char *expr, int keylen, char *forexpr) {
    if (_DBfpLockIndexPkt(handle) != 0) return DBerrno;
    if (!tagname || !expr) return here.fail(DBE_NULLPARAM, __LINE__);
    char name[11];
    if (_dirKey(tagname, name) != 0) return DBerrno;
    DBCDXPKT *x = DBfpi;
    if (!(static_cast<uint8_t>(x->file_type) & DBCDX_COMPOUND)) return here.fail(DBE_TAGNAME, __LINE__);
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    char e[DBCDXEXPR + 1], f[DBCDXEXPR + 1];
    if (_DBfpNormalise(expr, e, DBCDXEXPR, true) != 0) return DBerrno;
    if (forexpr && _DBfpNormalise(forexpr, f, DBCDXEXPR, false) != 0) return DBerrno;
    const bool hasFor = forexpr && f[0];
    char type = 0;
    if (_DBfpKeySpec(mode, &keylen, &type) != 0) return DBerrno;
    DBCDXAUTOLOCK lock;
    if (lock.take() != 0 || _DBfpRefresh() != 0) return _DBfpChanged(DBerrno);
    int rc = _DBfpSeek(name, 10, 0, 1, true);
    if (rc == 0) return _DBfpChanged(here.fail(DBE_TAGINUSE, __LINE__));
    if (rc < 0) return _DBfpChanged(rc);
    // The header takes two pages side by side: always from the end.
    if (x->file_size > INT32_MAX - 4 * DBCDXPAGE) return _DBfpChanged(here.fail(DBE_WRITE, __LINE__));
    const int32_t at = x->file_size;
    if (DBosSetFileSize(x->ph.dh, at + 2 * DBCDXPAGE) != 0) return _DBfpChanged(here.fail(DBerrno, __LINE__));
    x->file_size = at + 2 * DBCDXPAGE;
    int32_t root = 0;
    if (_DBfpNewPage(&root) != 0) return _DBfpChanged(DBerrno);
    char hdr[2 * DBCDXPAGE], leaf[DBCDXPAGE];
    const uint8_t options = static_cast<uint8_t>(DBCDX_COMPACT | DBCDX_COMPOUND | ((mode & 0x80) ? DBCDX_UNIQUE : 0) |
                                                 (hasFor ? DBCDX_HASFOR : 0));
    _DBfpNewHeader(hdr, true, options, keylen, e, hasFor ? f : nullptr, root, 0);
    _DBfpEmptyLeaf(leaf, true, keylen, 3);
    if (_DBosWriteAt(x->ph.dh, at, hdr, sizeof hdr, x->ph.flush_disk) != 0 ||
        _DBosWriteAt(x->ph.dh, root, leaf, sizeof leaf, x->ph.flush_disk) != 0)
        return _DBfpChanged(here.fail(DBerrno, __LINE__));
    x->index_modified = 1;
    // Into the directory, where it sorts by name.
    rc = _DBfpSeek(name, 10, static_cast<uint32_t>(at), 2, true);
    if (rc < 0) return _DBfpChanged(rc);
    if (rc == DBW_EMPTY) {
        DBfpt->current_btree_page_level = 0;
        DBfpt->page_tree_array[0] = DBTREE{_DBfpRoot(DBfpt), 0, 0};
    }
    if (_DBfpInsert(name, at) != 0) return _DBfpChanged(DBerrno);
    return _DBfpChanged(0);
}
