// cknext.cpp - the next key of an NTX index.
#include "ntx.h"

extern "C" DBAPI int DBclGoNextKey(int handle, char *key, int32_t *recno) {
    return _DBClipGoNext<DBNTXFAM>(handle, key, recno);
}
