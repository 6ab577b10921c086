// nkprev.cpp - the previous key of an NDX index.
#include "ndx.h"

static int _previous(char *key, int32_t *recno) { return _DBd3Step(key, recno, false); }

extern "C" DBAPI int DBd3GoPreviousKey(int handle, char *key, int32_t *recno) {
    return _DBd3Move(handle, key, recno, _previous);
}
