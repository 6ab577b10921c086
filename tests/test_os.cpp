// The file layer: errno mapping from real failures, partial transfers,
// growing and cutting files, and byte-range locks against another process.
#include "xbtest.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "os.h"

namespace {

using xbt::LibTest;

class FileLayer : public LibTest {
protected:
    std::string make(const std::string &name, const std::string &bytes) {
        std::string p = path(name);
        xbt::writeFile(p, bytes);
        return p;
    }
    int openRw(const std::string &p) {
        DBOMODE m{};
        int fd = -1;
        EXPECT_EQ(DBosOpenFile(&fd, const_cast<char *>(p.c_str()), 0, &m), 0);
        return fd;
    }
    // Runs fn in a child process that has dropped root for "nobody", and
    // returns the status the child saw. Root passes every permission check,
    // so this is how access-denied failures are produced.
    int asNobody(const std::function<int()> &fn) {
        int fds[2];
        if (pipe(fds) != 0) return 0;
        pid_t pid = fork();
        if (pid == 0) {
            close(fds[0]);
            int rc = 1;
            if (setgid(65534) == 0 && setuid(65534) == 0) rc = fn();
            if (write(fds[1], &rc, sizeof rc) != sizeof rc) _exit(1);
            _exit(0);
        }
        close(fds[1]);
        int rc = 0;
        if (read(fds[0], &rc, sizeof rc) != sizeof rc) rc = 0;
        close(fds[0]);
        waitpid(pid, nullptr, 0);
        return rc;
    }
};

TEST_F(FileLayer, OpenCreateAndCloseMapErrnoFromRealFailures) {
    std::string file = make("plain.bin", "0123456789");
    std::string dir = path("sub");
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    DBOMODE m{};
    int fd = -1;
    struct Case {
        const char *what;
        std::string p;
        int open_rc;
        int create_rc;
    } cases[] = {
        {"missing file", path("nope.dbf"), DBE_NOTFOUND, 0},
        {"missing directory", path("nodir/x.dbf"), DBE_NOTFOUND, DBE_NOPATH},
        {"a directory", dir, DBE_NOTFOUND, DBE_NOTFOUND},
        {"file used as directory", file + "/x", DBE_NOPATH, DBE_NOPATH},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(DBosOpenFile(&fd, const_cast<char *>(c.p.c_str()), 0, &m), c.open_rc);
        int cfd = -1;
        EXPECT_EQ(DBosCreateFile(&cfd, const_cast<char *>(c.p.c_str())), c.create_rc);
        if (c.create_rc == 0) DBosCloseFile(cfd);
    }
    EXPECT_EQ(DBosOpenFile(&fd, nullptr, 0, &m), DBE_NULLPARAM);
    EXPECT_EQ(DBosOpenFile(nullptr, const_cast<char *>(file.c_str()), 0, &m), DBE_NULLPARAM);
    EXPECT_EQ(DBosOpenFile(&fd, const_cast<char *>(""), 0, &m), DBE_BADFILENAME);
    EXPECT_EQ(DBosCreateFile(&fd, const_cast<char *>("")), DBE_BADFILENAME);
    EXPECT_EQ(DBosCreateFile(nullptr, const_cast<char *>(file.c_str())), DBE_NULLPARAM);
    EXPECT_EQ(DBosCloseFile(-1), DBE_BADHANDLE);
    EXPECT_EQ(DBosCloseFile(999), DBE_BADHANDLE);

    // The mode word: read-only and shared come from 0x100 and 0x400.
    ASSERT_EQ(DBosOpenFile(&fd, const_cast<char *>(file.c_str()), DBO_READONLY | DBO_SHARED, &m), 0);
    EXPECT_EQ(m.read_only, 1u);
    EXPECT_EQ(m.shared, 1u);
    char c = 'x';
    EXPECT_EQ(DBosWriteData(fd, &c, 1, 0), DBE_BADHANDLE);  // EBADF: not open for writing
    EXPECT_EQ(DBosCloseFile(fd), 0);
    ASSERT_EQ(DBosOpenFile(&fd, const_cast<char *>(file.c_str()), 0, &m), 0);
    EXPECT_EQ(m.read_only, 0u);
    EXPECT_EQ(m.shared, 0u);
    EXPECT_EQ(DBosCloseFile(fd), 0);
    EXPECT_EQ(DBosCloseFile(fd), DBE_BADHANDLE);  // already closed
}

TEST_F(FileLayer, AccessDeniedWhenNotRoot) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to switch to another user";
    std::string secret = make("secret.bin", "s");
    ASSERT_EQ(chmod(secret.c_str(), 0600), 0);
    std::string locked = path("locked");
    ASSERT_EQ(mkdir(locked.c_str(), 0755), 0);
    std::string inside = locked + "/f.bin";
    xbt::writeFile(inside, "f");
    ASSERT_EQ(chmod(tmp_.dir().c_str(), 0755), 0);

    EXPECT_EQ(asNobody([&] {
                  DBOMODE m{};
                  int fd;
                  return DBosOpenFile(&fd, const_cast<char *>(secret.c_str()), 0, &m);
              }),
              DBE_ACCESS);
    EXPECT_EQ(asNobody([&] {
                  int fd;
                  std::string p = locked + "/new.bin";
                  return DBosCreateFile(&fd, const_cast<char *>(p.c_str()));
              }),
              DBE_ACCESS);
    EXPECT_EQ(asNobody([&] { return _DBosDeleteFile(const_cast<char *>(inside.c_str())); }), DBE_ACCESS);
    EXPECT_EQ(asNobody([&] {
                  std::string to = locked + "/g.bin";
                  return _DBosRenameFile(const_cast<char *>(to.c_str()), const_cast<char *>(inside.c_str()));
              }),
              DBE_ACCESS);
    EXPECT_TRUE(xbt::fileExists(inside));
}

TEST_F(FileLayer, ReadsWritesAndPositions) {
    std::string p = make("rw.bin", "0123456789");
    int fd = openRw(p);
    char buf[16] = {};
    ASSERT_EQ(DBosSetFilePosition(fd, 4), 0);
    ASSERT_EQ(DBosReadData(fd, buf, 3), 0);
    EXPECT_STREQ(buf, "456");
    EXPECT_EQ(qd_read_length, 3);
    int32_t pos = -1, len = -1;
    ASSERT_EQ(DBosGetFilePosition(fd, &pos), 0);
    EXPECT_EQ(pos, 7);
    // The length leaves the position where it was.
    ASSERT_EQ(DBosFileLength(fd, &len), 0);
    EXPECT_EQ(len, 10);
    ASSERT_EQ(DBosGetFilePosition(fd, &pos), 0);
    EXPECT_EQ(pos, 7);
    char eof = 9;
    ASSERT_EQ(DBosEndOfFile(fd, &eof), 0);
    EXPECT_EQ(eof, 0);

    // A read past the end is a read failure, the count kept.
    EXPECT_EQ(DBosReadData(fd, buf, 5), DBE_READ);
    EXPECT_EQ(qd_read_length, 3);
    ASSERT_EQ(DBosEndOfFile(fd, &eof), 0);
    EXPECT_EQ(eof, 1);
    EXPECT_EQ(DBosReadData(fd, buf, 1), DBE_READ);
    EXPECT_EQ(qd_read_length, 0);

    ASSERT_EQ(DBosSetFilePosition(fd, 10), 0);
    // With the flush flag the write returns DBerrno as the caller left it.
    DBSetErrorCode(0);
    ASSERT_EQ(DBosWriteData(fd, const_cast<char *>("AB"), 2, 1), 0);
    EXPECT_EQ(DBosSetFilePosition(fd, -5), DBE_BADCOMMAND);  // EINVAL
    DBosCloseFile(fd);
    std::vector<uint8_t> got = xbt::readFile(p);
    EXPECT_EQ(std::string(got.begin(), got.end()), "0123456789AB");

    // Bad descriptors: read keeps its plain read failure, the others map EBADF.
    EXPECT_EQ(DBosReadData(fd, buf, 1), DBE_READ);
    EXPECT_EQ(DBosSetFilePosition(fd, 0), DBE_BADHANDLE);
    EXPECT_EQ(DBosGetFilePosition(fd, &pos), DBE_BADHANDLE);
    EXPECT_EQ(DBosFileLength(fd, &len), DBE_BADHANDLE);
    EXPECT_EQ(DBosWriteData(fd, buf, 1, 0), DBE_BADHANDLE);
    // Reading a directory fails in read(2) with EISDIR: a read failure.
    DBOMODE m{};
    int dfd;
    ASSERT_EQ(DBosOpenFile(&dfd, const_cast<char *>(tmp_.dir().c_str()), DBO_READONLY, &m), 0);
    EXPECT_EQ(DBosReadData(dfd, buf, 1), DBE_READ);
    DBosCloseFile(dfd);
}

TEST_F(FileLayer, ShortWritesAreUnloggedAndFailedWritesLogged) {
    std::string p = make("w.bin", "");
    char logname[30] = {};
    std::string lp = path("w.log");
    std::strcpy(logname, lp.c_str());
    DBErrorLog(1, logname);
    // In a child with a 50-byte file-size limit: the first write of 100
    // bytes stops at 50 (short: -201, no log line), the next fails outright
    // with EFBIG (-201, logged).
    pid_t pid = fork();
    if (pid == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit rl = {50, 50};
        setrlimit(RLIMIT_FSIZE, &rl);
        int fd = open(p.c_str(), O_RDWR);
        char buf[100] = {};
        int a = DBosWriteData(fd, buf, 100, 0);
        int b = DBosWriteData(fd, buf, 10, 0);
        _exit(a == DBE_WRITE && b == DBE_WRITE ? 0 : 1);
    }
    int st = 0;
    waitpid(pid, &st, 0);
    ASSERT_TRUE(WIFEXITED(st));
    EXPECT_EQ(WEXITSTATUS(st), 0);
    EXPECT_EQ(xbt::fileSize(p), 50);
    std::vector<std::string> lines = xbt::readLines(lp);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("rdd/xbase/hwrite\t", 0), 0u);
    DBErrorLog(0, nullptr);
}

std::vector<size_t> g_writes;
long recordWrite(int fd, const void *buf, size_t len) {
    g_writes.push_back(len);
    return static_cast<long>(write(fd, buf, len));
}

TEST_F(FileLayer, SetFileSizeGrowsInKilobytePiecesAndCuts) {
    std::string p = make("g.bin", "0123456789");
    int fd = openRw(p);
    DBSYSCALLS saved = _DBsys;
    _DBsys.write = recordWrite;
    g_writes.clear();
    EXPECT_EQ(DBosSetFileSize(fd, 3000), 0);
    _DBsys = saved;
    EXPECT_EQ(g_writes, (std::vector<size_t>{1024, 1024, 942}));
    std::vector<uint8_t> got = xbt::readFile(p);
    ASSERT_EQ(got.size(), 3000u);
    EXPECT_EQ(std::string(got.begin(), got.begin() + 10), "0123456789");
    EXPECT_TRUE(std::all_of(got.begin() + 10, got.end(), [](uint8_t b) { return b == 0; }));

    // The same size writes nothing; a smaller one cuts.
    _DBsys.write = recordWrite;
    g_writes.clear();
    EXPECT_EQ(DBosSetFileSize(fd, 3000), 0);
    _DBsys = saved;
    EXPECT_TRUE(g_writes.empty());
    EXPECT_EQ(DBosSetFileSize(fd, 4), 0);
    EXPECT_EQ(xbt::fileSize(p), 4);
    EXPECT_EQ(DBosSetFileSize(fd, -1), DBE_BADCOMMAND);
    DBosCloseFile(fd);
    EXPECT_EQ(DBosSetFileSize(fd, 10), DBE_SEEK);
}

TEST_F(FileLayer, DeleteRenameAndExistence) {
    std::string a = make("a.bin", "a");
    std::string b = path("b.bin");
    char logname[30] = {};
    std::string lp = path("d.log");
    std::strcpy(logname, lp.c_str());
    DBErrorLog(1, logname);

    DBSetErrorCode(-205);
    EXPECT_EQ(_DBIsFileThere(const_cast<char *>(a.c_str())), 1);
    EXPECT_EQ(_DBIsFileThere(const_cast<char *>(b.c_str())), 0);
    EXPECT_EQ(DBerrno, -205);  // existence tests leave the status alone

    EXPECT_EQ(_DBosRenameFile(const_cast<char *>(b.c_str()), const_cast<char *>(a.c_str())), 0);
    EXPECT_FALSE(xbt::fileExists(a));
    EXPECT_TRUE(xbt::fileExists(b));
    EXPECT_EQ(_DBosRenameFile(const_cast<char *>(b.c_str()), const_cast<char *>(a.c_str())), DBE_NOTFOUND);
    std::string sub = path("sub");
    ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
    // A file over a directory: EISDIR, a path error.
    EXPECT_EQ(_DBosRenameFile(const_cast<char *>(sub.c_str()), const_cast<char *>(b.c_str())), DBE_NOPATH);
    size_t logged = xbt::readLines(lp).size();

    // A file that is not there: +204, and no log line for it.
    EXPECT_EQ(_DBosDeleteFile(const_cast<char *>(a.c_str())), DBW_KEYNOTFOUND);
    EXPECT_EQ(DBerrno, DBW_KEYNOTFOUND);
    EXPECT_EQ(xbt::readLines(lp).size(), logged);
    EXPECT_EQ(_DBosDeleteFile(const_cast<char *>(b.c_str())), 0);
    EXPECT_FALSE(xbt::fileExists(b));
    std::string through = path("sub/../sub/x/y");
    EXPECT_EQ(_DBosDeleteFile(const_cast<char *>(through.c_str())), DBW_KEYNOTFOUND);
    std::string notdir = make("f.bin", "f") + "/x";
    EXPECT_EQ(_DBosDeleteFile(const_cast<char *>(notdir.c_str())), DBE_NOPATH);
    // unlink of a directory fails with EISDIR, which has no code: system error.
    EXPECT_EQ(_DBosDeleteFile(const_cast<char *>(sub.c_str())), _DBSysErr(EISDIR));
    EXPECT_LT(_DBSysErr(EISDIR), 0);
    DBErrorLog(0, nullptr);
}

int g_attempts = 0;
int g_sleeps = 0;
int countSetlk(int fd, struct flock *fl) {
    g_attempts++;
    return fcntl(fd, F_SETLK, fl);
}
unsigned countSleep(unsigned) {
    g_sleeps++;
    return 0;
}

TEST_F(FileLayer, LocksAgainstAnotherProcessAndTheRetryRule) {
    std::string p = make("lk.bin", std::string(64, 'x'));
    int fd = openRw(p);
    {
        xbt::ChildLock child(p, 100, 10);
        ASSERT_TRUE(child.ok());
        DBSYSCALLS saved = _DBsys;
        _DBsys.setlk = countSetlk;
        _DBsys.sleep = countSleep;
        // N -> (attempts, sleeps): N = 0 is one try with no sleep.
        const int table[][3] = {{0, 1, 0}, {1, 1, 1}, {2, 2, 2}, {4, 4, 4}};
        for (const auto &row : table) {
            g_attempts = g_sleeps = 0;
            DBSetLockRetryCount(row[0]);
            // Linux refuses F_SETLK with EAGAIN, which has no code of its own.
            EXPECT_EQ(DBosLockData(fd, 0, 105, 1), _DBSysErr(EAGAIN)) << row[0];
            EXPECT_EQ(g_attempts, row[1]) << row[0];
            EXPECT_EQ(g_sleeps, row[2]) << row[0];
        }
        _DBsys = saved;
        DBSetLockRetryCount(0);
        int used, max;
        DBGetLockCount(&used, &max);
        EXPECT_EQ(used, 0);  // a refused lock is not recorded
        // A range apart from the child's is free. (A successful lock returns
        // DBerrno as the caller left it, so clear it first.)
        DBSetErrorCode(0);
        EXPECT_EQ(DBosLockData(fd, 0, 120, 5), 0);
    }
    // With the child gone the range can be had; another process sees
    // exactly the range we hold, also at addresses above 2 GiB.
    EXPECT_EQ(DBosLockData(fd, 0, 100, 10), 0);
    EXPECT_EQ(DBosLockData(fd, 0, static_cast<int32_t>(0xEFFFFFFEu), 1), 0);
    xbt::LockSeen seen = xbt::probeLock(p, 0xEFFFFFF0u, 0x20);
    EXPECT_TRUE(seen.blocked);
    EXPECT_EQ(seen.start, 0xEFFFFFFE);
    EXPECT_EQ(seen.len, 1);
    seen = xbt::probeLock(p, 100, 1);
    EXPECT_TRUE(seen.blocked);
    EXPECT_EQ(seen.start, 100);
    EXPECT_EQ(seen.len, 10);

    // The table lists exclusive locks in the order taken; unlocking the
    // middle one closes the gap.
    EXPECT_EQ(DBosTestLock(fd, 120, 5), 1);
    EXPECT_EQ(DBosTestLock(fd, 100, 10), 1);
    EXPECT_EQ(DBosTestLock(fd, 100, 9), 0);
    EXPECT_EQ(DBosTestLock(fd + 1, 100, 10), 0);
    ASSERT_EQ(DBbase.lckused, 3);
    EXPECT_EQ(DBosLockData(fd, 1, 100, 10), 0);
    ASSERT_EQ(DBbase.lckused, 2);
    EXPECT_EQ(DBbase.locks[0].a, 120u);
    EXPECT_EQ(DBbase.locks[1].a, 0xEFFFFFFEu);
    EXPECT_FALSE(xbt::probeLock(p, 100, 10).blocked);
    // Unlocking what is not held changes nothing.
    EXPECT_EQ(DBosLockData(fd, 1, 7, 1), 0);
    EXPECT_EQ(DBbase.lckused, 2);

    // A shared lock blocks another process's writer but is not recorded.
    EXPECT_EQ(DBosLockData(fd, 2, 200, 4), 0);
    EXPECT_EQ(DBbase.lckused, 2);
    EXPECT_TRUE(xbt::probeLock(p, 200, 4).blocked);
    EXPECT_EQ(DBosTestLock(fd, 200, 4), 0);
    DBosLockData(fd, 1, 200, 4);
    EXPECT_FALSE(xbt::probeLock(p, 200, 4).blocked);

    EXPECT_EQ(DBosLockData(-1, 0, 0, 1), DBE_BADHANDLE);
    DBosCloseFile(fd);
}

TEST_F(FileLayer, FullLockTableRefusesWithoutASystemCall) {
    std::string p = make("full.bin", "x");
    int fd = openRw(p);
    ASSERT_EQ(DBSetLockCount(2), 0);
    DBSetErrorCode(0);
    ASSERT_EQ(DBosLockData(fd, 0, 0, 1), 0);
    ASSERT_EQ(DBosLockData(fd, 0, 1, 1), 0);
    DBSYSCALLS saved = _DBsys;
    _DBsys.setlk = countSetlk;
    g_attempts = 0;
    EXPECT_EQ(DBosLockData(fd, 0, 2, 1), DBE_LOCKOVERFLOW);
    EXPECT_EQ(g_attempts, 0);
    DBSetErrorCode(0);
    // Unlocks and shared locks still go through when the table is full.
    EXPECT_EQ(DBosLockData(fd, 2, 5, 1), 0);
    EXPECT_EQ(DBosLockData(fd, 1, 1, 1), 0);
    EXPECT_EQ(g_attempts, 2);
    _DBsys = saved;
    EXPECT_EQ(DBosLockData(fd, 0, 2, 1), 0);
    EXPECT_FALSE(xbt::probeLock(p, 1, 1).blocked);
    EXPECT_TRUE(xbt::probeLock(p, 2, 1).blocked);
    DBosCloseFile(fd);
}

}  // namespace
