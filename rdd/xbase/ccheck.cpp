// ccheck.cpp - the whole-tree check of an NTX index, through the toolkit's
// checker: what the family adds is its page rules and its free list.
#include "ntx.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/ccheck"};

struct _Check : DBNTXTREE {
    int32_t pagesize = DBNTXPAGE, limit = 0, root = 0;
    bool unique = false, strict = false;
    int node(const char *pg, bool at_root, char *why) const {
        // Counts and offsets were checked as the page was read.
        if (!at_root && !_DBclLeaf(pg) && _DBclCount(pg) == 0) {
            std::snprintf(why, 100, "an interior page without keys");
            return 1;
        }
        return 0;
    }
    int minimum(bool at_root, bool is_leaf) const {
        if (at_root) return is_leaf ? 0 : 1;
        return strict ? DBcli->h.mnk : 1;
    }
    int compare(const char *a, const char *b) const { return std::memcmp(a, b, DBcli->h.k); }
    int entry(const char *pg, int i, char *key, int32_t *recno) const {
        std::memcpy(key, _DBclKey(pg, i), DBcli->h.k);
        *recno = _DBclRecno(pg, i);
        return 0;
    }
    int edge(int32_t, int, int32_t, char *) const { return 0; }
    int32_t nextFree(int32_t page, int *rc) const {
        *rc = 0;
        if (page == 0) return DBcli->h.ff;
        uint8_t b[4];
        if ((*rc = _DBosReadAt(DBcli->ph.dh, page, b, sizeof b)) != 0) return 0;
        return static_cast<int32_t>(_DBLoadLE32(b));
    }
};
}  // namespace

int _DBclCheck(DBTREECHECK &r, bool strict) {
    _Check c;
    c.limit = DBcli->fs;
    c.root = DBcli->h.r;
    c.unique = (DBcli->h.u & 1) != 0;
    c.strict = strict;
    const int rc = _DBCheckTree(c, r, false);
    DBcli->tl = -1;
    return rc;
}

extern "C" DBAPI int DBclCheckIndex(int handle, DBINDEXCHECK *check, int strict) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!check) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBclRefresh() != 0) return DBerrno;
    // Pages of ours not yet written are what the file will hold: the check
    // reads through the cache, and the free list is read from the file, where
    // freed pages always go at once.
    const int rc = _DBclCheck(*check, strict != 0);
    _DBclClearPageBuffer();
    if (rc < 0 && rc != DBE_CORRUPT) return here.fail(rc, __LINE__);
    return rc != 0 ? here.fail(rc, __LINE__) : _DBStatus(0);
}
