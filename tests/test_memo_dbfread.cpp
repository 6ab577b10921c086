// test_memo_dbfread.cpp - memo files this library writes, read back by python3-dbfread.
#include "memo_util.h"
#include "tablea_util.h"

#include <algorithm>

namespace {
using MemoDbfread = xbt::LibTest;

// n bytes every layout holds: no NUL, 0x1A or 0x1F; high bytes and line ends.
std::string textOf(size_t n, int seed) {
    std::string s;
    for (size_t i = 0; i < n; i++) s.push_back(i % 61 == 60 ? '\n' : char((i * 7 + size_t(seed) * 13) % 200 + 32));
    return s;
}

TEST_F(MemoDbfread, WrittenRewrittenAndPackedFilesReadBack) {
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
