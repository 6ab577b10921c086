// fuzz_dates.cpp - random, mutated, over-long and extreme date and time texts
// in every style and in styles that do not exist: known statuses only, the
// date composites refuse what the parser refuses, and an accepted text prints
// and parses back the same. Each round tries 50 texts of each kind.
// Usage: fuzz_dates FIXTURES SEED ROUNDS (the fixtures are not used)
#include "fuzz_common.h"

namespace {

// Texts sit in heap blocks of exactly their size: the sanitizer build
// reports any byte read past them.
std::vector<char> heap(const std::string &s) { return std::vector<char>(s.c_str(), s.c_str() + s.size() + 1); }

// A random text from alphabet, or a valid one with a byte changed.
std::string garble(fz::Rand &r, const char *alphabet, size_t n, std::string valid) {
    std::string s(r.below(14), ' ');
    for (char &ch : s) ch = alphabet[r.below(static_cast<uint32_t>(n))];
    if (r.below(2) && !valid.empty()) s = valid;
    const uint32_t len = static_cast<uint32_t>(s.size());
    if (len > 0 && r.below(3)) s[r.below(len)] = alphabet[r.below(static_cast<uint32_t>(n))];
    return s;
}

int ymd(int y, int m, int d) { return y * 10000 + m * 100 + d; }
bool leap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }
long accepted = 0;  // a run that accepts next to nothing tests next to nothing

// One date text in one style: 0 when every answer is one the parser allows.
int dateText(const std::string &s, int style) {
    std::vector<char> t = heap(s);
    char *p = t.data(), out[11], name[10];
    int y = 0, m = 0, d = 0, n, v;
    const int rc = DBStrDateTo3(&y, &m, &d, p, style);
    if (rc != 0 && rc != DBW_EMPTY && rc != DBE_BADDATE && rc != DBE_BADCOMMAND) return 1;
    // A blank date parses (202) but has no day number, weekday or month.
    const int want = rc == DBW_EMPTY ? DBE_BADDATE : rc;
    int bad = DBIsValidDateStr(p, style) != rc;
    bad += DBIsStrLeapYear(p, style) != (rc < 0 ? rc : leap(y));  // the blank date's year 0 is a leap year
    if (rc != 0 || y != 0)  // year 0 has no weekday nor month length
        for (int got : {DBStrDateToLong(&n, p, style), DBStrDateToIntDayWeek(&v, p, style),
                        DBStrDateToMonth(name, p, style), DBStrDateToDayOfWeek(name, p, style),
                        DBDaysInMonthStr(&v, p, style), DBConvertDateStr(out, 4, p, style),
                        DBDaysBetweenStr(&n, p, style, p, style)})
            bad += got != want;
    if (rc == 0) {
        accepted++;
        int y2, m2, d2;
        bad += DBConvertDateStr(out, 4, p, style) != 0 || DBStrDateTo3(&y2, &m2, &d2, out, 4) != 0 ||
               ymd(y, m, d) != ymd(y2, m2, d2);
    }
    return bad + (s != p);  // the caller's text is never changed
}

// One time text in one style.
int timeText(const std::string &s, int style) {
    std::vector<char> t = heap(s);
    int h, m, sec;
    char out[9];
    const int rc = DBStrTimeTo3(&h, &m, &sec, t.data(), style);
    if (rc != 0) return rc != DBE_BADTIME && rc != DBE_BADCOMMAND;
    accepted++;
    // A blank may stand for the hour's leading zero.
    return DBTime3ToStr(out, style, h, m, sec) != 0 || (s[0] == ' ' ? ' ' + std::string(out + 1) : out) != s;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    fz::Rand r(std::strtoull(argv[2], nullptr, 10));
    const int rounds = std::atoi(argv[3]);
    const char dates[] = "0123456789/.-\\ :+xA\t\x80\xff", times[] = "0123456789:: -+x\t\xff";
    int bad = 0;
    DBInitialize(64, 1);
    for (const std::string &s : {std::string(1000, '1'), std::string(1000, '/'), std::string("-2147483648"),
                                 std::string("2147483647/1/1"), std::string("1/1/99999999"), std::string("9999/9999")})
        for (int style = -1; style <= 17; style++) bad += dateText(s, style);
    for (const std::string &s : {std::string(1000, ':'), std::string(1000, '9'), std::string("-2147483648:0:0"),
                                 std::string("99999:0:"), std::string("0:0:0:0:"), std::string("\x01\x02\x03\x04")})
        for (int style = -1; style <= 3; style++) bad += timeText(s, style);
    for (int i = 0; i < rounds * 50; i++) {
        char date[11] = "", time[9] = "";
        DBLongDateToStr(date, 1 + static_cast<int>(r.below(15)), 1 + static_cast<int>(r.below(3652059)));
        const int tstyle = 1 + static_cast<int>(r.below(2));
        const int secs = static_cast<int>(r.below(86400));
        DBTime3ToStr(time, tstyle, secs / 3600, secs / 60 % 60, secs % 60);
        const std::string ds = garble(r, dates, sizeof dates - 1, date), ts = garble(r, times, sizeof times - 1, time);
        for (int style = -1; style <= 17; style++) bad += dateText(ds, style);
        for (int style = -1; style <= 3; style++) bad += timeText(ts, style);
    }
    DBTerminate();
    if (accepted < rounds * 5L) std::printf("fuzz_dates: only %ld texts accepted\n", accepted);
    return fz::report(bad + (accepted < rounds * 5L), "fuzz_dates");
}
