// tmark.cpp - the marker of a memo pack in progress, and the repair of a
// pack that a crash interrupted.
//
// A memo pack changes two files that no single system call changes
// together: the memo file (the packed copy replaces it) and the table (its
// memo pointers change to the new block numbers, record by record). So
// before the first of them changes, the pack writes a marker beside the
// table, "<dir><table stem>.MPK", that says how to get back to a matching
// pair from any point, and removes it after the last step:
//
//   1. marker written: state U, work flag 1    the old memo file is kept
//   2. link memo -> backup                     the old file gets a second name
//   3. work flag 0                             the work file is about to go
//   4. rename work -> memo                     the packed file takes the name
//   5. state F                                 from here the packed file is kept
//   6. pointers rewritten
//   7. marker removed, then the backup
//
// An open of the table that finds the marker repairs what it says. In
// state U: the backup, if it is still the old memo file, is renamed back
// over the memo's name (which holds the old file then, or the new one if
// step 4 happened), every pointer is set to its old value, the marker goes,
// and the work file too while its flag says it still has its name. In state
// F: every pointer is set to its new value, the marker goes, then the
// backup. A repair only ever sets a pointer to one known value, so it can
// itself be cut short and run again; a marker cut short while it was
// written (before step 2) fails its check and is simply removed.
//
// After a crash another pack may choose the backup or work name again, and
// a repair must not take that file for ours. The work flag is cleared
// before the work file leaves its name. The backup is recognised by the
// device and inode numbers of the old memo file, kept in the marker: while
// the marker stands that file is alive (under the memo's name or the
// backup's), so no other file can have those numbers; the marker is
// removed before the backup, and a crash between the two leaves only a
// stray backup.
//
// The marker (all numbers little-endian):
//
//   0   8   "XBMEMOPK"
//   8   1   state: 'U' or 'F'
//   9   1   memo family: 'T' DBT, 'W' FPT
//   10  1   work flag: 1 while the work file has its name, else 0
//   11  1   0
//   12  4   number of pointer entries, N
//   16  4   length of the whole marker, L
//   20  16  device and inode numbers of the old memo file (8 bytes each)
//   36  ... four names, each a 2-byte length and its bytes: the table's base
//           name, then the memo file, the work file and the backup, each
//           preceded by 'R' (relative to the table's directory, as the
//           pack named it) or 'A' (as given)
//   ..  16N entries: record, field number, old block, new block (4 bytes each)
//   L-4 4   FNV-1a hash of bytes 0 .. L-5, bytes 8 and 10 counted as 0
#include "dbf.h"
#include "memo.h"
#include "os.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/tmark"};

constexpr char kMagic[8] = {'X', 'B', 'M', 'E', 'M', 'O', 'P', 'K'};
constexpr int kOldId = 20;
constexpr int kFixed = 36;
constexpr size_t kNameCap = 600;

uint32_t _hash(const uint8_t *p, size_t n) {
    uint32_t h = 2166136261u;
    for (size_t i = 0; i < n; i++) h = (h ^ (i == DBMARK_STATE || i == DBMARK_WORK ? 0 : p[i])) * 16777619u;
    return h;
}

// A growing image of the marker.
struct _Image {
    DBOwned<uint8_t> b;
    size_t n = 0, cap = 0;
    int put(const void *p, size_t len) {
        if (n + len > cap) {
            const size_t c = (n + len) * 2;
            void *q = b.release();
            if (DBReAllocateMemory(&q, c, here.id, __LINE__) != 0) {
                b.reset(static_cast<uint8_t *>(q));
                return DBerrno;
            }
            b.reset(static_cast<uint8_t *>(q));
            cap = c;
        }
        std::memcpy(b.get() + n, p, len);
        n += len;
        return 0;
    }
    int put32(uint32_t v) {
        uint8_t x[4];
        _DBStoreLE32(x, v);
        return put(x, 4);
    }
    int putId(const uint64_t id[2]) {
        for (int i = 0; i < 2; i++)
            if (put32(static_cast<uint32_t>(id[i])) != 0 || put32(static_cast<uint32_t>(id[i] >> 32)) != 0)
                return DBerrno;
        return 0;
    }
    int name(char kind, const char *s) {
        const size_t len = std::strlen(s);
        uint8_t x[2];
        _DBStoreLE16(x, static_cast<uint16_t>(len));
        if (kind && put(&kind, 1) != 0) return DBerrno;
        return put(x, 2) == 0 ? put(s, len) : DBerrno;
    }
};

// A name relative to the table's directory when it lies there, so that a
// repair finds it wherever the table is opened from.
int _putPath(_Image &m, const char *table, const char *path) {
    const size_t dir = _DBDirLength(table);
    if (std::strncmp(path, table, dir) == 0) return m.name('R', path + dir);
    return m.name('A', path);
}

// Reading the marker back: each take fails (false) at the end of the data.
struct _Reader {
    const uint8_t *p;
    size_t n, at = kFixed;
    bool name(char *out, const char *tableDir, bool kind) {
        char k = 'R';
        if (kind) {
            if (at >= n) return false;
            k = static_cast<char>(p[at++]);
        }
        if (at + 2 > n) return false;
        const size_t len = _DBLoadLE16(p + at);
        at += 2;
        if (at + len > n || (k != 'R' && k != 'A')) return false;
        const int w = std::snprintf(out, kNameCap, "%s%.*s", k == 'R' ? tableDir : "", static_cast<int>(len),
                                    reinterpret_cast<const char *>(p + at));
        at += len;
        return w >= 0 && static_cast<size_t>(w) < kNameCap;
    }
};

// Whether `name` is still the file whose numbers are at p (marker bytes).
bool _same(const char *name, const uint8_t *p) {
    uint64_t id[2];
    if (!_DBFileId(name, id)) return false;
    for (int i = 0; i < 2; i++)
        if (id[i] != (_DBLoadLE32(p + 8 * i) | static_cast<uint64_t>(_DBLoadLE32(p + 8 * i + 4)) << 32)) return false;
    return true;
}

// Set the pointer of one entry to `block` unless it holds that already.
int _setPointer(DBDATAPKT *d, const DBMEMOREF &e, int32_t block) {
    char want[16], have[16];
    const int w = _DBMemoPointerBytes(e.field, block, want);
    int32_t off = 0;
    if (_DBExistingRecordOffset(d, e.rec, &off) != 0) return DBerrno;
    off += d->f[e.field].a;
    if (_DBosReadAt(d->ph.dh, off, have, w) != 0) return DBerrno;
    if (std::memcmp(have, want, static_cast<size_t>(w)) == 0) return 0;
    // The table was opened read only: the pack cannot be repaired here.
    if (d->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    return _DBWriteAt(here, __LINE__, d->ph.dh, off, want, w, d->ph.flush_disk);
}

// Repair what the marker `mark` of the table DBxbd (opened as `filename`)
// says. A marker that is not whole is removed; one that names another table
// is left alone.
int _repair(char *mark, const char *filename) {
    DBDATAPKT *d = DBxbd;
    int fd = -1;
    DBOMODE m{};
    if (DBosOpenFile(&fd, mark, DBO_READONLY, &m) != 0) return DBerrno;
    int32_t len = 0;
    DBOwned<uint8_t> raw;
    int rc = DBosFileLength(fd, &len);
    if (rc == 0 && raw.alloc(static_cast<size_t>(len) + 1, here.id, __LINE__) != 0) rc = DBerrno;
    if (rc == 0 && DBosReadData(fd, raw.get(), len) != 0) rc = DBerrno;
    DBosCloseFile(fd);
    if (rc != 0) return rc;
    const uint8_t *p = raw.get();
    const bool whole = len >= kFixed + 4 && std::memcmp(p, kMagic, 8) == 0 &&
                       _DBLoadLE32(p + 16) == static_cast<uint32_t>(len) &&
                       _hash(p, static_cast<size_t>(len) - 4) == _DBLoadLE32(p + len - 4);
    if (!whole) {
        // Cut short while it was written: nothing had changed yet.
        DBerrno = 0;
        return _DBosDeleteFile(mark) < 0 ? DBerrno : 0;
    }
    const char state = static_cast<char>(p[DBMARK_STATE]);
    const bool workOurs = p[DBMARK_WORK] == 1;
    const uint32_t count = _DBLoadLE32(p + 12);
    char dir[kNameCap], base[kNameCap], memo[kNameCap], work[kNameCap], backup[kNameCap];
    const size_t cut = _DBDirLength(filename);
    std::snprintf(dir, sizeof dir, "%.*s", static_cast<int>(cut), filename);
    _Reader r{p, static_cast<size_t>(len) - 4};
    if (!r.name(base, "", false) || !r.name(memo, dir, true) || !r.name(work, dir, true) ||
        !r.name(backup, dir, true) || (state != 'U' && state != 'F') || count > (r.n - r.at) / 16 ||
        r.at + 16 * count != r.n)
        return here.fail(DBE_CORRUPT, __LINE__);
    if (std::strcmp(base, filename + cut) != 0) return 0;  // another table's
    DBerrno = 0;
    if (state == 'U' && _same(backup, p + kOldId)) {
        // The old memo file back under its name. Were the two names still
        // the same file, the rename does nothing and the unlink parts them.
        if (_DBosRenameFile(memo, backup) != 0) return DBerrno;
        if (_same(backup, p + kOldId) && _DBosDeleteFile(backup) < 0) return DBerrno;
    }
    for (uint32_t i = 0; i < count; i++) {
        const uint8_t *e = p + r.at + 16 * i;
        const DBMEMOREF ref{static_cast<int32_t>(_DBLoadLE32(e)), static_cast<int32_t>(_DBLoadLE32(e + 4)),
                            static_cast<int32_t>(_DBLoadLE32(e + 8)), static_cast<int32_t>(_DBLoadLE32(e + 12))};
        if (ref.field < 0 || ref.field >= d->nf || !_DBIsMemoField(ref.field))
            return here.fail(DBE_CORRUPT, __LINE__);
        if (_setPointer(d, ref, state == 'U' ? ref.oldb : ref.newb) != 0) return DBerrno;
    }
    // The marker goes before the last file: a crash between leaves a stray
    // file, never a marker naming a file that is no longer ours.
    const bool backupOurs = state == 'F' && _same(backup, p + kOldId);
    if (_DBosDeleteFile(mark) < 0) return DBerrno;
    if (backupOurs) _DBosDeleteFile(backup);
    if (state == 'U' && workOurs) _DBosDeleteFile(work);
    return 0;
}
}  // namespace

int _DBMemoMarkName(char *out, size_t cap, const char *table) {
    if (!_DBSiblingName(out, cap, table, ".MPK")) return here.fail(DBE_BADFILENAME, __LINE__);
    return 0;
}

int _DBMemoMarkWrite(char *mark, bool fpt, const char *table, const char *memo, const char *work,
                     const char *backup, const DBMEMOREFS &refs) {
    _Image m;
    uint64_t old[2];
    if (!_DBFileId(memo, old)) return here.fail(DBE_NOTFOUND, __LINE__);
    const uint8_t head[12] = {'X', 'B', 'M', 'E', 'M', 'O', 'P', 'K', 'U', static_cast<uint8_t>(fpt ? 'W' : 'T'), 1, 0};
    if (m.put(head, sizeof head) != 0 || m.put32(static_cast<uint32_t>(refs.n)) != 0 || m.put32(0) != 0 ||
        m.putId(old) != 0 || m.name(0, table + _DBDirLength(table)) != 0 || _putPath(m, table, memo) != 0 ||
        _putPath(m, table, work) != 0 || _putPath(m, table, backup) != 0)
        return DBerrno;
    for (int32_t i = 0; i < refs.n; i++) {
        const DBMEMOREF &e = refs.a[static_cast<size_t>(i)];
        const int32_t v[4] = {e.rec, e.field, e.oldb, e.newb};
        for (int32_t x : v)
            if (m.put32(static_cast<uint32_t>(x)) != 0) return DBerrno;
    }
    if (m.n + 4 > INT32_MAX) return here.fail(DBE_NOMEMORY, __LINE__);
    _DBStoreLE32(m.b.get() + 16, static_cast<uint32_t>(m.n + 4));
    if (m.put32(_hash(m.b.get(), m.n)) != 0) return DBerrno;
    int fd = -1;
    if (DBosCreateFile(&fd, mark) != 0) return DBerrno;
    DBerrno = 0;
    int rc = DBosWriteData(fd, m.b.get(), static_cast<int>(m.n), 0);
    if (rc != 0) here.log(rc, __LINE__);
    const int crc = DBosCloseFile(fd);
    if (rc == 0) rc = crc;
    if (rc != 0) _DBosDeleteFile(mark);
    return _DBStatus(rc);
}

int _DBMemoMarkByte(char *mark, int at, char value) {
    int fd = -1;
    DBOMODE m{};
    if (DBosOpenFile(&fd, mark, 0, &m) != 0) return DBerrno;
    DBerrno = 0;
    const int rc = _DBWriteAt(here, __LINE__, fd, at, &value, 1, 0);
    const int crc = DBosCloseFile(fd);
    return _DBStatus(rc != 0 ? rc : crc);
}

int _DBMemoPackRecover(char *filename) {
    DBDATAPKT *d = DBxbd;
    char mark[kNameCap];
    if (!_DBSiblingName(mark, sizeof mark, filename, ".MPK") || !_DBIsFileThere(mark)) return 0;
    // Another process may be packing right now: its pack holds the table's
    // file lock from before the marker is written until after it is gone.
    // Without that lock the marker is left to a later open.
    bool locked = false;
    if (d->ph.m.shared) {
        if (_DBLockFile() != 0) return _DBStatus(0);
        locked = true;
    }
    int rc = _DBIsFileThere(mark) ? _repair(mark, filename) : 0;
    if (locked) {
        const int st = DBerrno;
        _DBUnLockAll();
        DBerrno = st;
    }
    return _DBStatus(rc);
}
