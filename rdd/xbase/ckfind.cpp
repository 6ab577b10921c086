// ckfind.cpp - finding keys in an NTX index: the descent that every search
// mode shares (the modes' treatment of its result is btclip.h's).
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/ckfind"};

// After the descent ran out at the end of a leaf: walk forward to the first
// entry not below the search key (in mode 2, through equal keys of other
// records to the one asked for).
int _walkForward(const char *sk, size_t len, int mode, int32_t target, char *key, int32_t *recno) {
    const int k = DBcli->h.k;
    char cur[DBNTXPAGE];
    int32_t rec = 0;
    for (int64_t n = _DBclWalkLimit(); n >= 0; n--) {
        int rc = _DBClipPathStep<DBNTXFAM>(true);
        if (rc < 0) return rc;
        if (_DBclCurrentEntry(cur, &rec) != 0) return DBerrno;
        if (rc == DBW_NOMOREKEYS) {
            std::memcpy(key, cur, static_cast<size_t>(k) + 1);
            *recno = rec;
            return DBW_KEYNOTFOUND;
        }
        const int c = std::memcmp(sk, cur, len);
        if (c == 0 && (mode != 2 || rec == target)) {
            std::memcpy(key, cur, static_cast<size_t>(k) + 1);
            *recno = rec;
            return 0;
        }
        if (c < 0) {
            if ((rc = _DBClipPathStep<DBNTXFAM>(false)) < 0) return rc;
            if (_DBclCurrentEntry(key, recno) != 0) return DBerrno;
            return DBW_KEYNOTFOUND;
        }
    }
    return here.fail(DBE_CORRUPT, __LINE__);
}
}  // namespace

int64_t _DBclWalkLimit() {
    const DBNTXPKT *x = DBcli;
    return static_cast<int64_t>(x->fs / DBNTXPAGE + 1) * (x->h.max_number_keys_page + 1);
}

int _DBclCurrentEntry(char *key, int32_t *recno) {
    DBNTXPKT *x = DBcli;
    if (x->tl < 0) return _DBStatus(DBW_NOMOREKEYS);
    char *pg = nullptr;
    if (_DBclReadPage(x->t[x->tl].current_page_number, &pg) != 0) return DBerrno;
    const int i = x->t[x->tl].i;
    if (i < 0 || i >= _DBclCount(pg)) return here.fail(DBE_CORRUPT, __LINE__);
    std::memcpy(key, _DBclKey(pg, i), x->h.k);
    key[x->h.k] = '\0';
    *recno = _DBclRecno(pg, i);
    return _DBStatus(0);
}

int _DBclKeySearch(char *key, int32_t *recno, int mode) {
    DBNTXPKT *x = DBcli;
    const int k = x->h.k;
    const size_t given = strnlen(key, static_cast<size_t>(k));
    // A shorter key is compared over its own length only: a prefix search.
    const size_t len = mode == 2 ? static_cast<size_t>(k) : given;
    char sk[DBNTXPAGE];
    std::memset(sk, ' ', static_cast<size_t>(k));
    std::memcpy(sk, key, given);
    const int32_t target = *recno;
    x->tl = -1;
    char *pg = nullptr;
    if (_DBClipPathPush<DBNTXFAM>(x->h.r, &pg, 1) != 0) return DBerrno;
    if (_DBclCount(pg) == 0) {
        x->tl = -1;
        return _DBStatus(DBW_EMPTY);
    }
    // pg is the page at the bottom of the path: _push fetched it, and nothing
    // else is fetched until the next _push.
    for (;;) {
        const int n = _DBclCount(pg);
        // The first entry from the position on that is not below the search
        // key. The keys of a page rise, so halving finds the entry a scan
        // from the left would stop at.
        int lo = x->t[x->tl].i, hi = n;
        while (lo < hi) {
            const int mid = (lo + hi) / 2;
            if (std::memcmp(sk, _DBclKey(pg, mid), len) > 0) lo = mid + 1;
            else hi = mid;
        }
        int c = 1;
        int i = lo;
        if (i == n) {
            i = n - 1;  // every entry of the page is below the key
        } else {
            c = std::memcmp(sk, _DBclKey(pg, i), len);
        }
        x->t[x->tl].i = static_cast<int16_t>(i);
        const int32_t child = _DBclChild(pg, i);
        if (c == 0) {
            std::memcpy(key, _DBclKey(pg, i), static_cast<size_t>(k));
            key[k] = '\0';
            *recno = _DBclRecno(pg, i);
            if (mode != 2 || *recno == target) {
                if (mode == 2 || child == 0) return _DBStatus(0);
                // An interior match: equal keys may lie to its left.
                if (_DBClipPathPush<DBNTXFAM>(child, &pg, 0) != 0) return DBerrno;
                continue;
            }
            if (child != 0) {
                if (_DBClipPathPush<DBNTXFAM>(child, &pg, 0) != 0) return DBerrno;
                continue;
            }
            c = 1;  // the same key for another record: look further right
        }
        if (c > 0) {
            if (i + 1 < n) {
                x->t[x->tl].i++;
                continue;
            }
            if (child != 0) {
                x->t[x->tl].i = static_cast<int16_t>(n);
                if (_DBClipPathPush<DBNTXFAM>(_DBclChild(pg, n), &pg, 0) != 0) return DBerrno;
                continue;
            }
            return _DBStatus(_walkForward(sk, len, mode, target, key, recno));
        }
        if (child != 0) {
            if (_DBClipPathPush<DBNTXFAM>(child, &pg, 0) != 0) return DBerrno;
            continue;
        }
        // Below this leaf entry: the answer is the entry before it.
        const int rc = _DBClipPathStep<DBNTXFAM>(false);
        if (rc < 0) return rc;
        if (_DBclCurrentEntry(key, recno) != 0) return DBerrno;
        return _DBStatus(rc == DBW_NOMOREKEYS ? DBW_NOMOREKEYS : DBW_KEYNOTFOUND);
    }
}

extern "C" DBAPI int DBclKeySearch(int handle, char *key, int32_t *recno, int mode) {
    return _DBClipKeySearchCall<DBNTXFAM>(handle, key, recno, mode);
}
