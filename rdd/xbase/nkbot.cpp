// nkbot.cpp - the last key of an NDX index.
#include "ndx.h"

static int _last(char *key, int32_t *recno) { return _DBd3GoEnd(key, recno, true); }

extern "C" DBAPI int DBd3GoLastKey(int handle, char *key, int32_t *recno) { return _DBd3Move(handle, key, recno, _last); }
