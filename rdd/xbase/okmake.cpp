// okmake.cpp - the CDX key of a table's current record: the tag's key
// expression evaluated, then put in key form by the result's type. The
// file does not record a tag's key type; the first key made tells it.
#include "cdx.h"
#include "eval.h"

namespace {
constexpr DBSite here{"rdd/xbase/okmake"};

char _typeOf(int etyp) {
    switch (etyp) {
    case 'C': return 'C';
    case 'N': case 'F': return 'N';
    case 'D': return 'D';
    case 'L': return 'L';
    default: return 0;
    }
}
}  // namespace

int _DBfpMakeKeyInto(int32_t table, char *key) {
    DBCDXTAG *t = DBfpt;
    if (_DBEvaluateKey(table, t->e) != 0) return here.fail(DBerrno, __LINE__);
    const DBEVALPROC &v = DBeval_pr;
    const char type = _typeOf(v.etyp);
    if (!type) return here.fail(DBE_BADEXPR, __LINE__);
    if (t->index_key_type == '?') {
        t->index_key_type = type;
        t->fc = type == 'C' ? ' ' : 0;
        t->lf.page = 0;
    } else if (t->index_key_type != type) {
        return here.fail(DBE_BADEXPR, __LINE__);
    }
    const int k = t->k;
    switch (type) {
    case 'C': {
        const size_t n = strnlen(v.eval, static_cast<size_t>(k));
        std::memcpy(key, v.eval, n);
        std::memset(key + n, ' ', static_cast<size_t>(k) - n);
        break;
    }
    case 'N': {
        if (k != 8) return here.fail(DBE_KEYLEN, __LINE__);
        double d = 0.0;
        std::memcpy(&d, v.eval, sizeof d);
        _DBfpDoubleToKey(key, d);
        break;
    }
    case 'D': {
        if (k != 8) return here.fail(DBE_KEYLEN, __LINE__);
        int y = 0, m = 0, d = 0;
        const int rc = DBStrDateTo3(&y, &m, &d, v.eval, DBdate_style);
        if (rc < 0) return here.fail(rc, __LINE__);
        _DBfpDoubleToKey(key, rc == DBW_EMPTY ? 0.0 : static_cast<double>(_DBfpDayNumber(y, m, d)));
        break;
    }
    default:
        // A logical field reads as 1 (true), 0 or '?' (blank).
        std::memset(key, 0, static_cast<size_t>(k));
        key[0] = v.eval[0] == 1 ? 'T' : 'F';
        break;
    }
    key[k] = '\0';
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpMakeKey(int table, int tag, char *key) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!key) return here.fail(DBE_NULLPARAM, __LINE__);
    return _DBfpMakeKeyInto(table, key);
}

extern "C" DBAPI int DBfbMakeKey(int table, int handle, char *key) { return DBfpMakeKey(table, handle, key); }
