// dftest.cpp - whether a field of the current record is empty.
#include "dbf.h"

namespace {
int _blank(int field) {
    const DBFIELDSTRUC &f = DBxbd->f[field];
    const char *p = DBxbd->b.r + f.a;
    // Only spaces count here: a binary field of zero bytes holds a value.
    for (int i = 0; i < f.l; i++)
        if (p[i] != ' ') return 0;
    return f.l > 0 ? 1 : 0;
}
}  // namespace

extern "C" DBAPI int DBIsFieldBlank(int handle, int field) {
    if (_DBVerifyField(handle, field) != 0) return DBerrno;
    return _blank(field);
}

extern "C" DBAPI int DBIsNamedBlank(int handle, char *name) {
    int field = 0;
    if (DBGetFieldNumber(handle, &field, name) != 0) return DBerrno;
    return _blank(field);
}
