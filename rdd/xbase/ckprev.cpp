// ckprev.cpp - the previous key of an NTX index.
#include "ntx.h"

extern "C" DBAPI int DBclGoPreviousKey(int handle, char *key, int32_t *recno) {
    return _DBClipGoPrevious<DBNTXFAM>(handle, key, recno);
}
