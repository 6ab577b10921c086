// cdsvalid.cpp - whether a text is a date in a style.
#include "date.h"

extern "C" DBAPI int DBIsValidDateStr(char *text, int style) {
    // The parser's own status: 0, 202 for a blank date, or its failure
    // (already logged by the parser).
    int y = 0, m = 0, d = 0;
    return DBStrDateTo3(&y, &m, &d, text, style);
}
