// The file layer: errno mapping from real failures, partial transfers,
// growing and cutting files, and byte-range locks against another process.
#include "seams.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>


namespace {

char *C(const std::string &s) { return const_cast<char *>(s.c_str()); }

class FileLayer : public xbt::LibTest {
protected:
    std::string make(const std::string &name, const std::string &bytes) {
        xbt::writeFile(path(name), bytes);
        return path(name);
    }
    int openRw(const std::string &p, int mode = 0) {
        DBOMODE m{};
        int fd = -1;
        EXPECT_EQ(DBosOpenFile(&fd, C(p), mode, &m), 0);
        return fd;
    }
    // The status fn gives in a child that dropped root for "nobody": root
    // passes every permission check, so this is how access is denied.
    int asNobody(const std::function<int()> &fn) {
        return -xbt::waitFor(xbt::spawn([&] { return setgid(65534) == 0 && setuid(65534) == 0 ? -fn() : 1; }));
    }
};

TEST_F(FileLayer, OpenCreateCloseAndAccessMapErrno) {
    std::string file = make("plain.bin", "0123456789"), dir = path("sub");
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    DBOMODE m{};
    int fd = -1;
    // path -> open status, create status
    const std::tuple<std::string, int, int> cases[] = {
        {path("nope.dbf"), DBE_NOTFOUND, 0}, {path("nodir/x.dbf"), DBE_NOTFOUND, DBE_NOPATH},
        {dir, DBE_NOTFOUND, DBE_NOTFOUND},   {file + "/x", DBE_NOPATH, DBE_NOPATH},
        {"", DBE_BADFILENAME, DBE_BADFILENAME}};
    for (const auto &[p, open_rc, create_rc] : cases) {
        EXPECT_EQ(DBosOpenFile(&fd, C(p), 0, &m), open_rc) << p;
        int cfd = -1;
        EXPECT_EQ(DBosCreateFile(&cfd, C(p)), create_rc) << p;
        if (create_rc == 0) DBosCloseFile(cfd);
    }
    // Read-only and shared come from 0x100 and 0x400.
    ASSERT_EQ(DBosOpenFile(&fd, C(file), DBO_READONLY | DBO_SHARED, &m), 0);
    EXPECT_EQ(m.read_only + m.shared, 2u);
    EXPECT_EQ(DBosWriteData(fd, C("x"), 1, 0), DBE_BADHANDLE);  // EBADF: not open for writing
    EXPECT_EQ(DBosCloseFile(fd), 0);
    EXPECT_EQ(DBosCloseFile(fd), DBE_BADHANDLE);

    if (geteuid() != 0) return;  // the access cases need root to drop it
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    ASSERT_EQ(chmod(tmp_.dir().c_str(), 0755), 0);
    xbt::writeFile(dir + "/f.bin", "f");
    const std::function<int()> denied[] = {
        [&] { return DBosOpenFile(&fd, C(file), 0, &m); },
        [&] { return DBosCreateFile(&fd, C(dir + "/new.bin")); },
        [&] { return _DBosDeleteFile(C(dir + "/f.bin")); },
        [&] { return _DBosRenameFile(C(dir + "/g.bin"), C(dir + "/f.bin")); },
    };
    for (const auto &fn : denied) EXPECT_EQ(asNobody(fn), DBE_ACCESS);
    EXPECT_TRUE(xbt::fileExists(dir + "/f.bin"));
}

// A name must fit the 512 bytes a packet keeps of it: opens and creates
// (a table and a memo file here) refuse a longer one (-214) rather than work on a cut name.
TEST_F(FileLayer, NamesThatDoNotFitAreRefusedByEveryOpenAndCreate) {
    DBFIELD f[] = {{"A", 'C', 5, 0}};
    const struct { const char *file; std::function<int(char *)> create, open; } kinds[] = {
        {"t.dbf", [&](char *p) { return DBCreateFile(p, 1, f, 1); }, [](char *p) { int h; return DBOpenFile(&h, p, 1); }},
        {"t.fpt", [](char *p) { return DBfpCreateMemo(p, 1); }, [](char *p) { int h; return DBfpOpenMemo(&h, p, 0); }},
    };
    for (const auto &k : kinds)
        for (size_t len : {511u, 512u, 600u}) {
            std::string p = tmp_.dir() + "/";  // "././..." reaches any length and names the same file
            while (p.size() + std::strlen(k.file) < len) p += len - p.size() - std::strlen(k.file) > 1 ? "./" : "/";
            p += k.file;
            const int want = len < 512 ? 0 : DBE_BADFILENAME;
            EXPECT_EQ(k.create(C(p)), want) << k.file << " " << len;
            EXPECT_EQ(xbt::fileExists(path(k.file)), len < 512) << k.file << " " << len;
            EXPECT_EQ(k.open(C(p)), want) << k.file << " " << len;
            std::remove(path(k.file).c_str());
        }
    DBTerminate();  // every open above was refused or is closed here
    ASSERT_EQ(DBInitialize(64, 1), 0);
}

TEST_F(FileLayer, ReadsWritesPositionsAndSizes) {
    std::string p = make("rw.bin", "0123456789");
    int fd = openRw(p);
    char buf[16] = {};
    int32_t pos = -1, len = -1;
    auto atEnd = [&] { char eof = 9; EXPECT_EQ(DBosEndOfFile(fd, &eof), 0); return eof; };
    ASSERT_EQ(DBosSetFilePosition(fd, 4), 0);
    ASSERT_EQ(DBosReadData(fd, buf, 3), 0);
    EXPECT_STREQ(buf, "456");
    // The length and a positioned read (whole, short, or before the start)
    // leave the position where it was.
    ASSERT_EQ(DBosFileLength(fd, &len), 0);
    ASSERT_EQ(_DBosReadAt(fd, 1, buf, 2), 0);
    EXPECT_EQ(std::string(buf, 3), "126");
    EXPECT_EQ(_DBosReadAt(fd, 8, buf, 3) * 10 + qd_read_length, DBE_READ * 10 + 2);
    EXPECT_EQ(_DBosReadAt(fd, -1, buf, 1), DBE_SEEK);
    ASSERT_EQ(DBosGetFilePosition(fd, &pos), 0);
    EXPECT_EQ(len * 100 + pos, 1007);
    EXPECT_EQ(atEnd(), 0);
    // A read past the end is a read failure, the count kept.
    EXPECT_EQ(DBosReadData(fd, buf, 5), DBE_READ);
    EXPECT_EQ(qd_read_length, 3);
    EXPECT_EQ(atEnd(), 1);
    // With the flush flag the write returns DBerrno as the caller left it.
    DBSetErrorCode(0);
    ASSERT_EQ(DBosWriteData(fd, C("AB"), 2, 1), 0);
    EXPECT_EQ(DBosSetFilePosition(fd, -5), DBE_BADCOMMAND);  // EINVAL
    // A file grows by zeros written a kilobyte at a time; the same size writes nothing.
    xbt::Seams seams;
    EXPECT_EQ(DBosSetFileSize(fd, 3000), 0);
    EXPECT_EQ(DBosSetFileSize(fd, 3000), 0);
    EXPECT_EQ(seams.sizes, (std::vector<size_t>{1024, 1024, 940}));
    std::vector<uint8_t> got = xbt::readFile(p);
    EXPECT_EQ(std::string(got.begin(), got.end()), "0123456789AB" + std::string(2988, '\0'));
    EXPECT_EQ(DBosSetFileSize(fd, 12), 0);
    EXPECT_EQ(DBosSetFileSize(fd, -1), DBE_BADCOMMAND);
    DBosCloseFile(fd);
    EXPECT_EQ(xbt::fileSize(p), 12);

    // Bad descriptors: read keeps its plain read failure, the others map EBADF.
    EXPECT_EQ(DBosReadData(fd, buf, 1), DBE_READ);
    EXPECT_EQ(DBosFileLength(fd, &len), DBE_BADHANDLE);
    // Reading a directory fails in read(2) with EISDIR: a read failure.
    int dfd = openRw(tmp_.dir(), DBO_READONLY);
    EXPECT_EQ(DBosReadData(dfd, buf, 1), DBE_READ);
    DBosCloseFile(dfd);
}

TEST_F(FileLayer, ShortWritesAreUnloggedAndFailedWritesLogged) {
    std::string p = make("w.bin", ""), lp = logTo("w.log");
    // With a 50-byte file-size limit, 100 bytes stop at 50 (short: -201, no
    // log line), and the next write fails with EFBIG (-201, logged).
    EXPECT_EQ(xbt::waitFor(xbt::spawn([&] {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit rl = {50, 50};
        setrlimit(RLIMIT_FSIZE, &rl);
        int fd = open(p.c_str(), O_RDWR);
        char buf[100] = {};
        return DBosWriteData(fd, buf, 100, 0) == DBE_WRITE && DBosWriteData(fd, buf, 10, 0) == DBE_WRITE ? 0 : 1;
    })), 0);
    EXPECT_EQ(xbt::fileSize(p), 50);
    std::vector<std::string> lines = xbt::readLines(lp);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("rdd/xbase/hwrite\t", 0), 0u);
}

TEST_F(FileLayer, DeleteRenameAndExistence) {
    std::string a = make("a.bin", "a"), b = path("b.bin"), sub = path("sub"), lp = logTo("d.log");
    ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
    DBSetErrorCode(-205);
    EXPECT_EQ(_DBIsFileThere(C(a)) * 10 + _DBIsFileThere(C(b)), 10);
    EXPECT_EQ(DBerrno, -205);  // existence tests leave the status alone

    // A second name: a hard link, never over an existing name. (Where the file
    // system refuses links, a copy: ModifySteps.Killed with links refused.)
    EXPECT_EQ(_DBosLinkFile(C(path("l1")), C(a)) + _DBosLinkFile(C(a), C(path("l1"))), DBE_NOPATH);
    struct stat s0, s1;
    ASSERT_EQ(stat(a.c_str(), &s0) | stat(path("l1").c_str(), &s1), 0);
    EXPECT_EQ(s0.st_ino, s1.st_ino);
    EXPECT_EQ(_DBosRenameFile(C(b), C(a)), 0);  // new name first
    EXPECT_TRUE(xbt::fileExists(b));
    EXPECT_EQ(_DBosRenameFile(C(b), C(a)), DBE_NOTFOUND);
    EXPECT_EQ(_DBosRenameFile(C(sub), C(b)), DBE_NOPATH);  // EISDIR
    size_t logged = xbt::readLines(lp).size();
    // A file that is not there: +204, and no log line for it.
    EXPECT_EQ(_DBosDeleteFile(C(a)), DBW_KEYNOTFOUND);
    EXPECT_EQ(DBerrno, DBW_KEYNOTFOUND);
    EXPECT_EQ(xbt::readLines(lp).size(), logged);
    EXPECT_EQ(_DBosDeleteFile(C(b)), 0);
    EXPECT_FALSE(xbt::fileExists(b));
    EXPECT_EQ(_DBosDeleteFile(C(make("f.bin", "f") + "/x")), DBE_NOPATH);
    // EISDIR has no code of its own: the system-error form, negative.
    EXPECT_EQ(_DBosDeleteFile(C(sub)), _DBSysErr(EISDIR));
    EXPECT_LT(_DBSysErr(EISDIR), 0);
}

TEST_F(FileLayer, LocksAgainstAnotherProcessAndTheRetryRule) {
    std::string p = make("lk.bin", std::string(64, 'x'));
    int fd = openRw(p);
    {
        xbt::ChildLock child(p, 100, 10);
        ASSERT_TRUE(child.ok());
        xbt::Seams seams;
        // N -> attempts, sleeps: N = 0 is one try with no sleep.
        for (const auto &[n, tries, sleeps] : {std::tuple{0, 1, 0}, {1, 1, 1}, {2, 2, 2}, {4, 4, 4}}) {
            seams.lockTries = seams.sleeps = 0;
            DBSetLockRetryCount(n);
            // Linux refuses F_SETLK with EAGAIN, which has no code of its own.
            EXPECT_EQ(DBosLockData(fd, 0, 105, 1), _DBSysErr(EAGAIN)) << n;
            EXPECT_EQ(seams.lockTries * 10 + seams.sleeps, tries * 10 + sleeps) << n;
        }
        DBSetLockRetryCount(0);
        EXPECT_EQ(DBbase.lckused, 0);  // a refused lock is not recorded
        DBSetErrorCode(0);  // success returns DBerrno as the caller left it
        EXPECT_EQ(DBosLockData(fd, 0, 120, 5), 0);
    }
    // Another process sees exactly the range we hold, also above 2 GiB.
    EXPECT_EQ(DBosLockData(fd, 0, 100, 10), 0);
    EXPECT_EQ(DBosLockData(fd, 0, static_cast<int32_t>(0xEFFFFFFEu), 1), 0);
    for (const auto &[from, start, len] : {std::tuple{0xEFFFFFF0u, 0xEFFFFFFEll, 1ll}, {100u, 100ll, 10ll}}) {
        xbt::LockSeen seen = xbt::probeLock(p, from, 0x20);
        EXPECT_TRUE(seen.blocked && seen.start == start && seen.len == len) << seen.start << " " << seen.len;
    }
    // The table lists exclusive locks in the order taken; unlocking the
    // middle one closes the gap, unlocking what is not held changes nothing.
    EXPECT_EQ(DBosTestLock(fd, 100, 10) * 10 + DBosTestLock(fd, 100, 9), 10);
    EXPECT_EQ(DBosLockData(fd, 1, 100, 10), 0);
    EXPECT_EQ(DBosLockData(fd, 1, 7, 1), 0);
    ASSERT_EQ(DBbase.lckused, 2);
    EXPECT_EQ(DBbase.locks[0].a, 120u);
    EXPECT_EQ(DBbase.locks[1].a, 0xEFFFFFFEu);
    EXPECT_FALSE(xbt::probeLock(p, 100, 10).blocked);
    // A shared lock keeps another process's writer out but is not recorded.
    EXPECT_EQ(DBosLockData(fd, 2, 200, 4), 0);
    EXPECT_EQ(DBbase.lckused, 2);
    EXPECT_TRUE(xbt::probeLock(p, 200, 4).blocked);
    EXPECT_EQ(DBosLockData(-1, 0, 0, 1), DBE_BADHANDLE);
    DBosCloseFile(fd);
}

TEST_F(FileLayer, LockTableCapacityAndOverflow) {
    std::string p = make("full.bin", "x");
    int fd = openRw(p);
    int used, max, n = -1;
    EXPECT_EQ(DBSetLockRetryCount(3) + DBGetLockRetryCount(&n), 0);
    EXPECT_EQ(n, 3);
    DBSetLockRetryCount(0);
    DBSetErrorCode(0);
    ASSERT_EQ(DBosLockData(fd, 0, 0, 1), 0);
    ASSERT_EQ(DBosLockData(fd, 0, 1, 1), 0);
    // Shrinking below what is held fails and keeps the table; exactly what
    // is held is fine.
    EXPECT_EQ(DBSetLockCount(1), DBE_LOCKUNDERFLOW);
    ASSERT_EQ(DBGetLockCount(&used, &max), 0);
    EXPECT_EQ(used * 1000 + max, 2118);
    ASSERT_EQ(DBSetLockCount(2), 0);
    EXPECT_EQ(DBosTestLock(fd, 1, 1), 1);
    // Full: an exclusive lock is refused before the system is asked, while
    // shared locks and unlocks still go through.
    {
        xbt::Seams seams;
        EXPECT_EQ(DBosLockData(fd, 0, 2, 1), DBE_LOCKOVERFLOW);
        EXPECT_EQ(seams.lockTries, 0);
        DBSetErrorCode(0);
        EXPECT_EQ(DBosLockData(fd, 2, 5, 1) + DBosLockData(fd, 1, 1, 1), 0);
        EXPECT_EQ(seams.lockTries, 2);
    }
    EXPECT_EQ(DBosLockData(fd, 0, 2, 1), 0);
    EXPECT_FALSE(xbt::probeLock(p, 1, 1).blocked);
    EXPECT_TRUE(xbt::probeLock(p, 2, 1).blocked);
    DBosCloseFile(fd);
}

}  // namespace
