// nkprev.cpp - the previous key of an NDX index.
#include "ndx.h"

extern "C" DBAPI int DBd3GoPreviousKey(int handle, char *key, int32_t *recno) {
    return _DBClipGoPrevious<DBNDXFAM>(handle, key, recno);
}
