// xbtest.cpp - the shared test helpers.
#include "xbtest.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

// Allocation-failure tests ask for impossible sizes; under AddressSanitizer
// those must come back as NULL, as they do from the C library.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

namespace xbt {

TempDir::TempDir() {
    char tmpl[] = "/tmp/xbtest.XXXXXX";
    char *d = mkdtemp(tmpl);
    if (d) dir_ = d;
}

TempDir::~TempDir() {
    if (!dir_.empty()) {
        std::string cmd = "rm -rf '" + dir_ + "'";
        if (std::system(cmd.c_str()) != 0) {
        }
    }
}

void LibTest::SetUp() {
    ASSERT_FALSE(tmp_.dir().empty());
    ASSERT_EQ(DBInitialize(64, 1), 0);
}

void LibTest::TearDown() { DBTerminate(); }

std::string fixturePath(const std::string &name) { return std::string(XB_FIXTURES) + "/" + name; }

std::string LibTest::fixture(const std::string &name) const {
    std::string dst = path(name);
    writeFile(dst, readFile(fixturePath(name)));
    return dst;
}

std::string LibTest::openableFixture(const std::string &name) const {
    std::vector<uint8_t> b = readFile(fixturePath(name));
    b.at(1) = 26;
    writeFile(path(name), b);
    return path(name);
}

std::set<std::string> LibTest::names() const {
    std::set<std::string> out;
    DIR *d = opendir(tmp_.dir().c_str());
    for (dirent *e; d && (e = readdir(d));)
        if (e->d_name[0] != '.') out.insert(e->d_name);
    if (d) closedir(d);
    return out;
}

Files LibTest::all() const {
    Files out;
    for (const std::string &n : names()) out[n] = readFile(path(n));
    return out;
}

void LibTest::restore(const Files &files) const {
    for (const std::string &n : names()) std::remove(path(n).c_str());
    for (const auto &[n, bytes] : files) writeFile(path(n), bytes);
}

Files LibTest::undated(const std::set<std::string> &which) const {
    Files out;
    for (const std::string &n : which) {
        if (n.empty() || !fileExists(path(n))) continue;
        out[n] = readFile(path(n));
        if (n.size() > 4 && n.compare(n.size() - 4, 4, ".dbf") == 0 && out[n].size() > 3)
            out[n][1] = out[n][2] = out[n][3] = 0;
    }
    return out;
}

std::string LibTest::logTo(const std::string &name) const {
    char buf[30] = {};  // the library keeps the log's name in 30 bytes
    EXPECT_LT(path(name).size(), sizeof buf);
    std::strncpy(buf, path(name).c_str(), sizeof buf - 1);
    DBErrorLog(1, buf);
    return path(name);
}

std::string hex(const std::string &bytes) {
    std::string out;
    for (unsigned char c : bytes) out += "0123456789abcdef"[c >> 4], out += "0123456789abcdef"[c & 15];
    return out;
}

std::vector<uint8_t> readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeFile(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void writeFile(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool fileExists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

long fileSize(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

std::string run(const std::string &cmd, int *status) {
    std::string out;
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) {
        if (status) *status = -1;
        return out;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    int rc = pclose(p);
    if (status) *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    return out;
}

std::vector<std::string> readLines(const std::string &path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

pid_t spawn(const std::function<int()> &fn) {
    const pid_t pid = fork();
    if (pid == 0) _exit(fn());
    return pid;
}

int waitFor(pid_t pid) {
    int st = 0;
    if (waitpid(pid, &st, 0) != pid) return -2;
    return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

// The child takes the lock, reports 'y' or 'n' on one pipe and holds the
// lock until the other pipe closes.
ChildLock::ChildLock(const std::string &path, uint32_t start, uint32_t len, short type) {
    int up[2], down[2];
    if (pipe(up) != 0 || pipe(down) != 0) return;
    pid_ = spawn([&] {
        close(down[1]);
        struct flock fl {};
        fl.l_type = type == F_WRLCK_VALUE ? F_WRLCK : F_RDLCK, fl.l_whence = SEEK_SET;
        fl.l_start = static_cast<off_t>(start), fl.l_len = static_cast<off_t>(len);
        const int fd = open(path.c_str(), O_RDWR);
        const char r = fd >= 0 && fcntl(fd, F_SETLK, &fl) == 0 ? 'y' : 'n';
        char c;
        if (write(up[1], &r, 1) != 1) return 1;
        while (read(down[0], &c, 1) > 0) {
        }
        return 0;
    });
    close(up[1]), close(down[0]);
    pipe_ = down[1];
    char r = 'n';
    ok_ = pid_ > 0 && read(up[0], &r, 1) == 1 && r == 'y';
    close(up[0]);
}

ChildLock::~ChildLock() {
    if (pipe_ >= 0) close(pipe_);
    if (pid_ > 0) waitFor(pid_);
}

LockSeen probeLock(const std::string &path, uint32_t start, uint32_t len) {
    LockSeen seen;
    int up[2];
    if (pipe(up) != 0) return seen;
    const pid_t pid = spawn([&] {
        struct flock fl {};
        fl.l_type = F_WRLCK, fl.l_whence = SEEK_SET, fl.l_start = static_cast<off_t>(start);
        fl.l_len = static_cast<off_t>(len);
        const int fd = open(path.c_str(), O_RDONLY);
        const bool got = fd >= 0 && fcntl(fd, F_GETLK, &fl) == 0 && fl.l_type != F_UNLCK;
        const int64_t msg[3] = {got, got ? fl.l_start : 0, got ? fl.l_len : 0};
        return write(up[1], msg, sizeof msg) == sizeof msg ? 0 : 1;
    });
    close(up[1]);
    int64_t msg[3] = {0, 0, 0};
    if (pid > 0 && read(up[0], msg, sizeof msg) == sizeof msg) seen = {msg[0] != 0, msg[1], msg[2]};
    close(up[0]);
    waitFor(pid);
    return seen;
}

}  // namespace xbt
