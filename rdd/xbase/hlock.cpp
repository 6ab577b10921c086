// hlock.cpp - byte-range locks and the process lock table.
//
// Locks are POSIX advisory record locks, tried without blocking. The retry
// rule is old and other programs' timing was built around it, so it is kept
// exactly: with N = DBlock_retry, N = 0 is one attempt and no sleep, and
// N >= 1 is N attempts, each refusal followed by a one-second sleep.
#include "os.h"

#include <errno.h>
#include <fcntl.h>

namespace {
constexpr DBSite here{"rdd/xbase/hlock"};
}

void _flag_lock(int fd, int type, int32_t start, int32_t len) {
    const auto a = static_cast<uint32_t>(start);
    const auto l = static_cast<uint32_t>(len);
    if (type == 0) {
        if (DBbase.lckused >= DBbase.maxlcks || !DBbase.locks) return;
        DBbase.locks[DBbase.lckused] = DBLOCK{a, l, fd};
        DBbase.lckused++;
    } else if (type == 1) {
        for (int i = 0; i < DBbase.lckused; i++) {
            const DBLOCK &k = DBbase.locks[i];
            if (k.a == a && k.fh == fd && k.l == l) {
                for (int j = i + 1; j < DBbase.lckused; j++) DBbase.locks[j - 1] = DBbase.locks[j];
                DBbase.lckused--;
                return;
            }
        }
    }
    // Shared locks are not recorded: the table lists exclusive locks only.
}

extern "C" DBAPI int DBosLockData(int fd, int type, int32_t start, int32_t len) {
    static constexpr DBErrMap map[] = {
        {EACCES, DBE_LOCKVIOLATION}, {EDEADLK, DBE_SHAREOVERFLOW}, {EBADF, DBE_BADHANDLE}};
    // A full table refuses before the system is asked, so the table never
    // loses track of a lock the process holds.
    if (type == 0 && DBbase.lckused >= DBbase.maxlcks) return here.fail(DBE_LOCKOVERFLOW, __LINE__);
    struct flock fl {};
    fl.l_type = static_cast<short>(type == 0 ? F_WRLCK : type == 2 ? F_RDLCK : F_UNLCK);
    fl.l_whence = SEEK_SET;
    // Addresses are unsigned 32-bit: 0xEFFFFFFE is a byte near 4 GiB, not a
    // negative offset.
    fl.l_start = static_cast<off_t>(static_cast<uint32_t>(start));
    fl.l_len = static_cast<off_t>(static_cast<uint32_t>(len));
    const int n = DBlock_retry;
    int attempts = 0;
    int err = 0;
    for (;;) {
        attempts++;
        if (_DBsys.setlk(fd, &fl) == 0) {
            _flag_lock(fd, type, start, len);
            return DBerrno;
        }
        err = errno;
        if (attempts - 1 >= n) break;
        _DBsys.sleep(1);
        if (attempts >= n) break;
    }
    return here.fail(_DBMapErrno(err, map), __LINE__);
}

extern "C" DBAPI int DBosTestLock(int fd, int32_t start, int32_t len) {
    const auto a = static_cast<uint32_t>(start);
    const auto l = static_cast<uint32_t>(len);
    for (int i = 0; i < DBbase.lckused; i++) {
        const DBLOCK &k = DBbase.locks[i];
        if (k.fh == fd && k.a == a && k.l == l) return 1;
    }
    return 0;
}
