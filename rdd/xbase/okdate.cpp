// okdate.cpp - dates in CDX key form and back.
//
// A date key is a numeric key (oknum.cpp) of the date's day number D =
// floor((year - 1) x 1461 / 4) + day + the days of the months before it
// (February 29 in a Gregorian leap year) + 1721410. The quarter-day rule has
// no century correction; that is the count FoxPro and Harbour keys hold for
// every date from 1901 on (the Julian day number), and 1900 and earlier
// follow the same rule. The empty date is day 0: 0x80 and seven zeros.
#include "cdx.h"
#include "date.h"

namespace {
constexpr DBSite here{"rdd/xbase/okdate"};
constexpr int32_t kBase = 1721410;

bool _leap(int y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }

int _before(int y, int m) {
    static const int cum[13] = {0, 0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    return cum[m] + (m > 2 && _leap(y) ? 1 : 0);
}

// floor((y - 1) x 1461 / 4), also for year 0.
int32_t _start(int y) {
    const int64_t v = static_cast<int64_t>(y - 1) * 1461;
    return static_cast<int32_t>(v >= 0 ? v / 4 : -((-v + 3) / 4));
}
}  // namespace

int32_t _DBfpDayNumber(int year, int month, int day) { return _start(year) + day + _before(year, month) + kBase; }

bool _DBfpDayToDate(int32_t d, int *year, int *month, int *day) {
    const int32_t n = d - kBase;
    int y = static_cast<int>((static_cast<int64_t>(n) - 1) * 4 / 1461) + 1;
    while (y > 0 && n - _start(y) < 1) y--;
    while (n - _start(y + 1) >= 1) y++;
    const int doy = n - _start(y);
    if (y < 0 || y > 9999 || doy < 1 || doy > (_leap(y) ? 366 : 365)) return false;
    int m = 12;
    while (m > 1 && _before(y, m) >= doy) m--;
    *year = y;
    *month = m;
    *day = doy - _before(y, m);
    return true;
}

extern "C" DBAPI int DBfpDateToKey(char *key, char *date) {
    if (!key || !date) return here.fail(DBE_NULLPARAM, __LINE__);
    int y = 0, m = 0, d = 0;
    const int rc = DBStrDateTo3(&y, &m, &d, date, DBdate_style);
    if (rc == DBW_EMPTY) {
        _DBfpDoubleToKey(key, 0.0);
    } else if (rc != 0) {
        return here.fail(rc, __LINE__);
    } else {
        _DBfpDoubleToKey(key, static_cast<double>(_DBfpDayNumber(y, m, d)));
    }
    key[8] = '\0';
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpKeyToDate(char *date, char *key) {
    if (!date || !key) return here.fail(DBE_NULLPARAM, __LINE__);
    const double v = _DBfpKeyToDouble(key);
    if (v == 0.0) {
        // The empty date.
        date[0] = '\0';
        return _DBStatus(0);
    }
    int y = 0, m = 0, d = 0;
    if (!(v >= 1.0 && v < 2147483647.0) || v != static_cast<double>(static_cast<int32_t>(v)) ||
        !_DBfpDayToDate(static_cast<int32_t>(v), &y, &m, &d))
        return here.fail(DBE_BADDATE, __LINE__);
    if (DBDate3ToStr(date, DBdate_style, y, m, d) != 0) return here.fail(DBerrno, __LINE__);
    return _DBStatus(0);
}

extern "C" DBAPI int DBfbDateToKey(char *key, char *date) { return DBfpDateToKey(key, date); }
extern "C" DBAPI int DBfbKeyToDate(char *date, char *key) { return DBfpKeyToDate(date, key); }
