// init.cpp - library state: the globals, initialisation and termination,
// the handle table and its packets, the table resolver, and the open and
// close calls of the file layer.
#include "cdx.h"
#include "core.h"
#include "dbf.h"
#include "memo.h"
#include "ndx.h"
#include "ntx.h"
#include "os.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/init"};
}

// ---------------------------------------------------------------------------
// Globals
// ---------------------------------------------------------------------------
int DBerrno = 0;
int DBdate_style = 0;
int DBlock_retry = 0;
DBTASKPKT DBbase = {};
DBCLOSEF DBclose[DBNUMPKTTYPES] = {};
DBPCTRL DBpc[4] = {};
int DBlog_errs = 0;
char DBlog_filename[30] = {};
char DBvers[16] = XB_VERSION_NUMBER " (" XB_BUILD_DATE ")";
char DBkeybfr1[513];
char DBkeybfr2[513];
char DBkeybfr3[513];
int32_t DBrecno = 0;
int16_t DBtag = 0;
int DBsamba = 0;
int DBxHarbour = 0;
DBDATAPKT *DBxbd = nullptr;
DBFPTPKT *DBfpm = nullptr;
DBDBTPKT *DBxbm = nullptr;

static_assert(sizeof(XB_VERSION_NUMBER " (" XB_BUILD_DATE ")") == 16,
              "version text is 15 characters and a NUL");

// Packet sizes by type. MDX (5), which this library does not read, gets a
// bare header.
size_t _DBPacketSize(int type) {
    switch (type) {
    case DBPT_DBF: return sizeof(DBDATAPKT);
    case DBPT_NDX: return sizeof(DBNDXPKT);
    case DBPT_DBT: return sizeof(DBDBTPKT);
    case DBPT_FPT: return sizeof(DBFPTPKT);
    case DBPT_NTX: return sizeof(DBNTXPKT);
    case DBPT_IDX: case DBPT_CDX: return sizeof(DBCDXPKT);
    default: return sizeof(DBPKTHDR);
    }
}

namespace {
// The switches are on only for these exact texts; "Yes" is not enough.
int _switch(const char *name) {
    const char *v = std::getenv(name);
    return v && (std::strcmp(v, "YES") == 0 || std::strcmp(v, "yes") == 0) ? 1 : 0;
}
}  // namespace

extern "C" DBAPI int DBInitialize(int maxfiles, char datestyle) {
    DBlog_errs = 0;
    DBdate_style = (datestyle <= 0 || datestyle >= 16) ? 1 : datestyle;
    if (maxfiles <= 4) return here.fail(DBE_BADHANDLE, __LINE__);
    for (DBCLOSEF &c : DBclose) c = nullptr;
    DBbase.p = nullptr;
    DBbase.dfc = 0;
    DBbase.sfc = 0;
    if (maxfiles > 512) maxfiles = 512;
    // Five descriptors stay with the process; handles 0..2 are never given
    // out, so the usable handles are 3 .. n-1.
    const int n = maxfiles - 5;
    void *slots = nullptr;
    if (DBAllocateMemoryLog(&slots, sizeof(DBPACKET) * (n > 0 ? n : 1), here.id, __LINE__) != 0)
        return DBerrno;
    std::memset(slots, 0, sizeof(DBPACKET) * (n > 0 ? n : 1));
    DBbase.p = static_cast<DBPACKET *>(slots);
    void *locks = nullptr;
    if (DBAllocateMemoryLog(&locks, sizeof(DBLOCK) * 2 * (n > 0 ? n : 1), here.id, __LINE__) != 0)
        return DBerrno;
    DBbase.locks = static_cast<DBLOCK *>(locks);
    DBbase.lckused = 0;
    DBbase.maxlcks = static_cast<int16_t>(2 * n);
    DBbase.dmf = static_cast<int16_t>(n);
    DBbase.smf = static_cast<int16_t>(n);
    DBsamba = _switch("DB_SAMBA");
    DBxHarbour = _switch("DB_XHARBOUR");
    return _DBStatus(0);
}

extern "C" DBAPI void DBTerminate(void) {
    for (int h = 0; DBbase.p && h < DBbase.smf; h++) {
        const int type = DBbase.p[h].s;
        if (type <= 0) continue;
        if (type < DBNUMPKTTYPES && DBclose[type]) {
            DBerrno = 0;
            DBclose[type](h);
        }
        // A close that failed (a flush that cannot write, say), or a packet
        // whose family registered no close, leaves its slot; termination
        // frees it anyway, with what it owns, so that nothing the library
        // allocated outlives it. The unwritten changes are lost: there is
        // no one left to report them to.
        if (DBbase.p[h].s != 0) {
            auto *hdr = static_cast<DBPKTHDR *>(DBbase.p[h].p);
            if (hdr && hdr->dh >= 0) close(hdr->dh);
            if (hdr && type == DBPT_DBF) _DBFreeTableBuffers(static_cast<DBDATAPKT *>(DBbase.p[h].p));
            _DBReleaseFilePacket(h);
        }
    }
    if (DBbase.p) DBFreeMemory(DBbase.p, here.id, __LINE__);
    if (DBbase.locks) DBFreeMemory(DBbase.locks, here.id, __LINE__);
    DBbase.p = nullptr;
    DBbase.locks = nullptr;
    DBbase.dmf = DBbase.dfc = DBbase.smf = DBbase.sfc = 0;
    _DBFreeParseTable();
    DBerrno = 0;
}

int _DBAllocNewFilePacket(int *handle, int type, void **packet) {
    if (!handle || !packet) return here.fail(DBE_NULLPARAM, __LINE__);
    int slot = 3;
    while (slot < DBbase.smf && DBbase.p[slot].s != 0) slot++;
    if (slot >= DBbase.smf) {
        *handle = -1;
        return here.fail(DBE_NOHANDLES, __LINE__);
    }
    if (type < 1 || type > 8) return here.fail(DBE_SWITCH, __LINE__);
    void *p = nullptr;
    const size_t size = _DBPacketSize(type);
    if (DBAllocateMemoryLog(&p, size, here.id, __LINE__) != 0) {
        *handle = -1;
        return DBerrno;
    }
    std::memset(p, 0, size);
    static_cast<DBPKTHDR *>(p)->dh = -1;
    DBbase.p[slot].p = p;
    DBbase.p[slot].s = static_cast<int8_t>(type);
    DBbase.sfc++;
    *handle = slot;
    *packet = p;
    return _DBStatus(0);
}

void _DBReleaseFilePacket(int handle) {
    if (handle < 0 || handle >= DBbase.smf || DBbase.p[handle].s == 0) return;
    if (DBbase.p[handle].p) DBFreeMemory(DBbase.p[handle].p, here.id, __LINE__);
    DBbase.p[handle].p = nullptr;
    DBbase.p[handle].s = 0;
    DBbase.sfc--;
}

void *_DBPacketOf(int handle, int type) {
    if (!DBbase.p || handle < 0 || handle >= DBbase.smf) return nullptr;
    if (DBbase.p[handle].s != type) return nullptr;
    return DBbase.p[handle].p;
}

// The table resolver. Beyond the range test it insists on an open table in
// the slot: a free or foreign slot would otherwise hand a null or wrong
// packet to the caller.
int _DBLockDataStruc(int handle) {
    auto *d = static_cast<DBDATAPKT *>(_DBPacketOf(handle, DBPT_DBF));
    if (!d) return here.fail(DBE_BADHANDLE, __LINE__);
    DBxbd = d;
    return _DBStatus(0);
}

extern "C" DBAPI int getDBsamba(void) { return DBsamba; }
extern "C" DBAPI int getDBxHarbour(void) { return DBxHarbour; }
extern "C" DBAPI int DBGetErrorCode(void) { return DBerrno; }
extern "C" DBAPI int DBSetErrorCode(int code) { return DBerrno = code; }

extern "C" DBAPI int DBGetVersion(char *buf) {
    if (!buf) return here.fail(DBE_NULLPARAM, __LINE__);
    std::memcpy(buf, DBvers, sizeof DBvers);
    return 0;
}

extern "C" DBAPI int DBGetFileDescriptor(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    return DBxbd->ph.dh;
}

// ---------------------------------------------------------------------------
// Opening and closing descriptors
// ---------------------------------------------------------------------------

extern "C" DBAPI int DBosOpenFile(int *fd, char *path, int mode, DBOMODE *m) {
    static constexpr DBErrMap map[] = {
        {ENOENT, DBE_NOTFOUND}, {ENXIO, DBE_NOTFOUND}, {EISDIR, DBE_NOTFOUND},
        {EACCES, DBE_ACCESS},   {ETXTBSY, DBE_ACCESS}, {EFAULT, DBE_NOPATH},
        {ENOTDIR, DBE_NOPATH},  {ENFILE, DBE_NOHANDLES}, {EMFILE, DBE_NOHANDLES},
        {EROFS, DBE_READONLY}};
    if (!fd || !path || !m) return here.fail(DBE_NULLPARAM, __LINE__);
    if (!*path || !_DBNameFits(path)) return here.fail(DBE_BADFILENAME, __LINE__);
    m->shared = (mode & DBO_SHARED) != 0;
    m->read_only = (mode & DBO_READONLY) != 0;
    const int r = open(path, m->read_only ? O_RDONLY : O_RDWR);
    if (r < 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    *fd = r;
    return 0;
}

extern "C" DBAPI int DBosCloseFile(int fd) {
    static constexpr DBErrMap map[] = {{EBADF, DBE_BADHANDLE}};
    if (close(fd) != 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    return 0;
}
