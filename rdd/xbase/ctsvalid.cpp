// ctsvalid.cpp - whether a text is a time in a style.
#include "date.h"

extern "C" DBAPI int DBIsValidTimeStr(char *text, int style) {
    // The parser's own status (its failures are already logged there).
    int h = 0, m = 0, s = 0;
    return DBStrTimeTo3(&h, &m, &s, text, style);
}
