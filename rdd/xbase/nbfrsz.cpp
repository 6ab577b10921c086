// nbfrsz.cpp - the number of NDX node buffers: read it, or change it.
#include "ndx.h"

extern "C" DBAPI int DBd3GetSetCacheSize(int handle, short *size, int op) {
    return _DBClipCacheSize<DBNDXFAM>(handle, size, op);
}
