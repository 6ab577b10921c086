// ckbot.cpp - the last key of an NTX index.
#include "ntx.h"

int _DBclGoLastKey(char *key, int32_t *recno) { return _DBclGoEnd(key, recno, true); }

extern "C" DBAPI int DBclGoLastKey(int handle, char *key, int32_t *recno) {
    return _DBclMove(handle, key, recno, _DBclGoLastKey);
}
