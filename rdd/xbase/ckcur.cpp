// ckcur.cpp - the key at the current position of an NTX index (a shared
// write-through index finds that position again from the key it saved).
#include "ntx.h"

extern "C" DBAPI int DBclGetCurrentKey(int handle, char *key, int32_t *recno) {
    return _DBClipGetCurrent<DBNTXFAM>(handle, key, recno);
}
