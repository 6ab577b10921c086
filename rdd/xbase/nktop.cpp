// nktop.cpp - the first key of an NDX index.
#include "ndx.h"

extern "C" DBAPI int DBd3GoFirstKey(int handle, char *key, int32_t *recno) {
    return _DBClipGoFirst<DBNDXFAM>(handle, key, recno);
}
