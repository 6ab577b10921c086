// ckprev.cpp - the previous key of an NTX index.
#include "ntx.h"

int _DBclGoPreviousKey(char *key, int32_t *recno) { return _DBclStep(key, recno, false); }

extern "C" DBAPI int DBclGoPreviousKey(int handle, char *key, int32_t *recno) {
    return _DBclMove(handle, key, recno, _DBclGoPreviousKey);
}
