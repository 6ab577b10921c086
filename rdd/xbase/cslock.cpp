// cslock.cpp - the NTX read lock: a shared lock on byte 2,147,483,647, which
// readers of the Clipper family take. It is released only when the file is
// closed (an unlock releases the write byte alone).
#include "ntx.h"

extern "C" DBAPI int DBclRLockIndex(int handle) { return _DBClipLockCall<DBNTXFAM>(handle, 2); }
