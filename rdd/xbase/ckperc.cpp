// ckperc.cpp - where a key lies in an NTX index as a whole percentage, and
// the key at a percentage.
#include "ntx.h"

extern "C" DBAPI int DBclGetKeyPercent(int handle, int *percent, char *key, int32_t recno) {
    return _DBClipKeyPercent<DBNTXFAM>(handle, percent, key, recno);
}

extern "C" DBAPI int DBclGetKeyAtPercent(int handle, int percent, char *key, int32_t *recno) {
    return _DBClipKeyAtPercent<DBNTXFAM>(handle, percent, key, recno);
}
