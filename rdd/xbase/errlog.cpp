// errlog.cpp - the optional error log. One line per failure, naming the
// source file and line that detected it; the file is opened and closed for
// every line so that the log survives a crash of the host.
#include "core.h"

#include <cstdio>

extern "C" DBAPI int DBErrorLog(int on, char *filename) {
    DBlog_errs = on;
    if (on == 1 && filename) {
        // The caller's buffer holds at least 30 bytes; the name ends within
        // them. The last byte is forced to NUL so a careless caller cannot
        // send the open past the buffer.
        std::memcpy(DBlog_filename, filename, sizeof DBlog_filename);
        DBlog_filename[sizeof DBlog_filename - 1] = '\0';
    }
    return DBerrno;
}

void _DBErrorWrite(const char *srcfile, int line, int code) {
    if (!DBlog_errs) return;
    FILE *f = std::fopen(DBlog_filename, "a+");
    if (!f) return;  // a log that cannot be opened is not an error
    std::fprintf(f, "%s\t%d\t%d\n", srcfile, line, code);
    std::fclose(f);
}
