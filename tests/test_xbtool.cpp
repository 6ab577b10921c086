// The xbtool command: every command on the fixtures and on damaged copies,
// run as a separate program the way people run it.
#include "index_util.h"

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
                              "hbcdx.fpt", "py_vfp.dbf", "py_vfp.fpt"})
            fixture(f);
        idx::openableTable(*this, path("hbntx.dbf"), "hbntx.dbf");
        idx::openableTable(*this, path("hbcdx.dbf"), "hbcdx.dbf");
    }
    // Runs xbtool in the temporary directory; the output with standard error.
    std::string xb(const std::string &args, int *status) {
        return xbt::run("cd " + tmp_.dir() + " && " + tool_ + " " + args + " 2>&1", status);
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
    int st = 0;
    EXPECT_NE(xb("info missing.dbf", &st).find("ERROR - file not found"), std::string::npos);
    EXPECT_EQ(st, 1);
    EXPECT_NE(xb("--help", &st).find("reindex TABLE INDEX"), std::string::npos);
    EXPECT_EQ(st, 0);
    xb("frobnicate", &st);
    EXPECT_EQ(st, 2);
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
    for (size_t a = 0, b; (b = csv.find("\r\n", a)) != std::string::npos; a = b + 2) lines.push_back(csv.substr(a, b - a));
    for (size_t a = 0, b; (b = all.find('\n', a)) != std::string::npos; a = b + 1) json.push_back(all.substr(a, b - a));
    ASSERT_EQ(lines[0], "NAME,CITY,AMOUNT,QTY,HIRED,ACTIVE,NOTES");
    ASSERT_EQ(json.size(), rec.size() - 1);
    size_t row = 1;
    for (size_t i = 1; i < rec.size(); i++) {
        // recno|deleted|NAME|CITY|AMOUNT|QTY|HIRED|ACTIVE|NOTES(len:md5)
        std::vector<std::string> f;
        for (size_t a = 0, b;; a = b + 1) {
            b = rec[i].find('|', a);
            f.push_back(rec[i].substr(a, b == std::string::npos ? b : b - a));
            if (b == std::string::npos) break;
        }
        const bool deleted = f[1] == "*";
        const std::string name = f[2].substr(0, f[2].find_last_not_of(' ') + 1);
        const std::string &j = json[i - 1];
        EXPECT_NE(j.find("\"_recno\":" + f[0] + ","), std::string::npos) << j;
        EXPECT_NE(j.find(std::string("\"_deleted\":") + (deleted ? "true" : "false")), std::string::npos) << j;
        EXPECT_NE(j.find("\"NAME\":\"" + name + "\""), std::string::npos) << j;
        const std::string amount = f[4].substr(f[4].find_first_not_of(' '));
        EXPECT_NE(j.find("\"AMOUNT\":" + amount + ","), std::string::npos) << j;
        const std::string hired = f[6] == "        " ? "null" : "\"" + f[6].substr(0, 4) + "-" + f[6].substr(4, 2) + "-" + f[6].substr(6) + "\"";
        EXPECT_NE(j.find("\"HIRED\":" + hired), std::string::npos) << j;
        EXPECT_NE(j.find(std::string("\"ACTIVE\":") + (f[7] == "T" ? "true" : "false")), std::string::npos) << j;
        if (deleted) continue;
        ASSERT_LT(row, lines.size());
        EXPECT_EQ(lines[row].substr(0, lines[row].find(',')), name.find(',') == std::string::npos ? name : "\"" + name + "\"");
        // The memo's length: an empty one ends the line, a multi-line one
        // is quoted.
        const long len = std::atol(f[8].c_str());
        if (len == 0) EXPECT_EQ(lines[row].back(), ',') << lines[row];
        row++;
        while (row < lines.size() && lines[row].find(',') == std::string::npos) row++;  // lines of a quoted memo
    }
    // A damaged table is refused with the library's message.
    std::vector<uint8_t> b = xbt::readFile(path("hbntx.dbf"));
    b.resize(100);
    xbt::writeFile(path("cut.dbf"), b);
    EXPECT_NE(xb("dump cut.dbf", &st).find("cut.dbf: ERROR - file read failure"), std::string::npos);
    EXPECT_EQ(st, 1);
}

// check finds a sound index sound, and a damaged or stale one not;
// reindex rebuilds it in place; pack packs table and memo file.
TEST_F(XbTool, CheckReindexAndPack) {
    int st = -1;
    for (const char *ix : {"hbntx_byname.ntx", "hbntx_byamount.ntx", "hbntx_ucity.ntx", "hbntx_byhired.ntx"}) {
        const std::string out = xb(std::string("check hbntx.dbf ") + ix, &st);
        EXPECT_EQ(st, 0) << out;
        EXPECT_EQ(out.substr(0, 3), "OK:") << out;
    }
    // A key changed in the file: the index no longer agrees with the table.
    std::vector<uint8_t> b = xbt::readFile(path("hbntx_byname.ntx"));
    const std::string name = "Ccname528";
    auto at = std::search(b.begin(), b.end(), name.begin(), name.end());
    ASSERT_NE(at, b.end());
    *at = 'X';
    xbt::writeFile(path("hbntx_byname.ntx"), b);
    std::string out = xb("check hbntx.dbf hbntx_byname.ntx", &st);
    EXPECT_EQ(st, 1);
    EXPECT_NE(out.find("record 1: the index holds 'Xcname528"), std::string::npos) << out;
    // Rebuilt, it agrees again.
    out = xb("reindex hbntx.dbf hbntx_byname.ntx", &st);
    EXPECT_EQ(st, 0) << out;
    EXPECT_EQ(xb("check hbntx.dbf hbntx_byname.ntx", &st).substr(0, 3), "OK:");
    // A damaged tree: reported, and a rebuild of a file that does not open
    // leaves it as it was.
    b = xbt::readFile(path("hbntx_byname.ntx"));
    b[14] = 0;  // key length 0
    xbt::writeFile(path("bad.ntx"), b);
    out = xb("check hbntx.dbf bad.ntx", &st);
    EXPECT_EQ(st, 1);
    EXPECT_NE(out.find("invalid key length"), std::string::npos) << out;
    xb("reindex hbntx.dbf bad.ntx", &st);
    EXPECT_EQ(st, 1);
    EXPECT_EQ(xbt::readFile(path("bad.ntx")), b);
    EXPECT_FALSE(xbt::fileExists(path("bad.ntx.xbtool-new")));
    // Pack: 21 of the 300 records are deleted; afterwards the old index names
    // records that are gone, and a rebuild fixes that.
    out = xb("pack hbntx.dbf", &st);
    EXPECT_EQ(st, 0) << out;
    EXPECT_NE(out.find("279 records, 21 deleted removed; hbntx.dbt packed"), std::string::npos) << out;
    out = xb("check hbntx.dbf hbntx_byhired.ntx", &st);
    EXPECT_EQ(st, 1);
    EXPECT_NE(out.find("not a record of the table"), std::string::npos) << out;
    xb("reindex hbntx.dbf hbntx_byhired.ntx", &st);
    EXPECT_EQ(xb("check hbntx.dbf hbntx_byhired.ntx", &st).substr(0, 12), "OK: hbntx_by");
    EXPECT_EQ(xb("dump hbntx.dbf --deleted", &st).find("\r\n*,"), std::string::npos);
}

// The other families: a Harbour CDX (every tag, or one named), IDX files
// of both layouts and an NDX file made by the library, checked, damaged and
// rebuilt.
TEST_F(XbTool, CompoundSingleAndNdxIndexes) {
    fixture("hbcdx.cdx");
    ASSERT_EQ(DBSetDefaultDateStyle(2), 0);
    int t = -1;
    ASSERT_EQ(DBOpenFile(&t, idx::cs(path("hbcdx.dbf").c_str()), 4), 0);
    for (int mode : {'C' | 0x400, int{'C'}}) {
        const std::string f = path(mode & 0x400 ? "compact.idx" : "plain.idx");
        ASSERT_EQ(DBfbCreateIndex(idx::cs(f.c_str()), mode, idx::cs("UPPER(CITY)+NAME"), 35, nullptr), 0);
        int h = -1;
        ASSERT_EQ(DBfbOpenIndex(&h, idx::cs(f.c_str()), 0), 0);
        ASSERT_EQ(DBfbBuildIndex(t, h), 0);
        ASSERT_EQ(DBfbCloseIndex(h), 0);
    }
    ASSERT_EQ(DBd3BuildIndex(t, idx::cs(path("amount.ndx").c_str()), 'N', idx::cs("AMOUNT"), 8, 2), 0);
    ASSERT_EQ(DBCloseFile(t), 0);
    int st = -1;
    std::string out = xb("info hbcdx.cdx", &st);
    EXPECT_NE(out.find("compound file, 6 tags"), std::string::npos) << out;
    EXPECT_NE(out.find("CDX tag UCITY, key CITY, length 15, unique"), std::string::npos) << out;
    EXPECT_NE(xb("info plain.idx", &st).find("IDX (non-compact), key UPPER(CITY)+NAME, length 35"), std::string::npos);
    EXPECT_NE(xb("info amount.ndx", &st).find("NDX, key AMOUNT, length 8, type N"), std::string::npos);
    for (const char *args : {"hbcdx.cdx", "hbcdx.cdx BYHIRED", "compact.idx", "plain.idx", "amount.ndx"}) {
        out = xb(std::string("check hbcdx.dbf ") + args, &st);
        EXPECT_EQ(st, 0) << args << ": " << out;
        EXPECT_EQ(out.substr(0, 3), "OK:") << out;
    }
    // Each file with one stored key changed: the check names the record,
    // and a rebuild mends it.
    for (const char *f : {"hbcdx.cdx", "compact.idx", "plain.idx"}) {
        std::vector<uint8_t> b = xbt::readFile(path(f));
        const std::string city = "Ymname592";  // in UPPER(CITY)+NAME keys (stored whole or in part)
        auto at = std::search(b.begin(), b.end(), city.begin() + 4, city.end());
        ASSERT_NE(at, b.end()) << f;
        *at = 'Q';
        xbt::writeFile(path(f), b);
        out = xb(std::string("check hbcdx.dbf ") + f, &st);
        EXPECT_EQ(st, 1) << f << ": " << out;
        out = xb(std::string("reindex hbcdx.dbf ") + f, &st);
        EXPECT_EQ(st, 0) << out;
        EXPECT_EQ(xb(std::string("check hbcdx.dbf ") + f, &st).substr(0, 3), "OK:") << f;
    }
    // A tag that does not exist, and an index of another table.
    EXPECT_NE(xb("check hbcdx.dbf hbcdx.cdx NOSUCH", &st).find("invalid tag name"), std::string::npos);
    EXPECT_EQ(st, 1);
    xb("check py_vfp.dbf amount.ndx", &st);
    EXPECT_EQ(st, 1);
}

}  // namespace
