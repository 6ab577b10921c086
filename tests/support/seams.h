// seams.h - the suites' hold on the system calls the library makes through
// _DBsys: writes that fail or are watched, allocations that fail or are
// counted, a process that stops after its Nth step. Everything is put back
// when the Seams object goes.
#pragma once

#include "xbtest.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <functional>
#include <set>

#include "os.h"

namespace xbt {

struct Seams {
    // Writes: each one's size is noted; once writesLeft (-1: no limit) are
    // used up, or when watch (if set, it sees every write first) says so,
    // they fail with failErrno.
    static inline std::vector<size_t> sizes;
    static inline long writesLeft = -1;
    static inline int failErrno = EIO;
    static inline std::function<bool(int, size_t)> watch;
    // Allocations: the live blocks; once allocsLeft are used up they fail.
    static inline std::set<void *> live;
    static inline long allocsLeft = -1;
    // Lock attempts and the retry sleeps between them (which return at once).
    static inline long lockTries = 0, sleeps = 0;
    // Steps (writes, renames, links, unlinks): the failAt-th fails with EIO
    // and after the stopAt-th the process is killed (0: neither); with
    // noLinks every link is refused as FAT refuses it, and is no step.
    static inline long steps = 0, stopAt = 0, failAt = 0;
    static inline bool noLinks = false;

    Seams() {
        sizes.clear(), live.clear(), watch = nullptr, noLinks = false;
        writesLeft = allocsLeft = -1, steps = stopAt = failAt = lockTries = sleeps = 0, failErrno = EIO;
        _DBsys.setlk = [](int fd, struct flock *fl) { return lockTries++, fcntl(fd, F_SETLK, fl); };
        _DBsys.sleep = [](unsigned) { return sleeps++, 0u; };
        _DBsys.write = [](int fd, const void *b, size_t n) -> long {
            if ((watch && watch(fd, n)) || used(writesLeft)) return errno = failErrno, -1;
            return step([&] { return sizes.push_back(n), static_cast<long>(::write(fd, b, n)); });
        };
        _DBsys.rename = [](const char *o, const char *n) { return step([&] { return std::rename(o, n); }); };
        _DBsys.link = [](const char *o, const char *n) {
            return noLinks ? (errno = EPERM, -1) : step([&] { return ::link(o, n); });
        };
        _DBsys.unlink = [](const char *n) { return step([&] { return ::unlink(n); }); };
        _DBsys.malloc = [](size_t n) -> void * {
            if (used(allocsLeft)) return nullptr;
            void *p = std::malloc(n);
            return live.insert(p), p;
        };
        _DBsys.realloc = [](void *p, size_t n) -> void * {
            if (used(allocsLeft)) return nullptr;
            void *q = std::realloc(p, n);
            return live.erase(p), live.insert(q), q;
        };
        _DBsys.free = [](void *p) { live.erase(p), std::free(p); };
    }
    ~Seams() { _DBsys = saved; }
    static bool used(long &left) { return left == 0 || (left > 0 && (left--, false)); }
    template <class Call>
    static auto step(Call call) -> decltype(call()) {
        if (++steps == failAt) return errno = EIO, -1;
        const auto rc = call();
        if (steps == stopAt) kill(getpid(), SIGKILL);
        return rc;
    }
    Seams(const Seams &) = delete;
    Seams &operator=(const Seams &) = delete;

private:
    DBSYSCALLS saved = _DBsys;
};

// Runs op in a child process killed just after its stop-th step (0: never),
// links refused with noLinks: the steps a whole op took (255: it failed), or
// -1 when it was killed. A child, so that the op leaves this process's
// handles alone.
inline long runKilledAt(long stop, const std::function<int()> &op, bool noLinks = false) {
    return waitFor(spawn([&] {
        Seams seams;
        Seams::stopAt = stop, Seams::noLinks = noLinks;
        return op() >= 0 ? static_cast<int>(Seams::steps) : 255;
    }));
}

}  // namespace xbt
