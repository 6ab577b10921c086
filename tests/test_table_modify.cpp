// test_table_modify.cpp - DBModifyFile: every conversion between field
// types, records and deleted marks kept, memo files of each kind rewritten,
// gained and dropped, python3-dbfread reading the result; and changes of a
// table and its memo file (DBModifyFile, DBPackFile, the memo packs)
// killed or failed after each of their steps.
#include "memo_util.h"
#include "seams.h"
#include "tablea_util.h"

#include <functional>
#include <tuple>

using tablea::cs;
using tablea::fld;

namespace {

using Bytes = std::vector<uint8_t>;
using xbt::Files;
using xbt::raw;

// A change of t.dbf (style 4 and the memo packs on a shared handle) from
// the fields `before` to `after`, or a pack of the table or of its memo file.
enum Op { kModify, kPack, kMemoPack };
struct Scenario {
    const char *label;
    int style;
    const char *memo;  // the memo file's name, "" for none on either side
    std::vector<DBFIELD> before, after;
    Op op = kModify;
};

const std::vector<DBFIELD> kPlain = {fld("NAME", 'C', 10), fld("QTY", 'N', 4)},
                           kNotes = {fld("NAME", 'C', 10), fld("NOTES", 'M')};
const Scenario kScenarios[] = {
    {"table only", 1, "", kPlain, {fld("QTY", 'N', 6, 1), fld("NAME", 'C', 4)}},
    {"DBT III kept", 1, "t.dbt", kNotes, {fld("NOTES", 'M'), fld("NAME", 'C', 4)}},
    {"FPT kept", 4, "t.fpt", kNotes, {fld("NAME", 'M'), fld("NOTES", 'M')}},
    {"FPT gained", 4, "t.fpt", kPlain, {fld("NAME", 'M'), fld("QTY", 'N', 4)}},
    {"DBT dropped", 1, "t.dbt", kNotes, {fld("NOTES", 'C', 30)}},
    {"table pack", 1, "", kPlain, {}, kPack},
    {"DBT III memo pack", 1, "t.dbt", kNotes, {}, kMemoPack},
    {"FPT memo pack", 4, "t.fpt", kNotes, {}, kMemoPack},
};

bool hasMemo(const std::vector<DBFIELD> &f) {
    return std::any_of(f.begin(), f.end(), [](const DBFIELD &d) { return d.type == 'M'; });
}

// Record i's memo in field j: 90 * i letters, none in record 5.
std::string memoText(int i, int j) {
    return i == 5 ? "" : std::string(90 * i, static_cast<char>('a' + (i + 7 * j) % 26));
}

class Modify : public xbt::LibTest {
protected:
    std::string t() const { return path("t.dbf"); }
    mt::Memo memo(const Scenario &sc) const { return mt::Memo{sc.style == 4, path(sc.memo)}; }
    static int version(const Scenario &sc) { return sc.style == 4 ? 0 : 3; }
    // n records of sc.before (the fourth deleted): "row i" in text fields,
    // i in numbers, memoText(i, j) in memo fields after a dead first copy.
    void build(const Scenario &sc, int n = 6) {
        restore({});
        std::vector<DBFIELD> f = sc.before;
        ASSERT_EQ(tablea::create(t(), f, sc.style), 0);
        const bool memos = hasMemo(f);
        mt::Memo m = memo(sc);
        if (memos) m = mt::made(m.fpt, m.file, 1, version(sc), version(sc));
        int h = -1;
        ASSERT_EQ(tablea::open(&h, t(), sc.style), 0);
        for (int i = 1; i <= n; i++) {
            int32_t rec = 0;
            ASSERT_EQ(DBClearBuffer(h), 0);
            for (int j = 0; j < static_cast<int>(f.size()); j++) {
                const std::string v = f[j].type == 'C' ? "row " + std::to_string(i) : "   " + std::to_string(i);
                int32_t b = 0;
                if (f[j].type == 'M' && i != 5) m.put(std::string(40 * i, 'x')), b = m.put(memoText(i, j));
                ASSERT_GE(f[j].type == 'M' ? DBPutFieldData(h, j, &b) : DBPutFieldData(h, j, cs(v.c_str())), 0);
            }
            ASSERT_EQ(DBPutRecord(h, &rec, DB_APPEND), 0);
        }
        ASSERT_EQ(DBMarkRecordInActive(h, 4), 0);
        ASSERT_EQ(DBCloseFile(h), 0);
        if (memos) ASSERT_EQ(m.close(), 0);
    }
    // The table and memo file as they stand (the header date left out).
    Files pair(const Scenario &sc) { return undated({"t.dbf", sc.memo}); }
    // Opens the table and makes the change; -999 when an open fails.
    int change(const Scenario &sc, int *h) {
        std::vector<DBFIELD> f = sc.after;
        if (tablea::open(h, t(), sc.style | (sc.style == 4 || sc.op == kMemoPack ? DBO_SHARED : 0)) != 0) return -999;
        if (sc.op == kModify) return DBModifyFile(h, static_cast<int>(f.size()), f.data());
        if (sc.op == kPack) return DBPackFile(h);
        mt::Memo m = memo(sc);
        return m.open(version(sc)) == 0 ? m.pack(*h) : -999;
    }
    // After the next open of the table: the old pair or the new one, the
    // backups only beside the new pair (and copies, which nothing removes,
    // beside the old), and at most the work files besides. A memo pack's
    // backup is numbered like its work file: killed between removing the
    // marker and that backup, it stays, a stray file; where the marker
    // stands but the name is still free, another file takes it first, and
    // the repair must leave that file alone.
    void settled(const Scenario &sc, const Files &oldPair, const Files &newPair, const Files &oldFiles,
                 const std::string &when, bool copies) {
        const std::string numbered = sc.op != kMemoPack ? "" : sc.style == 4 ? "1.FPT" : "1.DBT";
        const bool marked = xbt::fileExists(path("t.MPK")), left = !numbered.empty() && xbt::fileExists(path(numbered));
        const bool stray = !marked && left, intruder = !numbered.empty() && marked && !left;
        const Bytes other(12, 'o');  // another program's file
        if (intruder) xbt::writeFile(path(numbered), other);
        int h = -1;
        ASSERT_GE(tablea::open(&h, t(), sc.style), 0) << when;
        ASSERT_EQ(DBCloseFile(h), 0);
        const Files now = pair(sc);
        const bool isNew = now == newPair;
        EXPECT_TRUE(now == oldPair || isNew) << "neither pair " << when;
        if (intruder) EXPECT_EQ(xbt::readFile(path(numbered)), other) << when;
        for (const std::string &n : names()) {
            const bool backup = sc.op != kMemoPack && (n == "t.BAK" || n == "t.TBK");
            const bool work = n == "0.DBF" ? sc.op != kMemoPack : (n == "0.DBT" || n == "0.FPT") && sc.op != kPack;
            EXPECT_TRUE(now.count(n) || work || (n == numbered && (stray || intruder)) ||
                        (backup && (isNew || copies || !*sc.memo)))
                << n << " left " << when;
            if (backup && isNew)
                EXPECT_EQ(xbt::readFile(path(n)), oldFiles.at(n == "t.BAK" ? "t.dbf" : sc.memo)) << when;
        }
    }
};

// One field of each case, alone in a style-2 table (which has 'F' and
// 20-digit numbers), one record, changed to the new field: the new bytes
// and the status. A memo field points to block 1 of a dBASE IV memo file
// holding `memo`. Dates are read in the default style 1 (mm/dd/yy).
TEST_F(Modify, EveryConversion) {
    const std::string ptr = "         1";
    struct Case { int ot, ol, od; std::string in; int nt, nl, nd; std::string want; int st; std::string memo = ""; };
    const Case cases[] = {
        {'C', 10, 0, "abcdefgh  ", 'C', 5, 0, "abcde", DBW_TRUNCATED},
        {'C', 5, 0, "  abc", 'C', 8, 0, "  abc   ", 0},
        {'C', 8, 0, " 12.345 ", 'N', 8, 2, "   12.35", DBW_ROUNDED},
        {'C', 6, 0, " -0.5 ", 'F', 4, 2, "-.50", 0},
        {'C', 8, 0, "abc     ", 'N', 5, 0, "     ", DBW_TRUNCATED},
        {'C', 8, 0, "123456  ", 'N', 5, 0, "     ", DBW_TRUNCATED},
        {'N', 8, 2, "-1234.50", 'C', 5, 0, "     ", DBW_TRUNCATED},
        {'N', 6, 2, " -1.25", 'N', 4, 1, "-1.3", DBW_ROUNDED},
        {'N', 8, 3, "   9.999", 'N', 5, 2, "10.00", DBW_ROUNDED},
        {'N', 5, 0, "12345", 'N', 4, 0, "    ", DBW_TRUNCATED},
        {'N', 20, 0, "12345678901234567890", 'N', 20, 2, std::string(20, ' '), DBW_TRUNCATED},
        {'N', 5, 0, "*****", 'N', 5, 0, "*****", 0},
        {'N', 5, 0, "*****", 'N', 6, 0, "      ", DBW_TRUNCATED},
        {'N', 6, 1, "  -2.5", 1, 2, 0, raw<int16_t>(-3), DBW_ROUNDED},
        {'N', 8, 0, "  100000", 1, 2, 0, "  ", DBW_TRUNCATED},
        {'N', 6, 2, "  0.10", 13, 8, 0, raw(0.1), 0},
        {3, 4, 0, raw<int32_t>(-42), 'N', 5, 0, "  -42", 0},
        {13, 8, 0, raw(0.1), 'C', 10, 0, "0.1       ", 0},
        {13, 8, 0, raw(1e300), 'N', 20, 0, std::string(20, ' '), DBW_TRUNCATED},
        {1, 2, 0, raw<int16_t>(7), 'C', 3, 0, "7  ", 0},
        {'D', 8, 0, "20240517", 'C', 8, 0, "20240517", 0},
        {'C', 8, 0, "20240229", 'D', 8, 0, "20240229", 0},
        {'C', 8, 0, "05/17/24", 'D', 8, 0, "20240517", 0},
        {'C', 8, 0, "20240230", 'D', 8, 0, "        ", DBW_TRUNCATED},
        {'N', 8, 0, "20240517", 'D', 8, 0, "20240517", 0},
        {'L', 1, 0, "y", 'C', 3, 0, "T  ", 0},
        {'L', 1, 0, "?", 'C', 3, 0, "   ", 0},
        {'C', 5, 0, "false", 'L', 1, 0, "F", 0},
        {'C', 1, 0, "?", 'L', 1, 0, " ", 0},
        {'L', 1, 0, "T", 'N', 1, 0, " ", DBW_TRUNCATED},
        {'D', 8, 0, "20240517", 'L', 1, 0, " ", DBW_TRUNCATED},
        {'M', 10, 0, ptr, 'C', 5, 0, "hello", DBW_TRUNCATED, "hello world  "},
        {'M', 10, 0, ptr, 'N', 5, 1, " 12.5", 0, " 12.5"},
        {'M', 10, 0, ptr, 'M', 10, 0, ptr, 0, ""},
        {'C', 5, 0, "hi   ", 'M', 10, 0, ptr, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << "'" << c.in << "' -> " << c.nt << "," << c.nl << "," << c.nd);
        tablea::RawDbf r;
        r.field("V", c.ot, c.ol, c.od);
        r.records.push_back(" " + c.in);
        r.version = c.ot == 'M' ? 0x8B : 0x03;
        r.write(t());
        Bytes memo(1024, 0);
        memo[0] = 2, memo[21] = 2, memo[512] = memo[513] = 0xFF, memo[514] = 8;  // next block 2, 512-byte blocks
        memo[516] = static_cast<uint8_t>(c.memo.size() + 8);
        std::copy(c.memo.begin(), c.memo.end(), memo.begin() + 520);
        if (c.ot == 'M') xbt::writeFile(path("t.dbt"), memo);
        int h = -1;
        ASSERT_EQ(tablea::open(&h, t(), 2), 0);
        std::vector<DBFIELD> f = {fld("v", c.nt, c.nl, c.nd)};
        EXPECT_EQ(DBModifyFile(&h, 1, f.data()), c.st);
        ASSERT_EQ(DBCloseFile(h), 0);
        const Bytes b = xbt::readFile(t());  // the one field of the one record, as the header places it
        const long at = (b[8] | b[9] << 8) + 1;
        EXPECT_EQ(std::string(b.begin() + at, b.begin() + at + (b[10] | b[11] << 8) - 1), c.want);
    }
}

// Memos of each kind: NOTES kept (its dead texts dropped), TITLE from text
// to memo, SUMMARY from memo to text (cut). The new memo file holds what the
// records point to, deleted records included (PeerFiles has python3-dbfread
// read a changed memo file).
TEST_F(Modify, MemoKinds) {
    const std::vector<DBFIELD> before = {fld("NOTES", 'M'), fld("TITLE", 'C', 20), fld("SUMMARY", 'M')},
                               after = {fld("NOTES", 'M'), fld("TITLE", 'M'), fld("SUMMARY", 'C', 12)};
    const Scenario kinds[] = {{"DBT III", 1, "t.dbt", before, after}, {"FPT", 4, "t.fpt", before, after}};
    for (const Scenario &sc : kinds) {
        SCOPED_TRACE(sc.label);
        build(sc, 8);
        const Files old = all();
        int h = -1;
        EXPECT_EQ(change(sc, &h), DBW_TRUNCATED);
        mt::Memo m = memo(sc);
        ASSERT_EQ(m.open(version(sc)), 0);
        for (int i = 1; i <= 8; i++) {
            SCOPED_TRACE(i);
            EXPECT_EQ(DBGetRecord(h, i), i == 4 ? DBW_DELETED : 0);
            int32_t nb = 0, tb = 0;
            char sum[20];
            DBGetFieldData(h, 0, &nb);
            DBGetFieldData(h, 1, &tb);
            ASSERT_EQ(DBGetStrField(h, 2, sum), i == 5 ? DBW_FIELDEMPTY : 0);
            EXPECT_EQ(nb == 0 ? std::string() : m.get(nb), memoText(i, 0));
            EXPECT_EQ(m.get(tb), "row " + std::to_string(i));
            EXPECT_EQ(tablea::trim(sum), memoText(i, 2).substr(0, 12));
        }
        EXPECT_LT(xbt::fileSize(memo(sc).file), static_cast<long>(old.at(sc.memo).size()));
        // The block size stays (512 here; a first FPT file would get 64).
        if (m.fpt) EXPECT_EQ(mt::get32(xbt::readFile(m.file), 4, true), 512u);
        ASSERT_EQ(m.close() | DBCloseFile(h), 0);
    }
}

// More records than the work table's cache block holds (2,520 of 13 bytes):
// each comes across in order with its value and its deleted mark.
TEST_F(Modify, MoreRecordsThanACacheBlock) {
    const Scenario sc{"wide", 1, "", {fld("N", 'N', 8)}, {fld("N", 'N', 10, 1), fld("X", 'C', 2)}};
    const int n = 7000;
    build(sc, n);
    int h = -1;
    ASSERT_EQ(change(sc, &h), 0);
    int32_t count = 0;
    ASSERT_EQ(DBGetRecordCount(h, &count), 0);
    EXPECT_EQ(count, n);
    for (int i = 1; i <= n; i++) {
        char v[16];
        ASSERT_EQ(DBGetRecord(h, i), i == 4 ? DBW_DELETED : 0) << i;
        ASSERT_EQ(DBGetStrField(h, 0, v), 0) << i;
        ASSERT_EQ(tablea::ltrim(v), std::to_string(i) + ".0") << i;
    }
    ASSERT_EQ(DBCloseFile(h), 0);
}

// Harbour's tables (DBT and 64-byte-block FPT memos, deleted records,
// memos up to kilobytes), opened shared, given a field list in lower case
// without CITY, with QTY widened and a new EXTRA: python3-dbfread sees every
// record, mark and memo as before, EXTRA empty; the handle keeps its number
// and open mode, and the old table is the backup.
TEST_F(Modify, PeerFiles) {
    for (const auto &[stem, memo, style] : {std::tuple{"hbntx", ".dbt", 1}, std::tuple{"hbcdx", ".fpt", 4}}) {
        SCOPED_TRACE(stem);
        const std::string table = openableFixture(std::string(stem) + ".dbf");
        fixture(std::string(stem) + memo);
        const Bytes b = xbt::readFile(table);
        const auto before = tablea::dbfread(table, "NOTES");
        int h = -1;
        ASSERT_EQ(tablea::open(&h, table, style | DBO_SHARED), 0);
        const int number = h;
        std::vector<DBFIELD> f = {fld("name", 'C', 20), fld("amount", 'N', 10, 2), fld("qty", 'N', 7, 1),
                                  fld("hired", 'D'), fld("active", 'L'), fld("notes", 'M'), fld("extra", 'N', 5)};
        ASSERT_EQ(DBModifyFile(&h, 7, f.data()), 0);
        DBFILEINFO info{};
        EXPECT_EQ(h, number);
        EXPECT_EQ(DBGetFileInfo(h, &info) | info.flags.isshareable, 1);
        ASSERT_EQ(DBCloseFile(h), 0);
        EXPECT_EQ(xbt::readFile(std::string(table, 0, table.size() - 3) + "BAK"), b);
        const auto after = tablea::dbfread(table, "NOTES");
        ASSERT_EQ(after.size(), before.size());  // CITY's field line gone, EXTRA's come
        for (size_t i = 0, j = 0; i < before.size(); i++, j++) {
            std::vector<std::string> want = before[i];
            if (want[0] == "field" && want[1] == "CITY") {
                j--;
                continue;
            }
            if (want[0] == "header") want[5] = "7", want[3] = after[j][3], want[4] = after[j][4];
            if (want[0] == "field" && want[1] == "QTY") want[3] = "7", want[4] = "1";
            if (want[0] == "record") {
                want.erase(want.begin() + 4);                    // CITY
                if (want[5] != "null") want[5] += ".0";          // QTY with a decimal now
                want.back() = after[j].end()[-2];                // memo pointers renumbered: the texts are compared below
                want.push_back("null");                          // EXTRA
            }
            EXPECT_EQ(after[j], want) << i;
            if (want[0] == "field" && want[1] == "NOTES") EXPECT_EQ(after[++j], (std::vector<std::string>{"field", "EXTRA", "4e", "5", "0"}));
        }
    }
}

// Wrong arguments, a field list DBCreateFile refuses (both check them with
// one function, whose limits test_table_create covers), tables that
// cannot be changed, bad memo pointers: a status, the files byte for byte,
// and the handle still on the old table.
TEST_F(Modify, BadInput) {
    build(kScenarios[1]);
    const Files good = all();
    auto pointer = [&](const char *p) {  // record 2's memo pointer, as bytes
        Bytes b = good.at("t.dbf");
        std::memcpy(&b[static_cast<size_t>(b[8] + 256 * b[9] + (b[10] + 256 * b[11]) + 11)], p, 10);
        xbt::writeFile(t(), b);
    };
    auto named = [&](const char *n) { return [&, n] { std::rename(t().c_str(), path(n).c_str()); }; };
    const std::vector<DBFIELD> f0 = {fld("NAME", 'C', 4)};
    // table: its name after setup.
    const struct { const char *what; std::function<void()> setup; int mode; std::vector<DBFIELD> f; int nf, want;
                   const char *table = "t.dbf"; } cases[] = {
        {"no fields", [] {}, 1, f0, 0, DBE_NUMFIELDS},
        {"read only", [] {}, 1 | DBO_READONLY, f0, 1, DBE_READONLY},
        {"pointer past the memo file", [&] { pointer("       999"); }, 1, {fld("NOTES", 'M')}, 1, DBE_SEEK},
        {"pointer that is no number", [&] { pointer("99999999999"); }, 1, {fld("NOTES", 'C', 9)}, 1, DBE_SEEK},
        {"memo file missing", [&] { std::remove(path("t.dbt").c_str()); }, 1, {fld("NOTES", 'M')}, 1, DBE_NOTFOUND},
        {"unfinished marker", [] {}, 1, f0, 1, DBE_ACCESS},
        // A table named like its backup, or like its own memo file, is
        // refused before anything is removed.
        {"named like its backup", named("t.BAK"), 1, f0, 1, DBE_BADFILENAME, "t.BAK"},
        {"named like its memo file", named("t.dbt"), 1, f0, 1, DBE_BADFILENAME, "t.dbt"},
        // Visual FoxPro tables cannot be created, so not changed either.
        {"Visual FoxPro", [&] { fixture("py_vfp.dbf"); }, 10, f0, 1, DBE_BADVERSION, "py_vfp.dbf"},
    };
    int h = -1;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        restore(good);
        c.setup();
        const Files before = all();
        int32_t count = 0, was = 0;
        ASSERT_EQ(tablea::open(&h, path(c.table), c.mode) | DBGetRecordCount(h, &was), 0);
        if (c.want == DBE_ACCESS) xbt::writeFile(path("t.MPK"), std::string("another change"));
        std::vector<DBFIELD> f = c.f;
        EXPECT_EQ(DBModifyFile(&h, c.nf, f.data()), c.want);
        std::remove(path("t.MPK").c_str());
        EXPECT_EQ(DBGetRecordCount(h, &count), 0);
        EXPECT_EQ(count, was);
        ASSERT_EQ(DBCloseFile(h), 0);
        EXPECT_EQ(all(), before);
    }
    // The table open twice, or its memo file open under a memo handle of
    // this process, stops the change.
    restore(good);
    std::vector<DBFIELD> f = kNotes;
    ASSERT_EQ(tablea::open(&h, t(), 1), 0);
    EXPECT_EQ(DBModifyFile(nullptr, 1, f.data()), DBE_NULLPARAM);
    int twice = -1;
    ASSERT_EQ(tablea::open(&twice, t(), 1), 0);
    EXPECT_EQ(DBModifyFile(&h, 1, f.data()), DBE_FILESOPEN);
    ASSERT_EQ(DBCloseFile(twice), 0);
    mt::Memo m = memo(kScenarios[1]);
    ASSERT_EQ(m.open(3), 0);
    EXPECT_EQ(DBModifyFile(&h, 1, f.data()), DBE_FILESOPEN);
    ASSERT_EQ(m.close() | DBCloseFile(h), 0);
    EXPECT_EQ(all(), good);
}

// A child killed just after each step of the change; the next open sees
// one pair or the other. Then, for DBModifyFile, each step failing in turn
// and each allocation: a change that reports a failure leaves the old files
// byte for byte and nothing else, and its handle on the old table; one that
// reports success leaves the new pair (a marker it could not remove is
// finished by the next open).
TEST_F(Modify, KilledOrFailed) {
    for (const Scenario &sc : kScenarios) {
        for (bool copies : {false, true}) {
            if (copies && (sc.style != 4 || sc.op != kModify)) continue;
            SCOPED_TRACE(std::string(sc.label) + (copies ? ", backups copied" : ""));
            build(sc);
            const Files oldFiles = all(), oldPair = pair(sc);
            int h = -1;
            auto run = [&] { return change(sc, &h); };
            const long steps = xbt::runKilledAt(0, run, copies);
            ASSERT_TRUE(steps > (sc.op == kModify ? 5 : 3) && steps < 255) << steps;
            const Files newPair = pair(sc);
            ASSERT_NE(newPair, oldPair);
            for (long stop = 1; stop <= steps; stop++) {
                restore(oldFiles);
                ASSERT_EQ(xbt::runKilledAt(stop, run, copies), -1) << stop;
                settled(sc, oldPair, newPair, oldFiles, "after step " + std::to_string(stop), copies);
            }
            if (copies || sc.op != kModify) continue;
            EXPECT_EQ(newPair.count(sc.memo) == 1, hasMemo(sc.after));  // gained, kept or dropped
            int failures = 0;
            for (int kind = 0; kind < 2; kind++) {
                for (long k = 1;; k++) {
                    const std::string when = (kind ? "allocation " : "step ") + std::to_string(k);
                    restore(oldFiles);
                    int rc = 0;
                    {
                        xbt::Seams seams;
                        if (kind == 0) seams.failAt = k;
                        else seams.allocsLeft = k - 1;
                        rc = run();
                    }
                    if (rc == -999) continue;  // the open itself failed
                    if (rc >= 0) {
                        ASSERT_EQ(DBCloseFile(h), 0);
                        settled(sc, oldPair, newPair, oldFiles, when, false);
                        EXPECT_EQ(pair(sc), newPair) << when;
                        if (kind == 1 || xbt::Seams::steps < k) break;  // nothing was left to fail
                        continue;
                    }
                    failures++;
                    int32_t count = 0;
                    EXPECT_EQ(DBGetRecordCount(h, &count), 0) << when;
                    EXPECT_EQ(count, 6) << when;
                    ASSERT_EQ(DBCloseFile(h), 0) << when;
                    EXPECT_EQ(all(), oldFiles) << when;
                }
            }
            EXPECT_GT(failures, 10);
        }
    }
}

}  // namespace
