// okprev.cpp - the previous key of a CDX tag or IDX file.
#include "cdx.h"

namespace {
int _prev(char *key, int32_t *recno) { return _DBfpStep(key, recno, false); }
}  // namespace

extern "C" DBAPI int DBfpGoPreviousKey(int tag, char *key, int32_t *recno) { return _DBfpMove(tag, key, recno, _prev); }
extern "C" DBAPI int DBfbGoPreviousKey(int handle, char *key, int32_t *recno) { return _DBfpMove(handle, key, recno, _prev); }
