// test_memo_dbfread.cpp - memo files this library writes, in both DBT
// layouts and FPT, read back by an independent reader (python3-dbfread):
// new texts, texts rewritten in place, grown, moved, copied, and then the
// same files packed.
#include "xbtest.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

enum class Kind { DBT3, DBT4, FPT };

struct Scenario {
    const char *name;
    Kind kind;
    int style;  // table style: 0x83, 0x8B and 0xF5 tables
};

// A text of n bytes that every layout can hold: no NUL, no 0x1A (the dBASE
// III end mark), no 0x1F (where dbfread cuts dBASE IV texts); high bytes
// and line ends included.
std::string textOf(size_t n, int seed) {
    std::string s;
    for (size_t i = 0; i < n; i++) {
        int c = int((i * 7 + size_t(seed) * 13) % 200) + 32;
        if (i % 61 == 60) c = '\n';
        s.push_back(char(c));
    }
    return s;
}

std::string hexOf(const std::string &s) {
    static const char *d = "0123456789abcdef";
    std::string h;
    for (unsigned char c : s) {
        h.push_back(d[c >> 4]);
        h.push_back(d[c & 15]);
    }
    return h;
}

class MemoDbfread : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        int st = 0;
        xbt::run("/usr/bin/python3 -c 'import dbfread' 2>&1", &st);
        if (st != 0) GTEST_SKIP() << "python3-dbfread is not installed";
    }

    // Write (block 0: a new memo) or rewrite a memo; the block it ends at.
    int32_t put(const std::string &text, int32_t block, int binary = 0) {
        std::string t = text;
        if (sc.kind == Kind::FPT)
            EXPECT_EQ(DBfpPutMemoRecord(memo, &block, &t[0], int32_t(t.size()), 0, 256 | binary), 0);
        else
            EXPECT_EQ(DBxbPutMemoRecord(memo, &block, &t[0], 0), 0);
        return block;
    }
    void append(const std::string &text, int binary = 0) {
        int32_t block = text.empty() ? 0 : put(text, 0, binary);
        ASSERT_EQ(DBClearBuffer(dbf), 0);
        char name[] = "row";
        ASSERT_EQ(DBPutStrField(dbf, 0, name), 0);
        if (block != 0) ASSERT_EQ(DBPutFieldData(dbf, 1, &block), 0);
        int32_t rec = 0;
        ASSERT_EQ(DBPutRecord(dbf, &rec, DB_APPEND), 0);
        texts.push_back(text);
    }
    // Rewrite record rec's memo (fresh: write it as a new memo instead,
    // leaving the old one dead).
    void rewrite(int32_t rec, const std::string &text, bool fresh = false) {
        ASSERT_GE(DBGetRecord(dbf, rec), 0);
        int32_t block = 0;
        ASSERT_GE(DBGetFieldData(dbf, 1, &block), 0);
        block = put(text, fresh ? 0 : block);
        ASSERT_EQ(DBPutFieldData(dbf, 1, &block), 0);
        ASSERT_EQ(DBPutRecord(dbf, &rec, DB_REWRITE), 0);
        texts[size_t(rec - 1)] = text;
    }
    void openMemo() {
        if (sc.kind == Kind::FPT) ASSERT_EQ(DBfpOpenMemo(&memo, &memoPath[0], 0), 0);
        else ASSERT_EQ(DBxbOpenMemo(&memo, &memoPath[0], sc.kind == Kind::DBT4 ? 2 : 3), 0);
    }
    void closeAll() {
        ASSERT_EQ(DBCloseFile(dbf), 0);
        ASSERT_EQ(sc.kind == Kind::FPT ? DBfpCloseMemo(memo) : DBxbCloseMemo(memo), 0);
    }
    // dbfread's view of every record's memo against what was written.
    void expectDbfreadAgrees(const char *when) {
        std::string exp = path(std::string(sc.name) + ".expected");
        std::string lines;
        for (const auto &t : texts) lines += (t.empty() ? std::string("-") : hexOf(t)) + "\n";
        xbt::writeFile(exp, lines);
        int st = -1;
        std::string out = xbt::run("/usr/bin/python3 " XB_SOURCE_DIR "/tests/support/memo_dbfread.py '" + dbfPath +
                                       "' '" + exp + "' NOTES 2>&1",
                                   &st);
        EXPECT_EQ(st, 0) << sc.name << " " << when << ":\n" << out;
        EXPECT_EQ(out, "ok " + std::to_string(texts.size()) + "\n") << sc.name << " " << when;
    }

    Scenario sc{};
    std::string dbfPath, memoPath;
    int dbf = -1, memo = -1;
    std::vector<std::string> texts;
};

TEST_F(MemoDbfread, WrittenRewrittenAndPackedFilesReadBack) {
    const Scenario scenarios[] = {
        {"db3", Kind::DBT3, 1},
        {"db4", Kind::DBT4, 2},
        {"fox", Kind::FPT, 4},
    };
    for (const auto &s : scenarios) {
        sc = s;
        texts.clear();
        const bool fpt = s.kind == Kind::FPT;
        dbfPath = path(std::string(s.name) + ".dbf");
        memoPath = path(std::string(s.name) + (fpt ? ".fpt" : ".dbt"));
        DBFIELD fields[2] = {{"NAME", 'C', 10, 0}, {"NOTES", 'M', 10, 0}};
        ASSERT_EQ(DBCreateFile(&dbfPath[0], 2, fields, s.style), 0) << s.name;
        if (fpt) ASSERT_EQ(DBfpCreateMemo(&memoPath[0], 64), 0);
        else ASSERT_EQ(DBxbCreateMemo(&memoPath[0], 1, s.kind == Kind::DBT4 ? 2 : 3), 0);
        ASSERT_GE(DBOpenFile(&dbf, &dbfPath[0], s.style), 0);
        openMemo();

        // Sizes around the block edges of each layout, and several blocks.
        const size_t sizes[] = {5, 503, 504, 510, 511, 512, 1500, 0, 3000, 100, 700, 56, 57};
        int seed = 0;
        for (size_t n : sizes) append(textOf(n, seed++));
        if (fpt) append(std::string("\x01\x02\x00\xff binary", 12), 1);
        ASSERT_EQ(DBFlushFile(dbf), 0);
        expectDbfreadAgrees("as written");

        rewrite(1, textOf(2000, 50));        // grows: moves
        rewrite(7, textOf(10, 51));          // shrinks: in place (DBT IV frees its tail)
        rewrite(9, textOf(3000, 52));        // same size: in place
        rewrite(10, textOf(480, 53));        // grows within its blocks
        rewrite(3, textOf(300, 54), true);   // a copy: the old text is dead
        rewrite(2, textOf(900, 55));         // grows into freed space (DBT IV)
        rewrite(11, textOf(1200, 56));
        rewrite(5, textOf(40, 57));
        ASSERT_EQ(DBFlushFile(dbf), 0);
        expectDbfreadAgrees("rewritten");
        const long before = xbt::fileSize(memoPath);

        ASSERT_EQ(fpt ? DBfpPackMemo(dbf, &memo) : DBxbPackMemo(dbf, &memo), 0) << s.name;
        EXPECT_LT(xbt::fileSize(memoPath), before) << s.name;
        closeAll();
        expectDbfreadAgrees("packed");

    }
}

}  // namespace
