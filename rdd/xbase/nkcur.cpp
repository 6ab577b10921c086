// nkcur.cpp - the key at the current position of an NDX index (a shared
// index finds that position again from the key it saved).
#include "ndx.h"

extern "C" DBAPI int DBd3GetCurrentKey(int handle, char *key, int32_t *recno) {
    return _DBClipGetCurrent<DBNDXFAM>(handle, key, recno);
}
