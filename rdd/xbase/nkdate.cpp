// nkdate.cpp - dates in NDX key form (the Julian day number as a double)
// and back.
//
// The day numbers of the date functions are counted by an average year and
// skip or repeat a day at some year ends; an index key must be one number per
// date, in date order, and the same number dBASE writes. So the Julian day
// number is computed here exactly, by the proleptic Gregorian calendar:
// 2451545 is 1 January 2000. An empty date is day 0, below every date.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nkdate"};
}

int32_t _DBd3JulianDay(int y, int m, int d) {
    const int a = (14 - m) / 12;
    const int32_t yy = y + 4800 - a;
    const int mm = m + 12 * a - 3;
    return d + (153 * mm + 2) / 5 + 365 * yy + yy / 4 - yy / 100 + yy / 400 - 32045;
}

void _DBd3JulianToDate(int32_t j, int *y, int *m, int *d) {
    const int32_t a = j + 32044;
    const int32_t b = (4 * a + 3) / 146097;
    const int32_t c = a - 146097 * b / 4;
    const int32_t dd = (4 * c + 3) / 1461;
    const int32_t e = c - 1461 * dd / 4;
    const int32_t mm = (5 * e + 2) / 153;
    *d = static_cast<int>(e - (153 * mm + 2) / 5 + 1);
    *m = static_cast<int>(mm + 3 - 12 * (mm / 10));
    *y = static_cast<int>(100 * b + dd - 4800 + mm / 10);
}

extern "C" DBAPI int DBd3DateToKey(char *key, char *date, int style) {
    if (!key || !date) return here.fail(DBE_NULLPARAM, __LINE__);
    int y = 0, m = 0, d = 0;
    const int rc = DBStrDateTo3(&y, &m, &d, date, style);
    if (rc < 0) return here.fail(rc, __LINE__);
    _DBd3PutDouble(key, rc == DBW_EMPTY ? 0.0 : static_cast<double>(_DBd3JulianDay(y, m, d)));
    key[8] = '\0';
    return _DBStatus(0);
}

extern "C" DBAPI int DBd3KeyToDate(char *date, int style, char *key) {
    if (!date || !key) return here.fail(DBE_NULLPARAM, __LINE__);
    const double v = _DBd3GetDouble(key);
    if (v == 0.0) {
        date[0] = '\0';
        return _DBStatus(0);
    }
    // Whole day numbers of years 1..9999 only (1721426 is 1 January 1).
    if (!(v >= 1721426.0 && v <= 5373484.0) || v != static_cast<double>(static_cast<int32_t>(v)))
        return here.fail(DBE_BADDATE, __LINE__);
    int y = 0, m = 0, d = 0;
    _DBd3JulianToDate(static_cast<int32_t>(v), &y, &m, &d);
    if (DBDate3ToStr(date, style, y, m, d) != 0) return here.fail(DBerrno, __LINE__);
    return _DBStatus(0);
}
