// nkmake.cpp - the NDX key of a table's current record: the index's key
// expression evaluated, then put in key form by the index's key type.
//
// A character index takes text (a date as "yyyymmdd", the form dBASE and
// other writers index date fields by when they index them as text); a
// numeric index takes a number as its double and a date as its Julian day
// number. Anything else does not fit the index: -207.
#include "eval.h"
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nkmake"};
constexpr int kKeyStyle = 4;

// The value in key form: out gets k bytes and a NUL (character keys cut or
// blank-padded).
int _keyBytes(const DBEVALPROC &v, char *out) {
    const DBNDXHDR &h = DBd3i->h;
    const bool date = v.etyp == 'D';
    int y = 0, m = 0, d = 0, rc = 0;
    if (date) {
        rc = DBStrDateTo3(&y, &m, &d, v.eval, DBdate_style);
        if (rc < 0) return here.fail(rc, __LINE__);
    }
    if (h.type == 1) {
        if (v.etyp == 'N' || v.etyp == 'F') {
            double x = 0.0;
            std::memcpy(&x, v.eval, sizeof x);
            _DBd3PutDouble(out, x);
        } else if (date) {
            _DBd3PutDouble(out, rc == DBW_EMPTY ? 0.0 : static_cast<double>(_DBd3JulianDay(y, m, d)));
        } else {
            return here.fail(DBE_BADEXPR, __LINE__);
        }
        out[8] = '\0';
        return 0;
    }
    char text[16];
    const char *src = v.eval;
    if (date) {
        if (rc == DBW_EMPTY) {
            std::memset(text, ' ', 8);
            text[8] = '\0';
        } else if (DBDate3ToStr(text, kKeyStyle, y, m, d) != 0) {
            return here.fail(DBerrno, __LINE__);
        }
        src = text;
    } else if (v.etyp != 'C') {
        return here.fail(DBE_BADEXPR, __LINE__);
    }
    const size_t n = strnlen(src, h.k);
    std::memcpy(out, src, n);
    std::memset(out + n, ' ', h.k - n);
    out[h.k] = '\0';
    return 0;
}
}  // namespace

int _DBd3MakeKeyInto(int32_t table, char *key) {
    if (_DBEvaluateKey(table, DBd3i->h.e) != 0) return DBerrno;
    if (_keyBytes(DBeval_pr, key) != 0) return DBerrno;
    return _DBStatus(0);
}

extern "C" DBAPI int DBd3MakeKey(int table, int handle, char **key) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!key) return here.fail(DBE_NULLPARAM, __LINE__);
    *key = nullptr;
    DBNDXPKT *x = DBd3i;
    char text[DBNDXBLOCK];
    if (_DBd3MakeKeyInto(table, text) != 0) return DBerrno;
    // The caller's to free: k bytes and a NUL.
    void *p = nullptr;
    if (DBAllocateMemoryLog(&p, static_cast<size_t>(x->h.k) + 1, here.id, __LINE__) != 0) return DBerrno;
    std::memcpy(p, text, static_cast<size_t>(x->h.k) + 1);
    *key = static_cast<char *>(p);
    return _DBStatus(0);
}
