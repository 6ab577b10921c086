// nkbot.cpp - the last key of an NDX index.
#include "ndx.h"

extern "C" DBAPI int DBd3GoLastKey(int handle, char *key, int32_t *recno) {
    return _DBClipGoLast<DBNDXFAM>(handle, key, recno);
}
