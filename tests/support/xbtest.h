// xbtest.h - what the suites share: a fixture that initialises the library
// in a private temporary directory, file helpers, and helpers that look at
// locks from a real second process.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

extern "C" {
#include "xbfiles.h"
}

namespace xbt {

// Every file of a directory, by name, with its bytes.
using Files = std::map<std::string, std::vector<uint8_t>>;

// A fresh temporary directory, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string &dir() const { return dir_; }
    std::string path(const std::string &name) const { return dir_ + "/" + name; }

private:
    std::string dir_;
};

// Initialises the library (64 files, date style 1) in a temporary directory
// and terminates it afterwards.
class LibTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    std::string path(const std::string &name) const { return tmp_.path(name); }
    // Copy ../shared/fixtures/<name> into the temporary directory.
    std::string fixture(const std::string &name) const;
    // The same for a table whose year byte (126: Harbour writes the year
    // less 1900) the library refuses: the copy says 2026.
    std::string openableFixture(const std::string &name) const;
    // The names in the temporary directory, all its files, and the
    // directory put back to exactly `files`.
    std::set<std::string> names() const;
    Files all() const;
    void restore(const Files &files) const;
    // Those of `which` that exist, each table's header date zeroed (a
    // flush sets it to today).
    Files undated(const std::set<std::string> &which) const;
    // Turn the error log on, into the temporary directory; its path.
    std::string logTo(const std::string &name) const;
    TempDir tmp_;
};

std::string fixturePath(const std::string &name);
std::vector<uint8_t> readFile(const std::string &path);
void writeFile(const std::string &path, const std::vector<uint8_t> &bytes);
void writeFile(const std::string &path, const std::string &bytes);
bool fileExists(const std::string &path);
long fileSize(const std::string &path);
// Run a shell command; returns its standard output, *status its exit code.
std::string run(const std::string &cmd, int *status = nullptr);
// Lines of a text file (without the newline).
std::vector<std::string> readLines(const std::string &path);

// The bytes of a value, as the library stores binary fields.
template <class T>
std::string raw(T v) {
    return std::string(reinterpret_cast<const char *>(&v), sizeof v);
}
// Bytes as lower-case hex, the way dbfread_dump.py prints memos.
std::string hex(const std::string &bytes);

// Run fn in a child process whose exit status is fn's result (0..255).
pid_t spawn(const std::function<int()> &fn);
// How child pid ended: its exit status, or -1 when a signal ended it.
int waitFor(pid_t pid);

// A child process that holds an fcntl lock (F_WRLCK or F_RDLCK) on
// [start, start+len) of path until destroyed.
class ChildLock {
public:
    ChildLock(const std::string &path, uint32_t start, uint32_t len, short type = F_WRLCK_VALUE);
    ~ChildLock();
    bool ok() const { return ok_; }
    static constexpr short F_WRLCK_VALUE = 1;  // F_WRLCK on Linux

private:
    int pid_ = -1;
    int pipe_ = -1;
    bool ok_ = false;
};

// What another process sees when it asks F_GETLK for an exclusive lock on
// [start, start+len): whether a lock blocks it, and that lock's range.
struct LockSeen {
    bool blocked = false;
    int64_t start = 0;
    int64_t len = 0;
};
LockSeen probeLock(const std::string &path, uint32_t start, uint32_t len);

}  // namespace xbt
