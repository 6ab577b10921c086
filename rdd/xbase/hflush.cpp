// hflush.cpp - flushing. Writes go straight to the system with write(2), so
// there is nothing of ours to flush and no sync is forced.
#include "os.h"

extern "C" DBAPI int DBosFlushFile(int fd) { return DBerrno; }
