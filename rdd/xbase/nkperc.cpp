// nkperc.cpp - where a key lies in an NDX index as a whole percentage, and
// the key at a percentage.
#include "ndx.h"

extern "C" DBAPI int DBd3GetKeyPercent(int handle, int *percent, char *key, int32_t recno) {
    return _DBClipKeyPercent<DBNDXFAM>(handle, percent, key, recno);
}

extern "C" DBAPI int DBd3GetKeyAtPercent(int handle, int percent, char *key, int32_t *recno) {
    return _DBClipKeyAtPercent<DBNDXFAM>(handle, percent, key, recno);
}
