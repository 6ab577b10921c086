// dfinfo.cpp - the descriptions of a table's fields, in the form a table is
// created from.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/dfinfo"};

void _describe(const DBFIELDSTRUC &f, DBFIELD *out) {
    const size_t n = std::strlen(f.n) + 1;
    if (n >= 1 && n <= 11) std::memcpy(out->name, f.n, n);
    out->type = static_cast<unsigned char>(f.t);
    out->len = f.l;
    // A character field keeps the high byte of its length where the others
    // keep their decimals; it has no decimals to report.
    out->decpl = f.t == 'C' ? 0 : f.d;
}
}  // namespace

extern "C" DBAPI int DBGetFieldDescription(int handle, int field, DBFIELD *desc) {
    if (_DBVerifyField(handle, field) != 0) return DBerrno;
    if (!desc) return here.fail(DBE_NULLPARAM, __LINE__);
    _describe(DBxbd->f[field], desc);
    return _DBStatus(0);
}

extern "C" DBAPI int DBGetFileDescription(int handle, int *count, DBFIELD *desc) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!count || !desc) return here.fail(DBE_NULLPARAM, __LINE__);
    for (int i = 0; i < DBxbd->nf; i++) _describe(DBxbd->f[i], &desc[i]);
    *count = DBxbd->nf;
    return _DBStatus(0);
}
