// nkfind.cpp - finding keys in an NDX index: the descent every search mode
// shares (the modes' treatment of its result is btclip.h's).
//
// An interior key is the greatest key of its child's subtree, so the first
// key not below the search key lies under the first interior key not below
// it (or under the last child). The descent goes there and the leaf walk
// does the rest: it also copes with other writers' interior keys that are
// greater than they need be.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nkfind"};

// The entry at the position, or a failure.
int _here(char *key, int32_t *recno) { return _DBd3CurrentEntry(key, recno) != 0 ? DBerrno : 0; }
}  // namespace

int64_t _DBd3WalkLimit() {
    const DBNDXPKT *x = DBd3i;
    return static_cast<int64_t>(x->fs / DBNDXBLOCK + 1) * (x->h.m + 1);
}

void _DBd3StoredKey(const char *key, char *out) {
    const DBNDXHDR &h = DBd3i->h;
    if (h.type == 1) {
        // Numbers travel as their 8 bytes, NULs and all.
        _DBd3PutDouble(out, _DBd3GetDouble(key));
    } else {
        const size_t n = strnlen(key, h.k);
        std::memcpy(out, key, n);
        std::memset(out + n, ' ', h.k - n);
    }
    out[h.k] = '\0';
}

int _DBd3CurrentEntry(char *key, int32_t *recno) {
    DBNDXPKT *x = DBd3i;
    if (x->tl < 0) return _DBStatus(DBW_NOMOREKEYS);
    char *pg = nullptr;
    if (_DBd3ReadPage(x->t[x->tl].current_page_number, &pg) != 0) return DBerrno;
    const int i = x->t[x->tl].i;
    if (!_DBd3Leaf(pg, x->h.il) || i < 0 || i >= _DBd3Count(pg)) return here.fail(DBE_CORRUPT, __LINE__);
    std::memcpy(key, _DBd3Key(pg, i, x->h.il), x->h.k);
    key[x->h.k] = '\0';
    *recno = _DBd3Recno(pg, i, x->h.il);
    return _DBStatus(0);
}

int _DBd3Find(const char *sk, size_t len, int mode, int32_t target, char *key, int32_t *recno) {
    DBNDXPKT *x = DBd3i;
    const DBNDXHDR &h = x->h;
    x->tl = -1;
    char *pg = nullptr;
    if (_DBClipPathPush<DBNDXFAM>(_DBd3Offset(static_cast<uint32_t>(h.r)), &pg, 1) != 0) return DBerrno;
    if (_DBd3Leaf(pg, h.il) && _DBd3Count(pg) == 0) {
        x->tl = -1;
        return _DBStatus(DBW_EMPTY);
    }
    // Down to the first key not below the search key.
    bool past = false;
    for (;;) {
        const int n = _DBd3Count(pg);
        int i = 0;
        while (i < n && _DBd3Compare(h, sk, _DBd3Key(pg, i, h.il), len) > 0) i++;
        x->t[x->tl].i = static_cast<int16_t>(i);
        if (_DBd3Leaf(pg, h.il)) {
            if (i == n) {
                // Every key of this leaf is below: the answer is further on.
                x->t[x->tl].i = static_cast<int16_t>(n - 1);
                past = true;
            }
            break;
        }
        if (_DBClipPathPush<DBNDXFAM>(_DBd3Offset(static_cast<uint32_t>(_DBd3ChildBlock(pg, i, h.il))), &pg, 0) != 0) return DBerrno;
    }
    char cur[DBNDXBLOCK];
    int32_t rec = 0;
    for (int64_t left = _DBd3WalkLimit(); left > 0; left--) {
        if (past) {
            const int rc = _DBClipPathStep<DBNDXFAM>(true);
            if (rc < 0) return rc;
            if (rc == DBW_NOMOREKEYS) {
                // Above every key (or every key equal to it, for mode 2):
                // the position stays on the last key.
                if (_here(key, recno) != 0) return DBerrno;
                return _DBStatus(DBW_KEYNOTFOUND);
            }
        }
        past = true;
        if (_here(cur, &rec) != 0) return DBerrno;
        const int c = _DBd3Compare(h, sk, cur, len);
        if (c > 0) continue;  // a loose interior key sent us low
        if (c == 0 && (mode != 2 || rec == target)) {
            std::memcpy(key, cur, static_cast<size_t>(h.k) + 1);
            *recno = rec;
            return _DBStatus(0);
        }
        if (c == 0) continue;  // the same key for another record
        // Past the search key: the answer is the entry before.
        const int rc = _DBClipPathStep<DBNDXFAM>(false);
        if (rc < 0) return rc;
        if (_here(key, recno) != 0) return DBerrno;
        return _DBStatus(rc == DBW_NOMOREKEYS ? DBW_NOMOREKEYS : DBW_KEYNOTFOUND);
    }
    return here.fail(DBE_CORRUPT, __LINE__);
}

int _DBd3KeySearch(char *key, int32_t *recno, int mode) {
    const DBNDXHDR &h = DBd3i->h;
    char sk[DBNDXBLOCK];
    _DBd3StoredKey(key, sk);
    // A shorter character key is compared over its own length only: a
    // prefix search. Numbers are always whole.
    const size_t len = h.type == 1 || mode == 2 ? h.k : strnlen(key, h.k);
    return _DBd3Find(sk, len, mode, *recno, key, recno);
}

extern "C" DBAPI int DBd3KeySearch(int handle, char *key, int32_t *recno, int mode) {
    return _DBClipKeySearchCall<DBNDXFAM>(handle, key, recno, mode);
}
