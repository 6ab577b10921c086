// nknext.cpp - the next key of an NDX index.
#include "ndx.h"

extern "C" DBAPI int DBd3GoNextKey(int handle, char *key, int32_t *recno) {
    return _DBClipGoNext<DBNDXFAM>(handle, key, recno);
}
