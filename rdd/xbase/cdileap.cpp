// cdileap.cpp - the leap-year test and the month-length table it keeps.
//
// DBdpm is shared and mutable on purpose: its February entry always holds
// the length for the year of the latest leap-year test, and every month
// length looked up by the date functions reads it after testing the year
// concerned. Hosts that read DBdpm after calling DBIsLeapYear rely on this.
#include "date.h"

int8_t DBdpm[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

extern "C" DBAPI int DBIsLeapYear(int year) {
    // Gregorian rule; negative years follow it too (C's % keeps the sign,
    // and a zero remainder is zero either way). DBerrno is left alone.
    const int leap = (year % 4 == 0 && (year % 100 != 0 || year % 400 == 0)) ? 1 : 0;
    DBdpm[2] = static_cast<int8_t>(leap ? 29 : 28);
    return leap;
}

bool _DBValidDate3(int year, int month, int day) {
    DBIsLeapYear(year);
    if (year < 0 || year > 9999) return false;
    if (month < 1 || month > 12) return false;
    return day >= 1 && day <= DBdpm[month];
}
