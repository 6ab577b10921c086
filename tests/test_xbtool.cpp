// The xbtool command: every command on the fixtures and on damaged copies,
// run as a separate program the way people run it.
#include "tablea_util.h"

#include <cstdlib>

namespace {

class XbTool : public xbt::LibTest {
protected:
    void SetUp() override {
        LibTest::SetUp();
        const char *b = std::getenv("XB_BUILD_DIR");
        ASSERT_NE(b, nullptr);
        tool_ = std::string(b) + "/tools/xbtool";
        for (const char *f : {"hbntx.dbt", "hbntx_byname.ntx", "hbntx_byamount.ntx", "hbntx_ucity.ntx", "hbntx_byhired.ntx",
                              "hbntx_bycity.ntx", "hbntx_byqty.ntx", "hbcdx.fpt", "py_vfp.dbf", "py_vfp.fpt"})
            fixture(f);
        openableFixture("hbntx.dbf");
        openableFixture("hbcdx.dbf");
    }
    // Runs xbtool in the temporary directory; the output with standard error.
    std::string xb(const std::string &args, int *status) {
        return xbt::run("cd " + tmp_.dir() + " && " + tool_ + " " + args + " 2>&1", status);
    }
    // Runs xbtool: the exit status, and text somewhere in the output.
    void says(const std::string &args, int status, const std::string &text) {
        int st = -1;
        const std::string out = xb(args, &st);
        EXPECT_EQ(st, status) << args << ": " << out;
        EXPECT_NE(out.find(text), std::string::npos) << args << ": " << out;
    }
    // A check that passes says so first.
    void ok(const std::string &args) {
        int st = -1;
        const std::string out = xb(args, &st);
        EXPECT_EQ(st, 0) << args << ": " << out;
        EXPECT_EQ(out.rfind("OK: ", 0), 0u) << args << ": " << out;
    }
    // The first `from` in file gets `to` as its first byte.
    void change(const std::string &file, const std::string &from, char to) {
        std::vector<uint8_t> b = xbt::readFile(path(file));
        auto at = std::search(b.begin(), b.end(), from.begin(), from.end());
        ASSERT_NE(at, b.end()) << file;
        *at = static_cast<uint8_t>(to);
        xbt::writeFile(path(file), b);
    }
    std::string tool_;
};

TEST_F(XbTool, InfoOnEveryKindOfFile) {
    struct Case { const char *file; std::vector<const char *> want; } cases[] = {
        {"hbntx.dbf", {"version byte 0x83", "300 records of 70 bytes, 7 fields", "NOTES      M   10", "memo file hbntx.dbt"}},
        {"py_vfp.dbf", {"style 10", "version byte 0x30"}},
        {"hbntx.dbt", {"DBT (dBASE III), blocks of 512 bytes, next free block 219"}},
        {"hbcdx.fpt", {"FPT (FoxPro), blocks of 64 bytes, next free block"}},
        {"hbntx_byamount.ntx", {"NTX, key AMOUNT, length 10, 2 decimals"}},
        {"hbntx_ucity.ntx", {"key CITY, length 15", "unique"}},
    };
    for (const auto &c : cases) {
        int st = -1;
        const std::string out = xb("info " + std::string(c.file), &st);
        EXPECT_EQ(st, 0) << out;
        for (const char *w : c.want) EXPECT_NE(out.find(w), std::string::npos) << c.file << ": " << out;
    }
    says("info missing.dbf", 1, "ERROR - file not found");
    says("--help", 0, "reindex TABLE INDEX");
    says("frobnicate", 2, "");
}

// The dump against the records file: every record's fields as the producer
// wrote them, memos by length, deleted records only when asked for.
TEST_F(XbTool, DumpMatchesTheRecordsFile) {
    const std::vector<std::string> rec = xbt::readLines(xbt::fixturePath("hbntx.records.txt"));
    int st = -1;
    const std::string csv = xb("dump hbntx.dbf", &st);
    ASSERT_EQ(st, 0);
    const std::string all = xb("dump hbntx.dbf --json --deleted", &st);
    ASSERT_EQ(st, 0);
    std::vector<std::string> lines, json;
    for (size_t a = 0, b; (b = csv.find("\r\n", a)) != std::string::npos; a = b + 2)
        lines.push_back(csv.substr(a, b - a));
    for (size_t a = 0, b; (b = all.find('\n', a)) != std::string::npos; a = b + 1)
        json.push_back(all.substr(a, b - a));
    ASSERT_EQ(lines[0], "NAME,CITY,AMOUNT,QTY,HIRED,ACTIVE,NOTES");
    ASSERT_EQ(json.size(), rec.size() - 1);
    size_t row = 1;
    for (size_t i = 1; i < rec.size(); i++) {
        // recno|deleted|NAME|CITY|AMOUNT|QTY|HIRED|ACTIVE|NOTES(len:md5)
        const std::vector<std::string> f = tablea::split(rec[i], '|');
        const bool deleted = f[1] == "*";
        const std::string name = tablea::trim(f[2]), d = f[6], yes = "true", no = "false";
        const std::string iso = d.substr(0, 4) + '-' + d.substr(4, 2) + '-' + d.substr(6);
        const std::string hired = d == "        " ? "null" : '"' + iso + '"';
        for (const std::string &want : {"\"_recno\":" + f[0] + ",", "\"_deleted\":" + (deleted ? yes : no),
                                        "\"NAME\":\"" + name + "\"", "\"AMOUNT\":" + tablea::ltrim(f[4]) + ",",
                                        "\"HIRED\":" + hired, "\"ACTIVE\":" + (f[7] == "T" ? yes : no)})
            EXPECT_NE(json[i - 1].find(want), std::string::npos) << want << " in " << json[i - 1];
        if (deleted) continue;
        ASSERT_LT(row, lines.size());
        const std::string quoted = name.find(',') == std::string::npos ? name : '"' + name + '"';
        EXPECT_EQ(lines[row].substr(0, lines[row].find(',')), quoted);
        // An empty memo ends the line, a multi-line one is quoted.
        if (std::atol(f[8].c_str()) == 0) EXPECT_EQ(lines[row].back(), ',') << lines[row];
        row++;
        while (row < lines.size() && lines[row].find(',') == std::string::npos) row++;  // lines of a quoted memo
    }
    // A damaged table is refused with the library's message.
    std::vector<uint8_t> b = xbt::readFile(path("hbntx.dbf"));
    b.resize(100);
    xbt::writeFile(path("cut.dbf"), b);
    says("dump cut.dbf", 1, "cut.dbf: ERROR - file read failure");
}

// check finds a sound index sound (Harbour's six NTX files: each record's
// key as we make it is the one Harbour stored), and a damaged or stale one
// not; reindex rebuilds it in place; pack packs table and memo file.
TEST_F(XbTool, CheckReindexAndPack) {
    for (const char *ix : {"hbntx_byname.ntx", "hbntx_byamount.ntx", "hbntx_ucity.ntx", "hbntx_byhired.ntx",
                           "hbntx_bycity.ntx", "hbntx_byqty.ntx"})
        ok(std::string("check hbntx.dbf ") + ix);
    // A key changed in the file: the index no longer agrees with the table;
    // rebuilt, it agrees again.
    change("hbntx_byname.ntx", "Ccname528", 'X');
    says("check hbntx.dbf hbntx_byname.ntx", 1, "record 1: the index holds 'Xcname528");
    says("reindex hbntx.dbf hbntx_byname.ntx", 0, "");
    ok("check hbntx.dbf hbntx_byname.ntx");
    // A damaged tree: reported, and a rebuild of a file that does not open
    // leaves it as it was.
    std::vector<uint8_t> b = xbt::readFile(path("hbntx_byname.ntx"));
    b[14] = 0;  // key length 0
    xbt::writeFile(path("bad.ntx"), b);
    says("check hbntx.dbf bad.ntx", 1, "invalid key length");
    says("reindex hbntx.dbf bad.ntx", 1, "");
    EXPECT_EQ(xbt::readFile(path("bad.ntx")), b);
    EXPECT_FALSE(xbt::fileExists(path("bad.ntx.xbtool-new")));
    // Pack: 21 of the 300 records are deleted; afterwards the old index names
    // records that are gone, and a rebuild fixes that.
    says("pack hbntx.dbf", 0, "279 records, 21 deleted removed; hbntx.dbt packed");
    says("check hbntx.dbf hbntx_byhired.ntx", 1, "not a record of the table");
    says("reindex hbntx.dbf hbntx_byhired.ntx", 0, "");
    ok("check hbntx.dbf hbntx_byhired.ntx");
    int st = -1;
    EXPECT_EQ(xb("dump hbntx.dbf --deleted", &st).find("\r\n*,"), std::string::npos);
}

// The other families: a Harbour CDX (every tag, or one named) and a compact
// IDX made by the library, checked, damaged and rebuilt; an NDX checked.
TEST_F(XbTool, CompoundSingleAndNdxIndexes) {
    fixture("hbcdx.cdx");
    ASSERT_EQ(DBSetDefaultDateStyle(2), 0);
    int t = -1;
    ASSERT_EQ(DBOpenFile(&t, tablea::cs(path("hbcdx.dbf").c_str()), 4), 0);
    const std::string idx = path("compact.idx");
    int h = -1;
    ASSERT_EQ(DBfbCreateIndex(tablea::cs(idx.c_str()), 'C' | 0x400, tablea::cs("UPPER(CITY)+NAME"), 35, nullptr), 0);
    ASSERT_EQ(DBfbOpenIndex(&h, tablea::cs(idx.c_str()), 0) | DBfbBuildIndex(t, h) | DBfbCloseIndex(h), 0);
    ASSERT_EQ(DBd3BuildIndex(t, tablea::cs(path("amount.ndx").c_str()), 'N', tablea::cs("AMOUNT"), 8, 2), 0);
    ASSERT_EQ(DBCloseFile(t), 0);
    says("info hbcdx.cdx", 0, "compound file, 6 tags");
    says("info hbcdx.cdx", 0, "CDX tag UCITY, key CITY, length 15, unique");
    says("info compact.idx", 0, "key UPPER(CITY)+NAME, length 35");
    says("info amount.ndx", 0, "NDX, key AMOUNT, length 8, type N");
    for (const char *args : {"hbcdx.cdx", "hbcdx.cdx BYHIRED", "compact.idx", "amount.ndx"})
        ok(std::string("check hbcdx.dbf ") + args);
    // Each file with one stored key changed (UPPER(CITY)+NAME keys hold the
    // name whole or in part): the check fails, and a rebuild mends it.
    for (const std::string f : {"hbcdx.cdx", "compact.idx"}) {
        change(f, "me592", 'Q');
        says("check hbcdx.dbf " + f, 1, "");
        says("reindex hbcdx.dbf " + f, 0, "");
        ok("check hbcdx.dbf " + f);
    }
    // A tag that does not exist, and an index of another table.
    says("check hbcdx.dbf hbcdx.cdx NOSUCH", 1, "invalid tag name");
    says("check py_vfp.dbf amount.ndx", 1, "");
}

}  // namespace
