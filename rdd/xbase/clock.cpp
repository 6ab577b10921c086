// clock.cpp - the NTX write lock and its release.
//
// The locks are one byte each at the addresses Clipper and Harbour agree on:
// the write lock at 1,000,000,000, the read lock at 2,147,483,647 (cslock.cpp);
// btclip.h takes and releases them for NTX and NDX alike.
#include "ntx.h"

extern "C" DBAPI int DBclLockIndex(int handle) { return _DBClipLockCall<DBNTXFAM>(handle, 0); }

extern "C" DBAPI int DBclUnLockIndex(int handle) { return _DBClipUnlockCall<DBNTXFAM>(handle); }
