// dfinfo.cpp - the descriptions of a table's fields, in the form a table is
// created from.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/dfinfo"};
}  // namespace

void _DBDescribeField(const DBFIELDSTRUC &f, DBFIELD *out) {
    // The in-memory name is terminated within its 11 bytes; bound the copy
    // all the same.
    size_t len = 0;
    while (len < sizeof f.n && len + 1 < sizeof out->name && f.n[len]) len++;
    std::memcpy(out->name, f.n, len);
    out->name[len] = '\0';
    out->type = static_cast<unsigned char>(f.t);
    out->len = f.l;
    // A character field keeps the high byte of its length where the others
    // keep their decimals; it has no decimals to report.
    out->decpl = f.t == 'C' ? 0 : f.d;
}

extern "C" DBAPI int DBGetFieldDescription(int handle, int field, DBFIELD *desc) {
    if (_DBVerifyField(handle, field) != 0) return DBerrno;
    if (!desc) return here.fail(DBE_NULLPARAM, __LINE__);
    _DBDescribeField(DBxbd->f[field], desc);
    return _DBStatus(0);
}

extern "C" DBAPI int DBGetFileDescription(int handle, int *count, DBFIELD *desc) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!count || !desc) return here.fail(DBE_NULLPARAM, __LINE__);
    for (int i = 0; i < DBxbd->nf; i++) _DBDescribeField(DBxbd->f[i], &desc[i]);
    *count = DBxbd->nf;
    return _DBStatus(0);
}
