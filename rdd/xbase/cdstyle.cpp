// cdstyle.cpp - the library-wide default date style and the style names.
//
// Neither function writes the error log, and a success leaves DBerrno as
// it was: hosts call these around other work and read DBerrno afterwards.
#include "date.h"

const char *const qd_styles[15] = {
    "Gregorian (mm/dd/yy)", "Gregorian (mm/dd/yyyy)", "Julian (yyyy/ddd)",
    "dBASE (yyyymmdd)",     "DMY (ddmmyy)",           "German (dd.mm.yy)",
    "German (dd.mm.yyyy)",  "British (dd/mm/yy)",     "British (dd/mm/yyyy)",
    "French (dd/mm/yy)",    "French (dd/mm/yyyy)",    "Italian (dd-mm-yy)",
    "Italian (dd-mm-yyyy)", "ENSI (yy.mm.dd)",        "ENSI (yyyy.mm.dd)",
};

extern "C" DBAPI int DBSetDefaultDateStyle(int style) {
    if (style < 1 || style > 15) return DBerrno = DBE_BADCOMMAND;
    DBdate_style = style;
    return DB_OK;
}

extern "C" DBAPI int DBGetDefaultDateStyle(int *style, char *name) {
    if (!style || !name) return DBerrno = DBE_NULLPARAM;
    *style = DBdate_style;
    // DBdate_style is a public global: before DBInitialize it is 0, and a
    // host may write anything into it. A style with no name gets an empty
    // name and -212 rather than a read outside the table.
    if (DBdate_style < 1 || DBdate_style > 15) {
        name[0] = '\0';
        return DBerrno = DBE_BADCOMMAND;
    }
    // At most 22 characters and the NUL.
    std::strcpy(name, qd_styles[DBdate_style - 1]);
    return DB_OK;
}
