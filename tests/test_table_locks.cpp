// test_table_locks.cpp - locks between processes on tables: the byte range
// of every lock kind in every style group and switch, checked both from the
// address table and from a second process's F_GETLK view; the lock bits and
// counts; refusals and retries; and the sharing scenarios the locks exist
// for (two appenders, a reader seeing another's appends, unlocked writes).
#include "xbtest.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "dbf.h"
#include "os.h"

namespace {

using xbt::LibTest;

// ---------------------------------------------------------------------------
// The address table, on hand-built table packets
// ---------------------------------------------------------------------------

struct RangeCase {
    int style;       // packet v (memo bit included where it matters)
    int mdx;         // header byte 28
    int samba;       // DBsamba
    int xharbour;    // DBxHarbour
    int hlen, rlen;  // header and record length
    int kind;
    uint32_t recno;
    uint32_t start, len;
};

constexpr uint32_t G = 1000000000u;

// Expected values are worked out by hand from the dialects' conventions.
const RangeCase kRanges[] = {
    // Plain byte ranges: styles 0, 1, 7, 9, 10 and up.
    {1, 0, 0, 0, 97, 50, DBLK_RECORD, 5, 297, 50},  // bytes 297..346
    {1, 0, 0, 0, 97, 50, DBLK_RECORD, 1, 97, 50},
    {0, 0, 0, 0, 65, 10, DBLK_RECORD, 3, 85, 10},
    {7, 1, 1, 1, 97, 50, DBLK_RECORD, 5, 297, 50},   // switches do not touch group O
    {9, 0, 0, 0, 129, 20, DBLK_RECORD, 2, 149, 20},
    {10, 0, 0, 0, 360, 60, DBLK_RECORD, 4, 540, 60},
    {0x81, 0, 0, 0, 97, 50, DBLK_RECORD, 5, 297, 50}, // memo bit ignored
    // Offsets past 4 GiB wrap: 97 + 1999999 * 4000 = 7999996097 = 2^32 + 3705028801.
    {1, 0, 0, 0, 97, 4000, DBLK_RECORD, 2000000, 3705028801u, 4000},
    {1, 0, 0, 0, 97, 50, DBLK_HEADER, 0, 4, 4},
    {1, 0, 0, 0, 97, 50, DBLK_APPEND, 0, 4, 4},
    {1, 0, 1, 1, 97, 50, DBLK_FILE, 0, 0, 0x7FFFFFFF},
    {12, 0, 0, 0, 97, 50, DBLK_FILE, 0, 0, 0x7FFFFFFF},
    // dBASE IV (style 2).
    {2, 0, 0, 0, 97, 50, DBLK_RECORD, 5, 0xEFFFFFF9u, 1},
    {2, 1, 1, 1, 97, 50, DBLK_RECORD, 1, 0xEFFFFFFDu, 1},
    {0x82, 0, 0, 0, 97, 50, DBLK_RECORD, 0x10000000, 0xFFFFFFFEu, 1},
    {2, 0, 0, 0, 97, 50, DBLK_HEADER, 0, 0xEFFFFFFEu, 1},
    {2, 0, 0, 0, 97, 50, DBLK_APPEND, 0, 0xEFFFFFFEu, 1},
    {2, 0, 1, 1, 97, 50, DBLK_FILE, 0, 0x40000000u, 2},
    // Clipper offsets (styles 5, 6).
    {5, 0, 0, 0, 97, 50, DBLK_RECORD, 5, G + 5, 1},
    {6, 1, 1, 1, 97, 50, DBLK_RECORD, 77, G + 77, 1},
    {5, 0, 0, 0, 97, 50, DBLK_HEADER, 0, G, 1},
    {5, 0, 0, 1, 97, 50, DBLK_HEADER, 0, G + 1, G},
    {5, 0, 0, 0, 97, 50, DBLK_APPEND, 0, G, 1},
    {6, 0, 0, 1, 97, 50, DBLK_APPEND, 0, G, 1},
    {5, 0, 0, 0, 97, 50, DBLK_FILE, 0, G, G},
    {5, 0, 1, 0, 97, 50, DBLK_FILE, 0, G, G},
    {6, 0, 0, 1, 97, 50, DBLK_FILE, 0, 0x7FFFFFFFu, 1},
    // FoxPro (styles 3, 4, 8).
    {4, 1, 0, 0, 97, 50, DBLK_RECORD, 5, 0x7FFFFFF9u, 1},
    {4, 0, 0, 0, 97, 50, DBLK_RECORD, 5, 0x40000129u, 1},
    {3, 0, 1, 0, 97, 50, DBLK_RECORD, 1, 0x40000061u, 1},
    {0x88, 1, 0, 0, 97, 50, DBLK_RECORD, 1, 0x7FFFFFFDu, 1},
    // xHarbour: the record length, not the record number.
    {4, 1, 0, 1, 97, 50, DBLK_RECORD, 5, G + 50, 1},
    {8, 0, 0, 1, 97, 73, DBLK_RECORD, 9999, G + 73, 1},
    // The two top bits of the record number move down two places:
    // 0x40000001 -> 0x10000001, 0x80000000 -> 0x20000000.
    {4, 1, 0, 0, 97, 50, DBLK_RECORD, 0x40000001u, 0x6FFFFFFDu, 1},
    {4, 1, 0, 0, 97, 50, DBLK_RECORD, 0x80000000u, 0x5FFFFFFEu, 1},
    {4, 0, 0, 0, 33, 1, DBLK_RECORD, 0xC0000000u, 0x70000020u, 1},
    {4, 0, 0, 0, 97, 50, DBLK_HEADER, 0, 0x40000000u, 1},
    {4, 1, 0, 0, 97, 50, DBLK_HEADER, 0, 0x7FFFFFFEu, 1},
    {8, 0, 1, 1, 97, 50, DBLK_APPEND, 0, 0x40000000u, 1},
    {3, 1, 0, 0, 97, 50, DBLK_APPEND, 0, 0x7FFFFFFEu, 1},
    {4, 0, 0, 0, 97, 50, DBLK_FILE, 0, 0x3FFFFFFEu, 1},
    {4, 0, 1, 0, 97, 50, DBLK_FILE, 0, 0x3FFFFFFFu, 1},
    {4, 0, 0, 1, 97, 50, DBLK_FILE, 0, 0x7FFFFFFFu, 1},
    {8, 1, 1, 1, 97, 50, DBLK_FILE, 0, 0x3FFFFFFFu, 1},  // Samba wins over xHarbour
};

class LockRangeTest : public LibTest {
protected:
    void TearDown() override {
        DBsamba = 0;
        DBxHarbour = 0;
        DBxbd = nullptr;
        LibTest::TearDown();
    }
};

TEST_F(LockRangeTest, EveryKindStyleAndSwitch) {
    for (const RangeCase &c : kRanges) {
        DBDATAPKT d{};
        d.v = static_cast<unsigned char>(c.style);
        d.h.mdx = static_cast<uint8_t>(c.mdx);
        d.h.h = static_cast<uint16_t>(c.hlen);
        d.h.r = static_cast<uint16_t>(c.rlen);
        DBsamba = c.samba;
        DBxHarbour = c.xharbour;
        DBxbd = &d;
        uint32_t start = 1, len = 1;
        _DBLockRange(c.kind, static_cast<int32_t>(c.recno), &start, &len);
        EXPECT_EQ(start, c.start) << "style " << c.style << " mdx " << c.mdx << " samba " << c.samba
                                  << " xharbour " << c.xharbour << " kind " << c.kind << " recno " << c.recno;
        EXPECT_EQ(len, c.len) << "style " << c.style << " kind " << c.kind << " recno " << c.recno;
    }
}


// ---------------------------------------------------------------------------
// Tables on disk, written byte by byte here so that the header and record
// lengths are exactly the ones the expected addresses assume
// ---------------------------------------------------------------------------

struct Fld {
    const char *name;
    char type;
    int len;
    int dec;
};

// NAME C(40), QTY N(9,0): header 97 bytes, record 50 bytes.
const std::vector<Fld> kFields = {{"NAME", 'C', 40, 0}, {"QTY", 'N', 9, 0}};

std::string record(const std::string &name, long qty, char mark = ' ') {
    char q[16];
    std::snprintf(q, sizeof q, "%9ld", qty);
    std::string r(1, mark);
    r += name;
    r.resize(41, ' ');
    r += q;
    return r;
}

std::vector<uint8_t> makeDbf(const std::vector<Fld> &fields, const std::vector<std::string> &recs,
                             uint8_t version = 0x03, uint8_t mdx = 0) {
    const int hl = 32 + 32 * static_cast<int>(fields.size()) + 1;
    int rl = 1;
    for (const Fld &f : fields) rl += f.len;
    std::vector<uint8_t> b(static_cast<size_t>(hl), 0);
    b[0] = version;
    b[1] = 26;
    b[2] = 1;
    b[3] = 15;
    const uint32_t n = static_cast<uint32_t>(recs.size());
    for (int i = 0; i < 4; i++) b[4 + i] = static_cast<uint8_t>(n >> (8 * i));
    b[8] = static_cast<uint8_t>(hl);
    b[9] = static_cast<uint8_t>(hl >> 8);
    b[10] = static_cast<uint8_t>(rl);
    b[11] = static_cast<uint8_t>(rl >> 8);
    b[28] = mdx;
    for (size_t i = 0; i < fields.size(); i++) {
        uint8_t *d = &b[32 + 32 * i];
        std::memcpy(d, fields[i].name, std::strlen(fields[i].name));
        d[11] = static_cast<uint8_t>(fields[i].type);
        d[16] = static_cast<uint8_t>(fields[i].len);
        d[17] = static_cast<uint8_t>(fields[i].dec);
    }
    b[static_cast<size_t>(hl) - 1] = 0x0D;
    for (const std::string &r : recs) {
        EXPECT_EQ(static_cast<int>(r.size()), rl);
        b.insert(b.end(), r.begin(), r.end());
    }
    b.push_back(0x1A);
    return b;
}

std::vector<std::string> threeRecords() {
    return {record("ADAMS", 1), record("BAKER", 2), record("CLARK", 3)};
}

// One row of the lock-address matrix as another process sees it.
struct Expect {
    uint32_t start, len;
};
struct GroupCase {
    const char *what;
    int style;
    uint8_t mdx;
    bool samba, xharbour;
    Expect rec2, header, append, file;
};

const GroupCase kGroups[] = {
    {"plain style 1", 1, 0, false, false, {147, 50}, {4, 4}, {4, 4}, {0, 0x7FFFFFFF}},
    {"style 7, both switches", 7, 0, true, true, {147, 50}, {4, 4}, {4, 4}, {0, 0x7FFFFFFF}},
    {"style 9", 9, 0, false, false, {147, 50}, {4, 4}, {4, 4}, {0, 0x7FFFFFFF}},
    {"dBASE IV style 2", 2, 1, false, false, {0xEFFFFFFC, 1}, {0xEFFFFFFE, 1}, {0xEFFFFFFE, 1}, {0x40000000, 2}},
    {"dBASE IV, xHarbour", 2, 0, false, true, {0xEFFFFFFC, 1}, {0xEFFFFFFE, 1}, {0xEFFFFFFE, 1}, {0x40000000, 2}},
    {"Clipper style 5", 5, 0, false, false, {G + 2, 1}, {G, 1}, {G, 1}, {G, G}},
    {"Clipper style 6, xHarbour", 6, 0, false, true, {G + 2, 1}, {G + 1, G}, {G, 1}, {0x7FFFFFFF, 1}},
    {"Clipper style 5, Samba", 5, 0, true, false, {G + 2, 1}, {G, 1}, {G, 1}, {G, G}},
    {"FoxPro style 4", 4, 0, false, false, {0x40000093, 1}, {0x40000000, 1}, {0x40000000, 1}, {0x3FFFFFFE, 1}},
    {"FoxPro style 4, mdx", 4, 1, false, false, {0x7FFFFFFC, 1}, {0x7FFFFFFE, 1}, {0x7FFFFFFE, 1}, {0x3FFFFFFE, 1}},
    {"FoxPro style 3, Samba", 3, 0, true, false, {0x40000093, 1}, {0x40000000, 1}, {0x40000000, 1}, {0x3FFFFFFF, 1}},
    {"FoxPro style 8, xHarbour", 8, 0, false, true, {G + 50, 1}, {0x40000000, 1}, {0x40000000, 1}, {0x7FFFFFFF, 1}},
    {"FoxPro style 8, mdx, both", 8, 1, true, true, {G + 50, 1}, {0x7FFFFFFE, 1}, {0x7FFFFFFE, 1}, {0x3FFFFFFF, 1}},
};

class TableLockTest : public LibTest {
protected:
    void TearDown() override {
        _DBsys = saved_;
        unsetenv("DB_SAMBA");
        unsetenv("DB_XHARBOUR");
        LibTest::TearDown();
    }
    // Restart the library with the switches set in the environment, the
    // only way a program sets them.
    void restart(bool samba, bool xharbour) {
        DBTerminate();
        if (samba) setenv("DB_SAMBA", "YES", 1); else unsetenv("DB_SAMBA");
        if (xharbour) setenv("DB_XHARBOUR", "yes", 1); else unsetenv("DB_XHARBOUR");
        ASSERT_EQ(DBInitialize(64, 1), 0);
        ASSERT_EQ(getDBsamba(), samba ? 1 : 0);
        ASSERT_EQ(getDBxHarbour(), xharbour ? 1 : 0);
    }
    std::string table(const std::string &name, uint8_t mdx = 0, std::vector<std::string> recs = threeRecords()) {
        const std::string p = path(name);
        xbt::writeFile(p, makeDbf(kFields, recs, 0x03, mdx));
        return p;
    }
    int open(const std::string &p, int mode) {
        int h = -1;
        EXPECT_EQ(DBOpenFile(&h, const_cast<char *>(p.c_str()), mode), 0) << p << " mode " << mode;
        return h;
    }
    DBFILEINFO info(int h) {
        DBFILEINFO fi{};
        EXPECT_EQ(DBGetFileInfo(h, &fi), 0);
        return fi;
    }
    int locksUsed() {
        int used = -1, max = -1;
        DBGetLockCount(&used, &max);
        return used;
    }
    DBSYSCALLS saved_ = _DBsys;
};

// The exact range, and nothing on either side of it.
void expectExactly(const std::string &p, Expect e, const std::string &what) {
    const xbt::LockSeen in = xbt::probeLock(p, e.start, e.len);
    EXPECT_TRUE(in.blocked) << what;
    EXPECT_EQ(in.start, static_cast<int64_t>(e.start)) << what;
    EXPECT_EQ(in.len, static_cast<int64_t>(e.len)) << what;
    if (e.start > 0) EXPECT_FALSE(xbt::probeLock(p, e.start - 1, 1).blocked) << what << ": byte before";
    EXPECT_FALSE(xbt::probeLock(p, e.start + e.len, 1).blocked) << what << ": byte after";
}

void expectFree(const std::string &p, Expect e, const std::string &what) {
    EXPECT_FALSE(xbt::probeLock(p, e.start, e.len).blocked) << what;
}

TEST_F(TableLockTest, EveryKindInEveryGroupIsTheExactRangeSeenByAnotherProcess) {
    for (const GroupCase &c : kGroups) {
        SCOPED_TRACE(c.what);
        restart(c.samba, c.xharbour);
        const std::string p = table("g.dbf", c.mdx);
        const int h = open(p, c.style | DBO_SHARED);
        ASSERT_GE(h, 3);

        ASSERT_EQ(DBLockRecord(h, 2), 0);
        expectExactly(p, c.rec2, "record 2");
        EXPECT_EQ(DBIsRecordLocked(h, 2), 1);
        DBFILELOCKS li[2] = {};
        int n = 0;
        ASSERT_EQ(DBGetLockInfo(h, li, 2, &n), 0);
        ASSERT_EQ(n, 1);
        EXPECT_EQ(li[0].type, DBLK_RECORD);
        // xHarbour's FoxPro scheme locks one byte for every record.
        EXPECT_EQ(li[0].record, (c.xharbour && (c.style == 4 || c.style == 8 || c.style == 3)) ? 0 : 2);
        ASSERT_EQ(DBUnLockRecord(h, 2), 0);
        expectFree(p, c.rec2, "record 2 released");

        ASSERT_EQ(DBLockHeader(h), 0);
        expectExactly(p, c.header, "header");
        ASSERT_EQ(DBUnLockHeader(h), 0);
        expectFree(p, c.header, "header released");

        ASSERT_EQ(DBLockAppend(h), 0);
        expectExactly(p, c.append, "append");
        ASSERT_EQ(DBUnLockAll(h), 0);
        expectFree(p, c.append, "append released");

        ASSERT_EQ(DBLockFile(h), 0);
        expectExactly(p, c.file, "file");
        EXPECT_EQ(info(h).lockt, 4);
        ASSERT_EQ(DBUnLockAll(h), 0);
        expectFree(p, c.file, "file released");
        EXPECT_EQ(locksUsed(), 0);
        ASSERT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableLockTest, BitsAndCountsFollowWhatIsHeld) {
    const std::string p = table("bits.dbf");
    const Expect rec1{97, 50}, rec2{147, 50}, hdr{4, 4};

    // One record lock at a time by default: the second releases the first.
    int h = open(p, 1 | DBO_SHARED);
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    ASSERT_EQ(DBLockRecord(h, 2), 0);
    expectFree(p, rec1, "record 1 after locking record 2");
    expectExactly(p, rec2, "record 2");
    EXPECT_EQ(info(h).lockt, 1);
    EXPECT_EQ(info(h).numlcks, 1);
    // Locking it again changes nothing.
    ASSERT_EQ(DBLockRecord(h, 2), 0);
    EXPECT_EQ(info(h).numlcks, 1);
    EXPECT_EQ(locksUsed(), 1);
    // A header lock without multiple locks also replaces the record lock?
    // No: only DBLockRecord releases; the header lock adds to it.
    ASSERT_EQ(DBLockHeader(h), 0);
    EXPECT_EQ(info(h).lockt, 3);
    EXPECT_EQ(info(h).numlcks, 2);
    // The file lock releases everything and stands alone.
    ASSERT_EQ(DBLockFile(h), 0);
    EXPECT_EQ(info(h).lockt, 4);
    EXPECT_EQ(info(h).numlcks, 1);
    EXPECT_EQ(locksUsed(), 1);
    expectExactly(p, {0, 0x7FFFFFFF}, "file lock");
    // Nothing else is taken while it is held.
    ASSERT_EQ(DBLockHeader(h), 0);
    ASSERT_EQ(DBLockAppend(h), 0);
    ASSERT_EQ(DBLockFile(h), 0);
    EXPECT_EQ(info(h).lockt, 4);
    EXPECT_EQ(info(h).numlcks, 1);
    EXPECT_EQ(locksUsed(), 1);
    // ... except that a record lock without multiple locks first releases
    // whatever the table holds, the file lock included.
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    EXPECT_EQ(info(h).lockt, 1);
    EXPECT_EQ(info(h).numlcks, 1);
    expectExactly(p, rec1, "record 1 after the file lock");
    ASSERT_EQ(DBCloseFile(h), 0);
    // Closing released it.
    expectFree(p, rec1, "record 1 after close");
    EXPECT_EQ(locksUsed(), 0);

    // Several record locks at once.
    h = open(p, 1 | DBO_SHARED | DBO_MULTILOCK);
    // (Records 1 and 3: the kernel would show adjacent ranges merged.)
    const Expect rec3{197, 50};
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    ASSERT_EQ(DBLockRecord(h, 3), 0);
    expectExactly(p, rec1, "record 1 with multiple locks");
    expectExactly(p, rec3, "record 3 with multiple locks");
    EXPECT_EQ(info(h).numlcks, 2);
    EXPECT_EQ(DBIsRecordLocked(h, 1), 1);
    EXPECT_EQ(DBIsRecordLocked(h, 2), 0);
    ASSERT_EQ(DBUnLockRecord(h, 1), 0);
    EXPECT_EQ(info(h).lockt, 1);  // record 3 is still held
    EXPECT_EQ(info(h).numlcks, 1);
    expectFree(p, rec1, "record 1 released");
    // Unlocking a record not held does nothing.
    ASSERT_EQ(DBUnLockRecord(h, 2), 0);
    EXPECT_EQ(info(h).numlcks, 1);
    // Header plus record: releasing the record leaves the header alone and
    // the record bit clear.
    ASSERT_EQ(DBLockHeader(h), 0);
    EXPECT_EQ(info(h).lockt, 3);
    ASSERT_EQ(DBUnLockRecord(h, 3), 0);
    EXPECT_EQ(info(h).lockt, 2);
    EXPECT_EQ(info(h).numlcks, 1);
    expectExactly(p, hdr, "header after the record went");
    ASSERT_EQ(DBUnLockHeader(h), 0);
    EXPECT_EQ(info(h).lockt, 0);
    EXPECT_EQ(info(h).numlcks, 0);
    EXPECT_EQ(locksUsed(), 0);

    // The append lock does not test its own bit: two are counted.
    ASSERT_EQ(DBLockAppend(h), 0);
    ASSERT_EQ(DBLockAppend(h), 0);
    EXPECT_EQ(info(h).lockt, 8);
    EXPECT_EQ(info(h).numlcks, 2);
    ASSERT_EQ(DBUnLockAll(h), 0);
    expectFree(p, hdr, "append locks released");

    // Header and append lock are the same bytes here: giving back the
    // header keeps the append lock in force.
    ASSERT_EQ(DBLockAppend(h), 0);
    ASSERT_EQ(DBLockHeader(h), 0);
    EXPECT_EQ(info(h).lockt, 10);
    ASSERT_EQ(DBUnLockHeader(h), 0);
    EXPECT_EQ(info(h).lockt, 8);
    EXPECT_EQ(info(h).numlcks, 1);
    expectExactly(p, hdr, "append lock after the header lock went");
    ASSERT_EQ(DBUnLockAll(h), 0);
    EXPECT_EQ(info(h).lockt, 0);
    EXPECT_EQ(info(h).numlcks, 0);
    expectFree(p, hdr, "all released");
    ASSERT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableLockTest, LockInfoListsLocksInTheOrderTaken) {
    const std::string p = table("info.dbf");
    const int h = open(p, 1 | DBO_SHARED | DBO_MULTILOCK);
    ASSERT_EQ(DBLockRecord(h, 3), 0);
    ASSERT_EQ(DBLockHeader(h), 0);
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    ASSERT_EQ(DBLockAppend(h), 0);  // held header: not taken
    DBFILELOCKS li[4];
    std::memset(li, 0x55, sizeof li);
    int n = 0;
    ASSERT_EQ(DBGetLockInfo(h, li, 4, &n), 0);
    ASSERT_EQ(n, 3);
    const DBFILELOCKS want[3] = {{DBLK_RECORD, 3}, {DBLK_HEADER, 0}, {DBLK_RECORD, 1}};
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(li[i].type, want[i].type) << i;
        EXPECT_EQ(li[i].record, want[i].record) << i;
    }
    // A short list gets the first entries and the full count; nothing past it
    // is written.
    std::memset(li, 0x55, sizeof li);
    ASSERT_EQ(DBGetLockInfo(h, li, 1, &n), 0);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(li[0].record, 3);
    EXPECT_EQ(li[1].type, 0x55555555);
    ASSERT_EQ(DBGetLockInfo(h, nullptr, 0, &n), 0);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(DBGetLockInfo(h, li, 4, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBGetLockInfo(h, nullptr, 2, &n), DBE_NULLPARAM);
    // Append and file locks by name.
    ASSERT_EQ(DBUnLockAll(h), 0);
    ASSERT_EQ(DBLockAppend(h), 0);
    ASSERT_EQ(DBGetLockInfo(h, li, 4, &n), 0);
    ASSERT_EQ(n, 1);
    EXPECT_EQ(li[0].type, DBLK_APPEND);
    ASSERT_EQ(DBLockFile(h), 0);
    ASSERT_EQ(DBGetLockInfo(h, li, 4, &n), 0);
    ASSERT_EQ(n, 1);
    EXPECT_EQ(li[0].type, DBLK_FILE);
    // A second table's locks are its own.
    const std::string p2 = table("other.dbf");
    const int h2 = open(p2, 1 | DBO_SHARED);
    ASSERT_EQ(DBLockRecord(h2, 2), 0);
    ASSERT_EQ(DBGetLockInfo(h2, li, 4, &n), 0);
    ASSERT_EQ(n, 1);
    EXPECT_EQ(li[0].record, 2);
    ASSERT_EQ(DBGetLockInfo(h, li, 4, &n), 0);
    EXPECT_EQ(n, 1);
    EXPECT_EQ(li[0].type, DBLK_FILE);
    DBCloseFile(h2);
    DBCloseFile(h);
}

TEST_F(TableLockTest, RecordCallsDoNothingOnATableNotShared) {
    const std::string p = table("excl.dbf");
    const int h = open(p, 1);
    EXPECT_EQ(DBLockRecord(h, 2), 0);
    EXPECT_EQ(DBReadLockRecord(h, 2), 0);
    expectFree(p, {147, 50}, "record 2 of an exclusive table");
    EXPECT_EQ(info(h).lockt, 0);
    EXPECT_EQ(DBIsRecordLocked(h, 2), 0);
    EXPECT_EQ(DBUnLockRecord(h, 2), 0);
    // The table-wide locks work on any table.
    ASSERT_EQ(DBLockFile(h), 0);
    expectExactly(p, {0, 0x7FFFFFFF}, "file lock of an exclusive table");
    ASSERT_EQ(DBUnLockAll(h), 0);
    expectFree(p, {0, 0x7FFFFFFF}, "released");
    DBCloseFile(h);
}

TEST_F(TableLockTest, BadArgumentsGiveStatusesAndTakeNothing) {
    const std::string p = table("bad.dbf");
    const int h = open(p, 1 | DBO_SHARED);
    const struct {
        const char *what;
        int got, want;
    } cases[] = {
        {"record 0", DBLockRecord(h, 0), DBE_SEEK},
        {"record -1", DBLockRecord(h, -1), DBE_SEEK},
        {"read lock record 0", DBReadLockRecord(h, 0), DBE_SEEK},
        {"handle 2", DBLockFile(2), DBE_BADHANDLE},
        {"handle 63", DBLockHeader(63), DBE_BADHANDLE},
        {"handle -1", DBLockAppend(-1), DBE_BADHANDLE},
        {"handle 9999", DBLockRecord(9999, 1), DBE_BADHANDLE},
        {"unlock bad handle", DBUnLockAll(1000), DBE_BADHANDLE},
        {"unlock header bad handle", DBUnLockHeader(-5), DBE_BADHANDLE},
        {"unlock record bad handle", DBUnLockRecord(70, 1), DBE_BADHANDLE},
        {"test bad handle", DBIsRecordLocked(70, 1), DBE_BADHANDLE},
        {"read lock bad handle", DBReadLockFile(70), DBE_BADHANDLE},
        {"read header bad handle", DBReadLockHeader(70), DBE_BADHANDLE},
        {"info bad handle", DBGetLockInfo(70, nullptr, 0, nullptr), DBE_BADHANDLE},
    };
    for (const auto &c : cases) EXPECT_EQ(c.got, c.want) << c.what;
    EXPECT_EQ(info(h).lockt, 0);
    EXPECT_EQ(locksUsed(), 0);
    // Records past the count may be locked: another process may have
    // appended them since this one last read the header.
    EXPECT_EQ(DBLockRecord(h, 10), 0);
    expectExactly(p, {97 + 9 * 50, 50}, "record 10");
    DBCloseFile(h);
}

TEST_F(TableLockTest, AFullLockTableRefusesBeforeTheSystemIsAsked) {
    const std::string p = table("full.dbf");
    const int h = open(p, 1 | DBO_SHARED | DBO_MULTILOCK);
    ASSERT_EQ(DBSetLockCount(1), 0);
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    EXPECT_EQ(DBLockRecord(h, 2), DBE_LOCKOVERFLOW);
    EXPECT_EQ(DBLockHeader(h), DBE_LOCKOVERFLOW);
    EXPECT_EQ(info(h).lockt, 1);
    EXPECT_EQ(info(h).numlcks, 1);
    expectFree(p, {147, 50}, "record 2 not taken");
    expectFree(p, {4, 4}, "header not taken");
    DBCloseFile(h);
}

// Count lock attempts and retry sleeps without sleeping.
int gAttempts = 0;
int gSleeps = 0;
int countingSetlk(int fd, struct flock *fl) {
    gAttempts++;
    return fcntl(fd, F_SETLK, fl);
}
unsigned countingSleep(unsigned) {
    gSleeps++;
    return 0;
}

TEST_F(TableLockTest, ALockHeldByAnotherProcessIsRefusedAfterTheRetries) {
    const std::string p = table("held.dbf");
    const int h = open(p, 1 | DBO_SHARED | DBO_MULTILOCK);
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    const int refused = static_cast<int>(EAGAIN | 0xC0000000u);  // F_SETLK's answer on Linux
    _DBsys.setlk = countingSetlk;
    _DBsys.sleep = countingSleep;
    {
        xbt::ChildLock child(p, 147, 50);  // record 2
        ASSERT_TRUE(child.ok());
        for (int retries : {0, 3}) {
            DBSetLockRetryCount(retries);
            gAttempts = gSleeps = 0;
            EXPECT_EQ(DBLockRecord(h, 2), refused);
            EXPECT_EQ(gAttempts, retries == 0 ? 1 : retries);
            EXPECT_EQ(gSleeps, retries);
            EXPECT_EQ(info(h).lockt, 1);
            EXPECT_EQ(info(h).numlcks, 1);
            EXPECT_EQ(DBIsRecordLocked(h, 2), 0);
        }
        DBSetLockRetryCount(0);
        // The file lock covers record 2: refused too, and by then the
        // table's own locks are already gone.
        EXPECT_EQ(DBLockFile(h), refused);
        EXPECT_EQ(info(h).lockt, 0);
        EXPECT_EQ(info(h).numlcks, 0);
        EXPECT_EQ(locksUsed(), 0);
    }
    {
        xbt::ChildLock child(p, 4, 4);  // header and append
        ASSERT_TRUE(child.ok());
        EXPECT_EQ(DBLockHeader(h), refused);
        EXPECT_EQ(DBLockAppend(h), refused);
        EXPECT_EQ(info(h).lockt, 0);
        // The other process's lock is gone with it; ours works again.
    }
    EXPECT_EQ(DBLockHeader(h), 0);
    DBCloseFile(h);
}

TEST_F(TableLockTest, ReadLocksShareWithReadersAndKeepWritersOut) {
    const std::string p = table("read.dbf");
    const int h = open(p, 1 | DBO_SHARED | DBO_MULTILOCK);
    ASSERT_EQ(DBReadLockRecord(h, 2), 0);
    ASSERT_EQ(DBReadLockHeader(h), 0);
    expectExactly(p, {147, 50}, "read lock on record 2");
    expectExactly(p, {4, 4}, "read lock on the header");
    // Read locks are neither bits nor counted nor listed.
    EXPECT_EQ(info(h).lockt, 0);
    EXPECT_EQ(info(h).numlcks, 0);
    EXPECT_EQ(locksUsed(), 0);
    {
        xbt::ChildLock reader(p, 147, 50, 0 /* F_RDLCK */);
        EXPECT_TRUE(reader.ok());
        xbt::ChildLock writer(p, 4, 4);
        EXPECT_FALSE(writer.ok());
    }
    // DBUnLockAll lets go of them.
    ASSERT_EQ(DBUnLockAll(h), 0);
    expectFree(p, {147, 50}, "record 2 after DBUnLockAll");
    expectFree(p, {4, 4}, "header after DBUnLockAll");

    // A read lock never weakens an exclusive lock on the same bytes.
    ASSERT_EQ(DBLockRecord(h, 2), 0);
    ASSERT_EQ(DBReadLockRecord(h, 2), 0);
    {
        xbt::ChildLock reader(p, 147, 50, 0);
        EXPECT_FALSE(reader.ok());
    }
    ASSERT_EQ(DBLockFile(h), 0);
    ASSERT_EQ(DBReadLockFile(h), 0);
    ASSERT_EQ(DBReadLockRecord(h, 3), 0);
    {
        xbt::ChildLock reader(p, 197, 50, 0);
        EXPECT_FALSE(reader.ok());
    }
    ASSERT_EQ(DBUnLockAll(h), 0);

    // A read lock held by another process refuses our exclusive lock.
    ASSERT_EQ(DBReadLockFile(h), 0);
    {
        xbt::ChildLock reader(p, 0, 10, 0);
        EXPECT_TRUE(reader.ok());
        const int h2 = h;
        EXPECT_EQ(DBLockRecord(h2, 1), 0);  // our own read lock does not stop us
    }
    ASSERT_EQ(DBUnLockAll(h), 0);
    {
        xbt::ChildLock reader(p, 0, 10, 0);
        ASSERT_TRUE(reader.ok());
        EXPECT_NE(DBLockFile(h), 0);
    }
    // Closing drops read locks that were never released.
    ASSERT_EQ(DBReadLockHeader(h), 0);
    ASSERT_EQ(DBCloseFile(h), 0);
    expectFree(p, {4, 4}, "header after close");
}

// ---------------------------------------------------------------------------
// Sharing between processes
// ---------------------------------------------------------------------------

// Fill the record buffer of h with a row: NAME "P<proc>-<seq>", QTY seq.
void putRow(int h, int proc, int seq) {
    char *buf = nullptr;
    ASSERT_EQ(DBSetBufferAddress(h, &buf), 0);
    const std::string r = record("P" + std::to_string(proc) + "-" + std::to_string(seq), seq);
    std::memcpy(buf, r.data(), r.size());
}

// Run body in a child process; its exit status is what it returns.
template <class F>
pid_t spawn(F body) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int rc = body();
        _exit(rc);
    }
    return pid;
}

int waitFor(pid_t pid) {
    int st = 0;
    if (waitpid(pid, &st, 0) != pid) return -1;
    return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

// The rows of a table as (name, qty) pairs, read back through the library.
std::vector<std::string> names(int h, int32_t count) {
    std::vector<std::string> out;
    DBRECINFO ri{};
    if (DBGetRecordInfo(h, &ri) != 0) return out;
    for (int32_t k = 1; k <= count; k++) {
        if (DBGetRecord(h, k) != 0) {
            out.push_back("<unreadable>");
            continue;
        }
        std::string name(ri.bfr + 1, 40);
        name.erase(name.find_last_not_of(' ') + 1);
        out.push_back(name);
    }
    return out;
}

void twoAppenders(const std::string &p, int mode, bool explicitLocks) {
    constexpr int kRows = 400;
    pid_t kids[2];
    for (int proc = 0; proc < 2; proc++) {
        kids[proc] = spawn([&]() -> int {
            int h = -1;
            // The other process may be between writing a record and its
            // header: the length check then warns (207), which is fine.
            if (DBOpenFile(&h, const_cast<char *>(p.c_str()), mode) < 0) return 10;
            for (int i = 0; i < kRows; i++) {
                if (explicitLocks) {
                    // Contention is expected: try again until the header is ours.
                    int tries = 0;
                    while (DBLockHeader(h) != 0)
                        if (++tries > 100000) return 11;
                }
                char *buf = nullptr;
                if (DBSetBufferAddress(h, &buf) != 0) return 12;
                const std::string r = record("P" + std::to_string(proc) + "-" + std::to_string(i), i);
                std::memcpy(buf, r.data(), r.size());
                int32_t recno = 0;
                if (explicitLocks) {
                    if (DBPutRecord(h, &recno, DB_APPEND) != 0) return 13;
                    // Written out before the header is let go.
                    if (DBFlushFile(h) != 0) return 14;
                    if (DBUnLockHeader(h) != 0) return 15;
                } else {
                    int tries = 0;
                    while (DBPutRecord(h, &recno, DB_APPEND) != 0)
                        if (++tries > 100000) return 16;
                }
            }
            return DBCloseFile(h) == 0 ? 0 : 17;
        });
    }
    for (pid_t k : kids) EXPECT_EQ(waitFor(k), 0);

    // The result opens without warning and holds every row exactly once.
    int h = -1;
    ASSERT_EQ(DBOpenFile(&h, const_cast<char *>(p.c_str()), 1), 0);
    int32_t count = 0;
    ASSERT_EQ(DBGetRecordCount(h, &count), 0);
    EXPECT_EQ(count, 2 * kRows);
    std::multiset<std::string> seen;
    for (const std::string &n : names(h, count)) seen.insert(n);
    for (int proc = 0; proc < 2; proc++)
        for (int i = 0; i < kRows; i++)
            EXPECT_EQ(seen.count("P" + std::to_string(proc) + "-" + std::to_string(i)), 1u) << proc << "-" << i;
    DBCloseFile(h);
    EXPECT_EQ(xbt::fileSize(p), 97 + 2 * kRows * 50 + 1);
}

TEST_F(TableLockTest, TwoProcessesAppendingUnderHeaderLocksLoseNothing) {
    twoAppenders(table("two.dbf", 0, {}), 1 | DBO_SHARED, true);
}

TEST_F(TableLockTest, TwoProcessesAppendingWithAutomaticLocksLoseNothing) {
    twoAppenders(table("auto.dbf", 0, {}), 1 | DBO_AUTOLOCK, false);
}

TEST_F(TableLockTest, ASharedReaderSeesAnotherProcesssAppends) {
    const std::string p = table("reader.dbf");
    const int h = open(p, 1 | DBO_SHARED);
    int32_t count = 0;
    ASSERT_EQ(DBGetRecordCount(h, &count), 0);
    ASSERT_EQ(count, 3);
    ASSERT_EQ(DBGetRecord(h, 3), 0);  // fills our cache with what there is
    const pid_t kid = spawn([&]() -> int {
        int w = -1;
        if (DBOpenFile(&w, const_cast<char *>(p.c_str()), 1 | DBO_SHARED) != 0) return 10;
        if (DBLockAppend(w) != 0) return 11;
        for (int i = 0; i < 2; i++) {
            char *buf = nullptr;
            DBSetBufferAddress(w, &buf);
            const std::string r = record("LATE" + std::to_string(i), 40 + i);
            std::memcpy(buf, r.data(), r.size());
            int32_t recno = 0;
            if (DBPutRecord(w, &recno, DB_APPEND) != 0 || recno != 4 + i) return 12;
        }
        if (DBFlushFile(w) != 0) return 13;
        if (DBUnLockAll(w) != 0) return 14;
        return DBCloseFile(w) == 0 ? 0 : 15;
    });
    ASSERT_EQ(waitFor(kid), 0);
    ASSERT_EQ(DBGetRecordCount(h, &count), 0);
    EXPECT_EQ(count, 5);
    const std::vector<std::string> got = names(h, 5);
    const std::vector<std::string> want = {"ADAMS", "BAKER", "CLARK", "LATE0", "LATE1"};
    EXPECT_EQ(got, want);
    // While we hold the header lock, the count read when it was taken holds.
    ASSERT_EQ(DBLockHeader(h), 0);
    ASSERT_EQ(DBGetRecordCount(h, &count), 0);
    EXPECT_EQ(count, 5);
    DBCloseFile(h);
}

TEST_F(TableLockTest, WritesInASharedTableNeedTheirLock) {
    const std::string p = table("need.dbf");
    const std::vector<uint8_t> before = xbt::readFile(p);
    const int h = open(p, 1 | DBO_SHARED);
    ASSERT_EQ(DBGetRecord(h, 2), 0);
    int32_t recno = 2;
    EXPECT_EQ(DBPutRecord(h, &recno, DB_REWRITE), DBE_NOTLOCKED);
    recno = 0;
    EXPECT_EQ(DBPutRecord(h, &recno, DB_APPEND), DBE_NOTLOCKED);
    EXPECT_EQ(DBMarkRecordInActive(h, 2), DBE_NOTLOCKED);
    // Another record's lock does not cover record 2.
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    recno = 2;
    EXPECT_EQ(DBPutRecord(h, &recno, DB_REWRITE), DBE_NOTLOCKED);
    ASSERT_EQ(DBFlushFile(h), 0);
    EXPECT_EQ(xbt::readFile(p), before);
    // With its lock the rewrite goes through.
    ASSERT_EQ(DBLockRecord(h, 2), 0);
    putRow(h, 7, 7);
    recno = 2;
    EXPECT_EQ(DBPutRecord(h, &recno, DB_REWRITE), 0);
    ASSERT_EQ(DBFlushFile(h), 0);
    ASSERT_EQ(DBUnLockAll(h), 0);
    DBCloseFile(h);
    const std::vector<uint8_t> after = xbt::readFile(p);
    ASSERT_EQ(after.size(), before.size());
    const std::string r2 = record("P7-7", 7);
    EXPECT_EQ(std::string(after.begin() + 147, after.begin() + 197), r2);
}

}  // namespace
