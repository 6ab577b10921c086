// A buffered shared table: changes made under a lock reach the file before
// the lock goes, so the next process to take it sees them.
#include "xbtest.h"

namespace {

using SharedTable = xbt::LibTest;

TEST_F(SharedTable, ReleasingALockWritesTheCachedChangesFirst) {
    std::string f = path("s.dbf");
    DBFIELD fld[] = {{"NAME", 'C', 8, 0}};
    ASSERT_EQ(DBCreateFile(f.data(), 1, fld, 1), 0);
    int h;
    ASSERT_EQ(DBOpenFile(&h, f.data(), 1 | DBO_SHARED), 0);
    auto countOnDisk = [&] {
        std::vector<uint8_t> b = xbt::readFile(f);
        return b[4] | b[5] << 8;
    };
    int32_t rec = 0;
    ASSERT_EQ(DBLockHeader(h), 0);
    for (const char *name : {"ONE", "TWO"}) {
        DBClearBuffer(h);
        ASSERT_EQ(DBPutStrField(h, 0, const_cast<char *>(name)), 0);
        ASSERT_EQ(DBPutRecord(h, &rec, DB_APPEND), 0);
    }
    EXPECT_EQ(countOnDisk(), 0);  // still in the cache
    ASSERT_EQ(DBUnLockHeader(h), 0);
    EXPECT_EQ(countOnDisk(), 2);
    EXPECT_EQ(xbt::fileSize(f), 32 + 33 + 2 * 9 + 1);

    // A rewrite under a record lock is on disk when the lock moves on.
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    ASSERT_EQ(DBGetRecord(h, 1), 0);
    ASSERT_EQ(DBPutStrField(h, 0, const_cast<char *>("UNO")), 0);
    rec = 1;
    ASSERT_EQ(DBPutRecord(h, &rec, DB_REWRITE), 0);
    ASSERT_EQ(DBLockRecord(h, 2), 0);
    std::vector<uint8_t> b = xbt::readFile(f);
    EXPECT_EQ(std::string(b.begin() + 65 + 1, b.begin() + 65 + 9), "UNO     ");
    DBCloseFile(h);
}

}  // namespace
