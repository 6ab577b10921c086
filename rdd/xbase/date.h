// date.h - what the date and time functions share: the name tables, the
// day-number limits, the average-year arithmetic behind day numbers, the
// local clock and the way composite conversions chain their steps.
#pragma once

#include "core.h"

// Style names (entry n-1 names style n), day names (0 = Sunday) and month
// names (0 = January). Hidden: hosts reach them through the functions.
extern const char *const qd_styles[15];
extern const char *const qd_daystr[7];
extern const char *const qd_monstr[12];

// Day numbers run from 1 (1 January 1) to 31 December 9999.
constexpr int32_t DBMINDAYNUM = 1;
constexpr int32_t DBMAXDAYNUM = 3652059;

// The length of the average year. Held as a double on purpose: day numbers
// are built from this double's value (a hair above 365.2425), widened to
// long double, and that exact value must be used on every target. A bare
// literal could be widened with more digits on x87 targets.
constexpr double DByearlen = 365.2425;

// Whole days in `years` average years: the product in extended precision,
// truncated toward zero. long double is the x87 80-bit format in both the
// 64-bit and the 32-bit x86 builds, so both truncate the same product.
inline int32_t _DBYearDays(int32_t years) {
    const long double p = static_cast<long double>(years) * static_cast<long double>(DByearlen);
    return static_cast<int32_t>(p);
}

// Whole average years in a day number. The quotient is rounded to double
// before it is truncated: at an exact multiple of 400 years (730485 is
// 2000 years) the extended quotient falls just below the whole number,
// because DByearlen is a hair above 365.2425, while the double quotient is
// the whole number, and the day-number-to-date rule is defined on that
// double quotient. The volatile store forces the rounding on x87, where
// the compiler would otherwise keep the extended value in a register.
inline int32_t _DBWholeYears(int32_t daynum) {
    const long double q = static_cast<long double>(daynum) / static_cast<long double>(DByearlen);
    volatile double d = static_cast<double>(q);
    return static_cast<int32_t>(d);
}

// The month-length check of the triple functions: leap-year test first (it
// rewrites DBdpm[2]), then year 0..9999, month 1..12, day within the month.
// Year 0 passes: it is divisible by 400 and so leap.
bool _DBValidDate3(int year, int month, int day);

// The local time now, copied out of localtime's shared storage at once.
// False when the clock cannot be read or converted.
struct tm;
bool _DBLocalNow(struct tm &now);

// The second step of a composite conversion (date string to day number,
// day number to date string, clock to text ...). `first` is the status the
// first step returned; `second` runs only if that is not a failure. A
// negative status of either step fails the composite, which logs it once
// more under its own file, at the line of the step that failed (the step's
// own entry stands as well). A positive status of the first step is no
// failure: the parser's 202 for a blank date passes its zeros on, and the
// second step refuses them.
template <class Second>
int _DBThen(const DBSite &here, int first, int firstLine, Second second, int secondLine) {
    if (first < 0) return here.fail(first, firstLine);
    const int rc = second();
    return rc < 0 ? here.fail(rc, secondLine) : _DBStatus(rc);
}
