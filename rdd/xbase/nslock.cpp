// nslock.cpp - the NDX read lock: a shared lock on byte 2,147,483,647, the
// byte NTX readers take. It is released only when the file is closed (an
// unlock releases the write byte alone).
#include "ndx.h"

extern "C" DBAPI int DBd3RLockIndex(int handle) { return _DBClipLockCall<DBNDXFAM>(handle, 2); }
