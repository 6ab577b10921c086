// ckbot.cpp - the last key of an NTX index.
#include "ntx.h"

extern "C" DBAPI int DBclGoLastKey(int handle, char *key, int32_t *recno) {
    return _DBClipGoLast<DBNTXFAM>(handle, key, recno);
}
