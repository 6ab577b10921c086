// test_table_dbfread.cpp - tables this library creates and writes (styles 0-9,
// every type, buffered and write-through) and memo files it writes, rewrites
// and packs, read back by python3-dbfread. (A packed table read back:
// test_table_pack.)
#include "memo_util.h"
#include "tablea_util.h"

#include <algorithm>
#include <cmath>

using tablea::fld;

namespace {

// Every type the style can create (style 0 keeps version byte 3 with memo
// fields, which no reader takes for a memo table).
std::vector<DBFIELD> fieldsFor(int style) {
    std::vector<DBFIELD> f = {fld("NAME", 'C', 12), fld("AMOUNT", 'N', 10, 2), fld("QTY", 'N', 5), fld("HIRED", 'D'),
                              fld("ACTIVE", 'L'), fld("BIN1", 1), fld("BIN3", 3), fld("BIN13", 13)};
    if (style != 0) f.push_back(fld("NOTES", 'M'));
    if (style == 2 || style == 4 || style == 8) f.push_back(fld("RATE", 'F', 12, 4));
    if (style == 6) f.push_back(fld("LONGTEXT", 'C', 300));
    return f;
}

using xbt::raw;

// Puts row i into the record buffer; returns what dbfread should print for
// each field (JSON, or "#" and the text of a number, compared as values).
std::vector<std::string> fill(int h, const std::vector<DBFIELD> &fields, int i) {
    std::vector<std::string> want;
    EXPECT_EQ(DBClearBuffer(h), 0);
    for (int f = 0; f < static_cast<int>(fields.size()); f++) {
        const DBFIELD &d = fields[static_cast<size_t>(f)];
        std::string in, json;
        char b[400];
        const int32_t block = i % 3 ? i * 8 + 1 : 0;
        switch (d.type) {
        case 'C':
            in = d.len > 12 ? std::string(290, static_cast<char>('a' + i % 26))
                 : i % 5    ? "row" + std::to_string(i) : i % 10 ? "" : "  leading and far too long";
            json = "\"" + tablea::trim(in.substr(0, static_cast<size_t>(d.len))) + "\"";
            break;
        case 'N': case 'F':  // every seventh AMOUNT blank: null
            std::snprintf(b, sizeof b, "%*.*f", d.len, d.decpl, d.len < 10 ? i * 3 - 20 : i * 12.34 - 50);
            in = i % 7 || d.decpl != 2 ? b : "";
            json = in.empty() ? "null" : "#" + in;
            break;
        case 'D':
            std::snprintf(b, sizeof b, "%04d%02d%02d", 1990 + i, 1 + i % 12, 1 + i % 28);
            in = i % 4 ? b : "";
            json = in.empty() ? "null" : "\"" + in + "\"";
            break;
        case 'L': in = std::string(1, "TF "[i % 3]), json = i % 3 == 2 ? "null" : i % 3 ? "false" : "true"; break;
        case 'M': in = raw(block), json = std::to_string(block); break;
        default:  // binary codes, shown as their bytes in hex
            in = d.type == 1 ? raw(static_cast<int16_t>(-100 * i)) : d.type == 3 ? raw(i * 99999) : raw(i / 4.0 - 1);
            json = "\"" + xbt::hex(in) + "\"";
        }
        const int cut = d.type == 'C' && in.size() > static_cast<size_t>(d.len) ? DBW_TRUNCATED : 0;
        in += '\0';
        EXPECT_EQ(d.type == 'C' ? DBPutStrField(h, f, in.data()) : DBPutFieldData(h, f, in.data()), cut) << d.name;
        want.push_back(json);
    }
    return want;
}

// dbfread's view must be what was written: version, count, each record's
// mark and values.
void compare(const std::string &p, int version, const std::vector<DBFIELD> &fields,
             const std::vector<std::vector<std::string>> &rows, const std::vector<bool> &del) {
    const auto lines = tablea::dbfread(p);
    char v[8];
    std::snprintf(v, sizeof v, "%02x", version);
    ASSERT_EQ(lines.size(), 2 + fields.size() + rows.size());
    EXPECT_EQ(lines[0][1] + " " + lines[0][2], v + (" " + std::to_string(rows.size())));
    for (size_t r = 0; r < rows.size(); r++) {
        const std::vector<std::string> &got = lines[1 + fields.size() + r];
        std::vector<std::string> want = {"record", std::to_string(r + 1), del[r] ? "1" : "0"};
        for (size_t f = 0; f < rows[r].size() && 3 + f < got.size(); f++) {
            const std::string &w = rows[r][f], &g = got[3 + f];
            const bool near = w[0] == '#' && g != "null" && std::fabs(std::stod(g) - std::stod(w.substr(1))) < 1e-9;
            want.push_back(near ? g : w);
        }
        EXPECT_EQ(got, want);
    }
}

class TableDbfread : public xbt::LibTest {};

TEST_F(TableDbfread, EveryStyleAndFieldType) {
    const uint8_t version[10] = {0x03, 0x83, 0x8B, 0x83, 0xF5, 0x83, 0x83, 0x83, 0xF5, 0x83};
    ASSERT_EQ(DBSetDefaultDateStyle(4), 0);
    for (int style = 0; style <= 9; style++) {
        for (int mode : {0, DBO_UNBUFFERED}) {
            SCOPED_TRACE("style " + std::to_string(style) + (mode ? " write-through" : " buffered"));
            const std::string p = path("s" + std::to_string(style) + ".dbf");
            std::vector<DBFIELD> fields = fieldsFor(style);
            std::vector<std::vector<std::string>> rows;
            std::vector<bool> del;
            int h = 0;
            int32_t k = 0;
            ASSERT_EQ(tablea::create(p, fields, style), 0);
            ASSERT_EQ(tablea::open(&h, p, style | mode), 0);
            auto append = [&](int i) {
                rows.push_back(fill(h, fields, i)), del.push_back(false);
                ASSERT_EQ(DBPutRecord(h, &k, DB_APPEND), 0);
                EXPECT_EQ(k, i);
            };
            for (int i = 1; i <= 40; i++) append(i);  // several cache blocks
            for (int r : {2, 33, 40}) {
                ASSERT_EQ(DBGetRecord(h, r), 0);
                rows[static_cast<size_t>(r - 1)] = fill(h, fields, r + 100), k = r;
                ASSERT_EQ(DBPutRecord(h, &k, DB_REWRITE), 0);
            }
            for (int r : {3, 5, 39}) ASSERT_EQ(DBMarkRecordInActive(h, r), 0);
            ASSERT_EQ(DBMarkRecordActive(h, 5), 0);
            del[2] = del[38] = true;
            for (int i = 41; i <= 45; i++) append(i);
            ASSERT_EQ(DBCloseFile(h), 0);
            compare(p, version[style], fields, rows, del);
        }
    }
}

// n bytes every layout holds: no NUL, 0x1A or 0x1F; high bytes and line ends.
std::string textOf(size_t n, int seed) {
    std::string s;
    for (size_t i = 0; i < n; i++) s.push_back(i % 61 == 60 ? '\n' : char((i * 7 + size_t(seed) * 13) % 200 + 32));
    return s;
}

TEST_F(TableDbfread, WrittenRewrittenAndPackedFilesReadBack) {
    struct { const char *name; bool fpt; int version, style; } scenarios[] = {
        {"db3", false, 3, 1}, {"db4", false, 2, 2}, {"fox", true, 0, 4}};  // 0x83, 0x8B and 0xF5 tables
    for (const auto &s : scenarios) {
        SCOPED_TRACE(s.name);
        std::vector<std::string> texts;
        std::string dbfPath = path(std::string(s.name) + ".dbf");
        const std::string memoPath = path(std::string(s.name) + (s.fpt ? ".fpt" : ".dbt"));
        auto m = mt::made(s.fpt, memoPath, s.fpt ? 64 : 1, s.version, s.version);
        DBFIELD fields[2] = {{"NAME", 'C', 10, 0}, {"NOTES", 'M', 10, 0}};
        ASSERT_EQ(DBCreateFile(&dbfPath[0], 2, fields, s.style), 0);
        int dbf = -1;
        ASSERT_GE(DBOpenFile(&dbf, &dbfPath[0], s.style), 0);
        // Record rec (0: a new one) gets t over its old memo (FPT with the reuse
        // option) or, fresh, as a new memo.
        auto store = [&](int32_t rec, const std::string &t, bool fresh = false, int binary = 0) {
            int32_t blk = 0;
            ASSERT_GE(rec != 0 ? DBGetRecord(dbf, rec) : DBClearBuffer(dbf), 0);
            if (rec != 0) ASSERT_GE(DBGetFieldData(dbf, 1, &blk), 0);
            if (!t.empty()) blk = m.put(t, fresh ? 0 : blk, s.fpt ? 256 | binary : 0);
            if (blk != 0) ASSERT_EQ(DBPutFieldData(dbf, 1, &blk), 0);
            ASSERT_EQ(DBPutRecord(dbf, &rec, rec != 0 ? DB_REWRITE : DB_APPEND), 0);
            texts.resize(std::max(texts.size(), size_t(rec)));
            texts[size_t(rec) - 1] = t;
        };
        // dbfread's view of every record's memo against what was written.
        auto agrees = [&](const char *when) {
            std::vector<std::string> want, got;
            for (size_t i = 0; i < texts.size(); i++)
                want.push_back("memo " + std::to_string(i + 1) + " " + (texts[i].empty() ? "-" : xbt::hex(texts[i])));
            for (const auto &l : tablea::dbfread(dbfPath, "NOTES"))
                if (l[0] == "memo") got.push_back(l[0] + " " + l[1] + " " + l[2]);
            EXPECT_EQ(got, want) << when;
        };
        // Sizes around the block edges of each layout, and several blocks.
        int seed = 0;
        for (size_t n : {5, 503, 504, 510, 511, 512, 1500, 0, 3000, 100, 700, 56, 57}) store(0, textOf(n, seed++));
        if (s.fpt) store(0, std::string("\x01\x02\x00\xff binary", 12), false, 1);
        ASSERT_EQ(DBFlushFile(dbf), 0);
        agrees("as written");
        // Grows and moves, shrinks in place (DBT IV frees its tail), same size, grows
        // within its blocks, a copy (the old text dead), grows into freed space.
        struct { int32_t rec; size_t n; bool fresh; } rewrites[] = {
            {1, 2000, false}, {7, 10, false}, {9, 3000, false}, {10, 480, false},
            {3, 300, true},   {2, 900, false}, {11, 1200, false}, {5, 40, false}};
        for (auto r : rewrites) store(r.rec, textOf(r.n, seed++), r.fresh);
        ASSERT_EQ(DBFlushFile(dbf), 0);
        agrees("rewritten");
        const long before = xbt::fileSize(m.file);
        ASSERT_EQ(m.pack(dbf), 0);
        EXPECT_LT(xbt::fileSize(m.file), before);
        ASSERT_EQ(DBCloseFile(dbf), 0);
        agrees("packed");
    }
}

}  // namespace
