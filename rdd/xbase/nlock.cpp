// nlock.cpp - the NDX write lock and its release.
//
// The locks are one byte each at the addresses the NTX family uses: the
// write lock at 1,000,000,000, the read lock at 2,147,483,647 (nslock.cpp),
// so that a program guarding both kinds of index the same way keeps working.
// btclip.h takes and releases them for NTX and NDX alike.
#include "ndx.h"

extern "C" DBAPI int DBd3LockIndex(int handle) { return _DBClipLockCall<DBNDXFAM>(handle, 0); }

extern "C" DBAPI int DBd3UnLockIndex(int handle) { return _DBClipUnlockCall<DBNDXFAM>(handle); }
