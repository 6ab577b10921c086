// cbfrsz.cpp - the number of NTX page buffers: read it, or change it.
#include "ntx.h"

extern "C" DBAPI int DBclGetSetCacheSize(int handle, short *size, int op) {
    return _DBClipCacheSize<DBNTXFAM>(handle, size, op);
}
