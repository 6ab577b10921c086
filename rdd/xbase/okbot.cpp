// okbot.cpp - the last key of a CDX tag or IDX file.
#include "cdx.h"

namespace {
int _last(char *key, int32_t *recno) { return _DBfpGoEnd(key, recno, true); }
}  // namespace

extern "C" DBAPI int DBfpGoLastKey(int tag, char *key, int32_t *recno) { return _DBfpMove(tag, key, recno, _last); }
extern "C" DBAPI int DBfbGoLastKey(int handle, char *key, int32_t *recno) { return _DBfpMove(handle, key, recno, _last); }
