// ckmake.cpp - the NTX key of a table's current record: the index's key
// expression evaluated, then put in key form by the result's type.
#include "eval.h"
#include "ntx.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/ckmake"};
constexpr int kKeyStyle = 4;

// Turn an evaluated date or number into key text of at most k bytes plus a
// NUL, in out (room for k + 1 bytes, and at least 11). Dates arrive in
// the default date style; an empty date becomes eight blanks. Numbers are
// printed "%0k.dlf": zero-padded plain text, a minus sign leading a
// negative one.
int _keyText(const DBEVALPROC &v, char *out, const DBNTXHDR &h) {
    switch (v.etyp) {
    case 'D': {
        int y = 0, m = 0, d = 0;
        const int rc = DBStrDateTo3(&y, &m, &d, v.eval, DBdate_style);
        if (rc == DBW_EMPTY) {
            std::memset(out, ' ', 8);
            out[8] = '\0';
            return 0;
        }
        if (rc != 0 || DBDate3ToStr(out, kKeyStyle, y, m, d) != 0) return here.fail(DBerrno, __LINE__);
        return 0;
    }
    case 'N':
    case 'F': {
        double x = 0.0;
        std::memcpy(&x, v.eval, sizeof x);
        char text[512];
        std::snprintf(text, sizeof text, "%0*.*f", h.k, h.key_dec, x);
        std::memcpy(out, text, h.k);
        out[h.k] = '\0';
        return 0;
    }
    default:
        return here.fail(DBE_BADEXPR, __LINE__);
    }
}
}  // namespace

int _DBclMakeKeyInto(int32_t table, char *key) {
    const DBNTXHDR &h = DBcli->h;
    if (_DBEvaluateKey(table, DBcli->h.e) != 0) return DBerrno;
    char text[DBNTXPAGE];
    const DBEVALPROC &v = DBeval_pr;
    const char *src = v.eval;
    if (v.etyp != 'C') {
        if (_keyText(v, text, h) != 0) return DBerrno;
        src = text;
    }
    {
        // Shorter key texts are blank-padded, as an added key would be.
        const size_t n = strnlen(src, h.k);
        std::memcpy(key, src, n);
        std::memset(key + n, ' ', h.k - n);
    }
    key[h.k] = '\0';
    return _DBStatus(0);
}

extern "C" DBAPI int DBclMakeKey(int table, int handle, char **key) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!key) return here.fail(DBE_NULLPARAM, __LINE__);
    *key = nullptr;
    const DBNTXHDR &h = DBcli->h;
    if (_DBEvaluateStr(table, DBcli->h.e) != 0) return DBerrno;
    DBOwned<char> value(DBeval_pr.eval);
    if (DBeval_pr.etyp == 'C') {
        *key = value.release();
        return _DBStatus(0);
    }
    char text[DBNTXPAGE];
    if (_keyText(DBeval_pr, text, h) != 0) return DBerrno;
    // The result is the caller's to free; dates and numbers get a block of
    // their key's size.
    void *p = nullptr;
    const size_t n = std::strlen(text);
    if (DBAllocateMemoryLog(&p, n + 1, here.id, __LINE__) != 0) return DBerrno;
    std::memcpy(p, text, n + 1);
    *key = static_cast<char *>(p);
    return _DBStatus(0);
}
