// cktop.cpp - the first key of an NTX index.
#include "ntx.h"

extern "C" DBAPI int DBclGoFirstKey(int handle, char *key, int32_t *recno) {
    return _DBClipGoFirst<DBNTXFAM>(handle, key, recno);
}
