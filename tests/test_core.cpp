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
         {std::tuple{4, DBE_BADHANDLE, 0}, {0, DBE_BADHANDLE, 0}, {5, 0, 0}, {8, 0, 0}, {9, 0, 1},
          {20, 0, 12}, {512, 0, 504}, {600, 0, 504}}) {
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
    for (const auto &[given, kept] : {std::pair{0, 1}, {-3, 1}, {16, 1}, {15, 15}, {4, 4}}) {
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

TEST_F(LibTest, SlotsAreReusedAndTerminateClosesThroughTheCloseTable) {
    int h[4];
    void *p;
    for (int &x : h) ASSERT_EQ(_DBAllocNewFilePacket(&x, DBPT_MDX, &p), 0);
    EXPECT_EQ(h[0], 3);
    EXPECT_EQ(h[3], 6);
    EXPECT_EQ(DBbase.sfc, 4);
    // A freed slot is the next one given out, ahead of higher free slots.
    _DBReleaseFilePacket(h[1]);
    EXPECT_EQ(DBbase.sfc, 3);
    int again = 0;
    ASSERT_EQ(_DBAllocNewFilePacket(&again, DBPT_MDX, &p), 0);
    EXPECT_EQ(again, h[1]);
    // Packets start zeroed, with no descriptor.
    auto *hdr = static_cast<DBPKTHDR *>(p);
    EXPECT_EQ(hdr->dh, -1);
    EXPECT_EQ(hdr->n[0], 0);

    int x = 0;
    EXPECT_EQ(_DBAllocNewFilePacket(nullptr, 1, &p), DBE_NULLPARAM);
    EXPECT_EQ(_DBAllocNewFilePacket(&x, 9, &p) + _DBAllocNewFilePacket(&x, 0, &p), 2 * DBE_SWITCH);

    // Termination calls the registered close for every open handle.
    DBclose[DBPT_MDX] = fakeClose;
    g_closes = 0;
    DBTerminate();
    EXPECT_EQ(g_closes, 4);
    EXPECT_EQ(DBbase.sfc, 0);
    EXPECT_EQ(DBbase.p, nullptr);
    ASSERT_EQ(DBInitialize(64, 1), 0);  // for TearDown
}

TEST_F(LibTest, HandlesOfTheWrongKindAreRefused) {
    int h = 0;
    void *p;
    ASSERT_EQ(_DBAllocNewFilePacket(&h, DBPT_FPT, &p), 0);
    // A memo packet is not a table; free and out-of-range slots neither.
    for (int bad : {h, h + 1, -1, 0, 2, 59, 1000}) {
        EXPECT_EQ(DBGetFileDescriptor(bad), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBerrno, DBE_BADHANDLE);
    }
    EXPECT_EQ(_DBPacketOf(h, DBPT_FPT), p);
    EXPECT_EQ(_DBPacketOf(h, DBPT_DBT), nullptr);
}

TEST_F(LibTest, VersionAndErrorCode) {
    char v[32];
    std::memset(v, 'x', sizeof v);
    DBSetErrorCode(-205);
    EXPECT_EQ(DBGetVersion(v), 0);
    EXPECT_EQ(DBerrno, -205);  // the version call leaves the status alone
    EXPECT_EQ(std::strlen(v), 15u);
    EXPECT_TRUE(std::regex_match(v, std::regex("[0-9]\\.[0-9]{2} \\(20[0-9]{6}\\)"))) << v;
    EXPECT_EQ(v[16], 'x');  // 16 bytes copied, no more
    EXPECT_EQ(DBGetVersion(nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBSetErrorCode(207), 207);
    EXPECT_EQ(DBGetErrorCode(), 207);
}

TEST_F(LibTest, EveryStatusHasItsMessage) {
    const std::pair<int, const char *> table[] = {
        {0, "No error or warnings"},
        {201, "WARNING - record read is marked deleted"},
        {202, "WARNING - file is empty"},
        {203, "WARNING - no more keys"},
        {204, "WARNING - could not find key in index file"},
        {205, "WARNING - data field truncated"},
        {206, "WARNING - numeric field rounded"},
        {207, "WARNING - file length is incorrect"},
        {208, "WARNING - file I/O not buffered"},
        {209, "WARNING - partial memory allocation"},
        {210, "WARNING - function not supported"},
        {211, "WARNING - object already exists"},
        {212, "WARNING - field is empty"},
        {-201, "ERROR - file write failure"},
        {-202, "ERROR - file read failure"},
        {-203, "ERROR - memory allocation error"},
        {-204, "ERROR - file pointer reposition failed"},
        {-205, "ERROR - file not found"},
        {-206, "ERROR - file corrupted"},
        {-207, "ERROR - bad user specified key expression"},
        {-208, "ERROR - no handles available"},
        {-209, "ERROR - no index pages loaded"},
        {-210, "ERROR - index page was not loaded"},
        {-211, "ERROR - file close failure"},
        {-212, "ERROR - invalid command"},
        {-213, "ERROR - invalid handle number"},
        {-214, "ERROR - invalid filename"},
        {-215, "ERROR - invalid date"},
        {-216, "ERROR - invalid time"},
        {-217, "ERROR - file not in memo format"},
        {-218, "ERROR - invalid dBaseIII version"},
        {-219, "ERROR - file header length error"},
        {-220, "ERROR - last file change date in error"},
        {-221, "ERROR - parameter address NULL"},
        {-222, "ERROR - invalid key type"},
        {-223, "ERROR - invalid key length"},
        {-224, "ERROR - item length incorrect"},
        {-225, "ERROR - invalid root page"},
        {-226, "ERROR - bad maximum number of keys per page"},
        {-227, "ERROR - invalid number of fields"},
        {-228, "ERROR - field name invalid"},
        {-229, "ERROR - bad field length"},
        {-230, "ERROR - decimal places parameter invalid"},
        {-231, "ERROR - invalid field type"},
        {-232, "ERROR - invalid record length"},
        {-233, "ERROR - bad data"},
        {-234, "ERROR - memo soft line length invalid"},
        {-235, "ERROR - MDX flag in DBF file invalid"},
        {-236, "ERROR - file open for reading only"},
        {-237, "ERROR - file locking violation"},
        {-238, "ERROR - sharing buffer overflow"},
        {-239, "ERROR - path not found"},
        {-240, "ERROR - access to file denied"},
        {-241, "ERROR - invalid access code"},
        {-242, "ERROR - file must be locked first"},
        {-243, "ERROR - diskette changed"},
        {-244, "ERROR - bad minimum number of keys per page"},
        {-245, "ERROR - some files remain open"},
        {-246, "ERROR - could not open the file"},
        {-247, "ERROR - flush to disk failure"},
        {-248, "ERROR - invalid tag handle"},
        {-249, "ERROR - invalid page size in blocks"},
        {-250, "ERROR - invalid tag name"},
        {-251, "ERROR - invalid page offset adder"},
        {-252, "ERROR - invalid maximum number of tag table elements"},
        {-253, "ERROR - bad tag table element length"},
        {-254, "ERROR - invalid tag count"},
        {-255, "ERROR - unknown key format switches"},
        {-256, "ERROR - unknown switch error"},
        {-257, "ERROR - tag in use"},
        {-258, "ERROR - Windows GlobalLock error"},
        {-259, "ERROR - Windows Task lookup Failed"},
        {-260, "ERROR - internal lock buffer overflow"},
        {-261, "ERROR - internal lock buffer underflow"},
    };
    for (const auto &[code, text] : table) {
        DBSetErrorCode(code);
        EXPECT_STREQ(DBGetErrorStr(), text) << code;
    }
    for (int unknown : {213, -262, -200, 1, 200, _DBSysErr(11)}) {
        DBSetErrorCode(unknown);
        EXPECT_STREQ(DBGetErrorStr(), "Unknown error or warning code") << unknown;
    }
}

TEST_F(LibTest, ErrorLogLinesAndSilenceWhenOff) {
    char name[30] = {};
    std::string logpath = path("e.log"), missing = path("missing.dbf");
    ASSERT_LT(logpath.size(), sizeof name);
    std::strcpy(name, logpath.c_str());
    DBOMODE m{};
    int fd = -1;
    char buf[4];
    // Off: a failure leaves no file behind.
    EXPECT_EQ(DBErrorLog(0, nullptr), DBerrno);
    EXPECT_EQ(DBosOpenFile(&fd, missing.data(), 0, &m), DBE_NOTFOUND);
    EXPECT_FALSE(xbt::fileExists(logpath));
    // On: one line per failure, "<source>\t<line>\t<code>\n", appended; each
    // failure point has its own line number.
    DBSetErrorCode(-233);
    EXPECT_EQ(DBErrorLog(1, name), -233);  // returns DBerrno unchanged
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
    // Off again: nothing more is written.
    DBErrorLog(0, nullptr);
    EXPECT_EQ(DBosOpenFile(&fd, missing.data(), 0, &m), DBE_NOTFOUND);
    EXPECT_EQ(xbt::fileSize(logpath), static_cast<long>(raw.size()));
}

TEST(Helpers, ByteOrderStringsAndMoves) {
    EXPECT_EQ(static_cast<uint16_t>(_DBSwapBytesShort(static_cast<int16_t>(0xFF01))), 0x01FF);
    EXPECT_EQ(static_cast<uint32_t>(_DBSwapBytesLong(static_cast<int32_t>(0x80000001u))), 0x01000080u);
    double d = 1.5, back = 0;
    unsigned char sw[8];
    _DBSwapBytesDouble(sw, &d);
    EXPECT_EQ(sw[0] << 8 | sw[1], 0x3FF8);  // big-endian 1.5
    _DBSwapBytesDouble(&back, sw);
    EXPECT_EQ(back, 1.5);
    unsigned char b[4];
    _DBStoreLE32(b, 0x01020304u);
    EXPECT_EQ(_DBLoadBE32(b), 0x04030201u);

    // Only ASCII letters change case; other bytes stay as they are.
    char s[] = "aZ09_\xe4\xc4";
    EXPECT_STREQ(_DBstrupr(s), "AZ09_\xe4\xc4");
    EXPECT_STREQ(_DBstrlwr(s), "az09_\xe4\xc4");
    EXPECT_EQ(_DBstricmp("Name", "nAME"), 0);
    EXPECT_NE(_DBstricmp("NAME", "NAMEX"), 0);  // over the longer string
    EXPECT_LT(_DBstricmp("abc", "ABD"), 0);
    EXPECT_NE(_DBstricmp("\xe4", "\xc4"), 0);

    char m[] = "0123456789";
    EXPECT_EQ(_DBmemmove(m + 2, m, 5), m + 2);  // forward overlap
    EXPECT_STREQ(m, "0101234789");
    char n[] = "0123456789";
    _DBmemmove(n, n + 3, 5);  // backward overlap
    EXPECT_STREQ(n, "3456756789");
    _DBmemmove(n, "xxxx", -1);
    EXPECT_STREQ(n, "3456756789");
}

TEST_F(LibTest, AllocationFailuresAreStatuses) {
    void *p = nullptr;
    ASSERT_EQ(DBAllocateMemoryLog(&p, 16, "t", 1), 0);
    std::memset(p, 7, 16);
    ASSERT_EQ(DBReAllocateMemory(&p, 64, "t", 2), 0);
    EXPECT_EQ(static_cast<unsigned char *>(p)[15], 7);
    // An impossible size is -203 and leaves the caller's pointer alone.
    void *keep = p, *q = nullptr;
    EXPECT_EQ(DBReAllocateMemory(&p, SIZE_MAX - 64, "t", 3), DBE_NOMEMORY);
    EXPECT_EQ(p, keep);
    EXPECT_EQ(DBAllocateMemoryLog(&q, SIZE_MAX - 64, "t", 4), DBE_NOMEMORY);
    EXPECT_EQ(q, nullptr);
    EXPECT_EQ(DBerrno, DBE_NOMEMORY);
    DBFreeMemory(p, "t", 5);
}

}  // namespace
