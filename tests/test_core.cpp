// Library core: initialisation, the handle table, the close table, settings,
// messages, the error log, and the small helpers the families lean on.
#include "xbtest.h"

#include <cstdlib>
#include <regex>

#include "core.h"

namespace {

using xbt::LibTest;

// Allocates packets until the table refuses; returns the handles given out.
std::vector<int> allocateAll() {
    std::vector<int> handles;
    int h = 0;
    void *p = nullptr;
    while (_DBAllocNewFilePacket(&h, DBPT_FPT, &p) == 0) handles.push_back(h);
    EXPECT_EQ(DBerrno * 10 + h, DBE_NOHANDLES * 10 - 1);
    return handles;
}

TEST(Initialize, HandlesDateStyleAndSwitches) {
    // maxfiles -> status, usable handles (3, 4, ...)
    for (const auto &[maxfiles, status, usable] :
         {std::tuple{4, DBE_BADHANDLE, 0}, {5, 0, 0}, {9, 0, 1}, {512, 0, 504}, {600, 0, 504}}) {
        ASSERT_EQ(DBInitialize(maxfiles, 1), status) << maxfiles;
        if (status != 0) continue;
        std::vector<int> hs = allocateAll();
        ASSERT_EQ(hs.size(), static_cast<size_t>(usable)) << maxfiles;
        for (size_t i = 0; i < hs.size(); i++) EXPECT_EQ(hs[i], static_cast<int>(3 + i));
        int used = -1, max = -1;
        EXPECT_EQ(DBGetLockCount(&used, &max), 0);
        EXPECT_EQ(used * 10000 + max, 2 * (std::min(maxfiles, 512) - 5));
        DBTerminate();
        EXPECT_EQ(DBbase.sfc, 0);
    }
    for (const auto &[given, kept] : {std::pair{0, 1}, {16, 1}, {15, 15}}) {
        ASSERT_EQ(DBInitialize(20, static_cast<char>(given)), 0);
        EXPECT_EQ(DBdate_style, kept) << given;
        DBTerminate();
    }
    // The switches are on for exactly "YES" or "yes", each read on its own.
    for (const auto &[samba, harbour, on_s, on_h] :
         {std::tuple{"YES", "yes", 1, 1}, {"Yes", "YES ", 0, 0}, {"", "y", 0, 0}, {"yes", nullptr, 1, 0}}) {
        setenv("DB_SAMBA", samba, 1);
        harbour ? setenv("DB_XHARBOUR", harbour, 1) : unsetenv("DB_XHARBOUR");
        ASSERT_EQ(DBInitialize(20, 1), 0);
        EXPECT_EQ(getDBsamba() * 10 + getDBxHarbour(), on_s * 10 + on_h) << samba;
        DBTerminate();
    }
    unsetenv("DB_SAMBA");
}

int g_closes = 0;
int fakeClose(int handle) {
    g_closes++;
    _DBReleaseFilePacket(handle);
    return 0;
}

// A freed slot is the next one given out, ahead of higher free slots; a packet of another kind, a free
// or an out-of-range slot is no table; termination closes every open handle through the close table.
TEST_F(LibTest, SlotsKindsAndTheCloseTable) {
    int h[4], memo = 0, again = 0;
    void *p, *fpt;
    for (int &x : h) ASSERT_EQ(_DBAllocNewFilePacket(&x, DBPT_MDX, &p), 0);
    EXPECT_EQ(DBbase.sfc, 4);
    _DBReleaseFilePacket(h[1]);
    EXPECT_EQ(DBbase.sfc, 3);
    ASSERT_EQ(_DBAllocNewFilePacket(&again, DBPT_MDX, &p), 0);
    EXPECT_EQ(again, h[1]);
    ASSERT_EQ(_DBAllocNewFilePacket(&memo, DBPT_FPT, &fpt), 0);
    for (int bad : {memo, memo + 1, -1, 2, 64})
        EXPECT_TRUE(DBGetFileDescriptor(bad) == DBE_BADHANDLE && DBerrno == DBE_BADHANDLE) << bad;
    EXPECT_EQ(_DBPacketOf(memo, DBPT_FPT), fpt);
    EXPECT_EQ(_DBPacketOf(memo, DBPT_DBT), nullptr);
    _DBReleaseFilePacket(memo);
    DBclose[DBPT_MDX] = fakeClose;
    g_closes = 0;
    DBTerminate();
    EXPECT_EQ(g_closes, 4);
    EXPECT_EQ(DBbase.sfc, 0);
    EXPECT_EQ(DBbase.p, nullptr);
    ASSERT_EQ(DBInitialize(64, 1), 0);  // for TearDown
}

// The version text is 16 bytes and leaves the status alone; every status the header documents gives
// the text documented beside it.
TEST_F(LibTest, VersionStatusesAndMessages) {
    char v[32];
    std::memset(v, 'x', sizeof v);
    EXPECT_EQ(DBSetErrorCode(-205), -205);
    EXPECT_EQ(DBGetVersion(v), 0);
    EXPECT_EQ(DBGetErrorCode(), -205);
    EXPECT_TRUE(std::regex_match(v, std::regex("[0-9]\\.[0-9]{2} \\(20[0-9]{6}\\)"))) << v;
    EXPECT_EQ(v[16], 'x');  // 16 bytes copied, no more
    EXPECT_EQ(DBGetVersion(nullptr), DBE_NULLPARAM);
    std::vector<uint8_t> raw = xbt::readFile(std::string(XB_SOURCE_DIR) + "/include/xbfiles.h");
    std::string header(raw.begin(), raw.end());
    std::regex row("#define (DB_OK|DB[WE]_[A-Z]+) +\\(?(-?[0-9]+)\\)? +/\\* \"([^\"]*)\" \\*/");
    int rows = 0;
    for (std::sregex_iterator it(header.begin(), header.end(), row), end; it != end; ++it, ++rows) {
        DBSetErrorCode(std::stoi((*it)[2].str()));
        EXPECT_STREQ(DBGetErrorStr(), (*it)[3].str().c_str()) << (*it)[1].str();
    }
    EXPECT_EQ(rows, 1 + 12 + 61);  // success, 201..212, -201..-261
    for (int unknown : {213, -262, -200, 1, 200, _DBSysErr(11)}) {
        DBSetErrorCode(unknown);
        EXPECT_STREQ(DBGetErrorStr(), "Unknown error or warning code") << unknown;
    }
}

// Off, a failure leaves no file behind; on, one line per failure, "<source>\t<line>\t<code>\n", appended,
// each failure point with its own line number; off again, nothing more. The switch returns DBerrno as it was.
TEST_F(LibTest, ErrorLogLinesAndSilenceWhenOff) {
    std::string missing = path("missing.dbf");
    DBOMODE m{};
    int fd = -1;
    char buf[4];
    DBSetErrorCode(-233);
    EXPECT_EQ(DBErrorLog(0, nullptr), -233);
    EXPECT_EQ(DBosOpenFile(&fd, missing.data(), 0, &m), DBE_NOTFOUND);
    const std::string logpath = logTo("e.log");
    EXPECT_FALSE(xbt::fileExists(logpath));
    EXPECT_EQ(DBosOpenFile(&fd, missing.data(), 0, &m), DBE_NOTFOUND);
    EXPECT_EQ(DBosReadData(-1, buf, 4), DBE_READ);
    EXPECT_EQ(DBSetLockCount(-1), DBE_LOCKUNDERFLOW);
    EXPECT_EQ(DBosOpenFile(&fd, nullptr, 0, &m), DBE_NULLPARAM);
    std::vector<uint8_t> raw = xbt::readFile(logpath);
    std::string text(raw.begin(), raw.end());
    std::smatch mt;
    ASSERT_TRUE(std::regex_match(text, mt, std::regex("rdd/xbase/init\t([0-9]+)\t-205\n"
                                                      "rdd/xbase/hread\t[0-9]+\t-202\n"
                                                      "rdd/xbase/locks\t[0-9]+\t-261\n"
                                                      "rdd/xbase/init\t([0-9]+)\t-221\n")))
        << text;
    EXPECT_NE(mt[1].str(), mt[2].str());
    DBErrorLog(0, nullptr);
    EXPECT_EQ(DBosOpenFile(&fd, missing.data(), 0, &m), DBE_NOTFOUND);
    EXPECT_EQ(xbt::fileSize(logpath), static_cast<long>(raw.size()));
}

// Overlapping moves go the right way round; a negative length moves nothing.
TEST(Helpers, OverlappingMoves) {
    char m[] = "0123456789";
    EXPECT_EQ(_DBmemmove(m + 2, m, 5), m + 2);  // forward overlap
    EXPECT_STREQ(m, "0101234789");
    char n[] = "0123456789";
    _DBmemmove(n, n + 3, 5);  // backward overlap
    EXPECT_STREQ(n, "3456756789");
    _DBmemmove(n, "xxxx", -1);
    EXPECT_STREQ(n, "3456756789");
}

// An impossible size is -203 and leaves the caller's pointer alone.
TEST_F(LibTest, AllocationFailuresAreStatuses) {
    void *p = nullptr, *q = nullptr;
    ASSERT_EQ(DBAllocateMemoryLog(&p, 16, "t", 1), 0);
    void *keep = p;
    EXPECT_EQ(DBReAllocateMemory(&p, SIZE_MAX - 64, "t", 2), DBE_NOMEMORY);
    EXPECT_EQ(p, keep);
    DBSetErrorCode(0);
    EXPECT_EQ(DBAllocateMemoryLog(&q, SIZE_MAX - 64, "t", 3), DBE_NOMEMORY);
    EXPECT_EQ(q, nullptr);
    EXPECT_EQ(DBerrno, DBE_NOMEMORY);
    DBFreeMemory(p, "t", 4);
}

}  // namespace
