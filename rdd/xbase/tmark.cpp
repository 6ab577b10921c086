// tmark.cpp - the marker of a memo pack or a structure change in progress,
// and the repair of one that a crash interrupted.
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
//
// A structure change (DBModifyFile) replaces the table wholesale, and with it
// the memo file when either table has memo fields: the old memo file may be
// replaced, dropped, or there may be none yet. Nothing in the table needs
// rewriting afterwards, so no pointer entries: which table stands under the
// table's name tells the repair which pair to make whole. The old files keep
// their backup names ("<stem>.BAK", "<stem>.TBK") for good, as second names.
//
//   1. older backups removed, marker written (family 'S')
//   2. link table -> backup, memo -> memo backup     second names, still the old pair
//   3. rename work table -> table                    the new table is in place
//   4. rename work memo -> memo (or unlink memo)     the new memo file too
//   5. marker removed
//
// The repair finds the new table under the table's name (by its device and
// inode numbers) after step 3: it finishes step 4 and removes the marker.
// Otherwise it undoes: the backup names, second names of files still in
// use, go, then the marker, then the work files. A failure that is
// reported in step 4 renames the backup over the table's name, which turns
// the same repair from finishing into undoing. A table alone (no memo file
// on either side) is the pack's hand-over: one rename, no marker.
//
// The structure marker: bytes 0-19 as above with state 'F', family 'S',
// work flag 0, byte 11 the memo files (1 an old one is replaced or dropped,
// 2 a new one comes), N = 0; then the device and inode numbers of the old
// table (20), the new table (36), the old memo file (52) and the new one
// (68), 0 where there is none; from 84 the table's base name and, each with
// 'R' or 'A', the work table, the backup, the memo file, the work memo file
// and the memo backup; the hash last.
#include "dbf.h"
#include "memo.h"
#include "os.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/tmark"};

constexpr char kMagic[8] = {'X', 'B', 'M', 'E', 'M', 'O', 'P', 'K'};
constexpr int kOldId = 20;
constexpr int kFixed = 36;
// The structure marker's ids and where its names begin.
constexpr int kTableOld = 20, kTableNew = 36, kMemoOld = 52, kMemoNew = 68, kSwapFixed = 84;
constexpr uint8_t kSwapOldMemo = 1, kSwapNewMemo = 2;
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
    size_t n, at;
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

// Seal the image (length, hash) and write it as the marker file `mark`.
// A marker that could not be written whole is removed again.
int _store(char *mark, _Image &m) {
    if (m.n + 4 > INT32_MAX) return here.fail(DBE_NOMEMORY, __LINE__);
    _DBStoreLE32(m.b.get() + 16, static_cast<uint32_t>(m.n + 4));
    if (m.put32(_hash(m.b.get(), m.n)) != 0) return DBerrno;
    int fd = -1;
    if (DBosCreateFile(&fd, mark) != 0) return DBerrno;
    DBerrno = 0;
    int rc = DBosWriteData(fd, m.b.get(), static_cast<int>(m.n), 0);
    if (rc != 0) here.log(rc, __LINE__);
    // On the disk before the first file changes its name, so that a power
    // loss, not only a crash, leaves a marker the repair can use. The file
    // layer's flush makes no sync (writes reach the system at once, which
    // is all a crash needs): this one file asks for it itself. A file
    // system that cannot sync (EINVAL) keeps what a crash needs.
    if (rc == 0 && fsync(fd) != 0 && errno != EINVAL) rc = here.fail(DBE_FLUSH, __LINE__);
    const int crc = DBosCloseFile(fd);
    if (rc == 0) rc = crc;
    if (rc != 0) _DBosDeleteFile(mark);
    return _DBStatus(rc);
}

// Repair a structure change from its marker (p, len bytes, whole and
// checked): finish it when the new table stands under `filename`, else
// undo it (the steps at the top of this file).
int _repairSwap(char *mark, const char *filename, const uint8_t *p, int32_t len) {
    char dir[kNameCap], base[kNameCap], work[kNameCap], backup[kNameCap], memo[kNameCap], mwork[kNameCap],
        mbackup[kNameCap];
    const size_t cut = _DBDirLength(filename);
    std::snprintf(dir, sizeof dir, "%.*s", static_cast<int>(cut), filename);
    _Reader r{p, static_cast<size_t>(len) - 4, kSwapFixed};
    if (len < kSwapFixed + 4 || !r.name(base, "", false) || !r.name(work, dir, true) || !r.name(backup, dir, true) ||
        !r.name(memo, dir, true) || !r.name(mwork, dir, true) || !r.name(mbackup, dir, true) || r.at != r.n ||
        _DBLoadLE32(p + 12) != 0)
        return here.fail(DBE_CORRUPT, __LINE__);
    if (std::strcmp(base, filename + cut) != 0) return 0;  // another table's
    const uint8_t memos = p[11];
    DBerrno = 0;
    if (_same(filename, p + kTableNew)) {
        if ((memos & kSwapNewMemo) && _same(mwork, p + kMemoNew)) {
            if (_DBosRenameFile(memo, mwork) != 0) return DBerrno;
        } else if (!(memos & kSwapNewMemo) && (memos & kSwapOldMemo) && _same(memo, p + kMemoOld)) {
            if (_DBosDeleteFile(memo) < 0) return DBerrno;
        }
        return _DBosDeleteFile(mark) < 0 ? DBerrno : _DBStatus(0);
    }
    // The backups are second names of the files still in use; the work
    // files are recognised before the marker goes and removed after it.
    const bool workOurs = _same(work, p + kTableNew);
    const bool mworkOurs = (memos & kSwapNewMemo) && _same(mwork, p + kMemoNew);
    if (_same(backup, p + kTableOld) && _DBosDeleteFile(backup) < 0) return DBerrno;
    if ((memos & kSwapOldMemo) && _same(mbackup, p + kMemoOld) && _DBosDeleteFile(mbackup) < 0) return DBerrno;
    if (_DBosDeleteFile(mark) < 0) return DBerrno;
    if (workOurs) _DBosDeleteFile(work);
    if (mworkOurs) _DBosDeleteFile(mwork);
    return _DBStatus(0);
}

// Write the structure marker for swap s.
int _swapMarkWrite(char *mark, const DBTABLESWAP &s) {
    uint64_t ids[4][2] = {};
    if (!_DBFileId(s.table, ids[0]) || !_DBFileId(s.work, ids[1]) || (s.memoOld && !_DBFileId(s.memo, ids[2])) ||
        (s.memoNew && !_DBFileId(s.memoWork, ids[3])))
        return here.fail(DBE_NOTFOUND, __LINE__);
    const uint8_t memos = static_cast<uint8_t>((s.memoOld ? kSwapOldMemo : 0) | (s.memoNew ? kSwapNewMemo : 0));
    const uint8_t head[12] = {'X', 'B', 'M', 'E', 'M', 'O', 'P', 'K', 'F', 'S', 0, memos};
    _Image m;
    if (m.put(head, sizeof head) != 0 || m.put32(0) != 0 || m.put32(0) != 0) return DBerrno;
    for (const auto &id : ids)
        if (m.putId(id) != 0) return DBerrno;
    const char *t = s.table;
    if (m.name(0, t + _DBDirLength(t)) != 0 || _putPath(m, t, s.work) != 0 || _putPath(m, t, s.backup) != 0 ||
        _putPath(m, t, s.memo) != 0 || _putPath(m, t, s.memoNew ? s.memoWork : "") != 0 ||
        _putPath(m, t, s.memoBackup) != 0)
        return DBerrno;
    return _store(mark, m);
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
    if (p[9] == 'S') return _repairSwap(mark, filename, p, len);
    const char state = static_cast<char>(p[DBMARK_STATE]);
    const bool workOurs = p[DBMARK_WORK] == 1;
    const uint32_t count = _DBLoadLE32(p + 12);
    char dir[kNameCap], base[kNameCap], memo[kNameCap], work[kNameCap], backup[kNameCap];
    const size_t cut = _DBDirLength(filename);
    std::snprintf(dir, sizeof dir, "%.*s", static_cast<int>(cut), filename);
    _Reader r{p, static_cast<size_t>(len) - 4, kFixed};
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
    return _store(mark, m);
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

int _DBTableSwap(const DBTABLESWAP &s) {
    const bool pair = s.memoOld || s.memoNew;
    auto dropWork = [&s](int rc) {
        _DBosDeleteFile(s.work);
        if (s.memoNew) _DBosDeleteFile(s.memoWork);
        return _DBStatus(rc);
    };
    char mark[kNameCap];
    if (_DBMemoMarkName(mark, sizeof mark, s.table) != 0) return dropWork(DBerrno);
    // A table named like its own backup, marker or memo file ("X.BAK") would
    // be removed as the older backup.
    if (_DBSwapNamesClash(s.table, s.backup, s.memoBackup, mark, (s.memoOld || s.memoNew) ? s.memo : nullptr))
        return dropWork(here.fail(DBE_BADFILENAME, __LINE__));
    // Another change's marker, unfinished: the next open of the table
    // that gets the file lock repairs it first.
    if (_DBIsFileThere(mark)) return dropWork(here.fail(DBE_ACCESS, __LINE__));
    // An older backup is replaced (a missing one is no error).
    DBerrno = 0;
    if (_DBosDeleteFile(s.backup) < 0) return dropWork(DBerrno);
    if (s.memoOld && _DBosDeleteFile(s.memoBackup) < 0) return dropWork(DBerrno);
    if (pair && _swapMarkWrite(mark, s) != 0) return dropWork(DBerrno);
    DBerrno = 0;
    int rc = _DBosLinkFile(s.backup, s.table);
    const bool linked = rc == 0;
    bool mlinked = false;
    if (rc == 0 && s.memoOld) mlinked = (rc = _DBosLinkFile(s.memoBackup, s.memo)) == 0;
    if (rc == 0) rc = _DBosRenameFile(s.table, s.work);
    if (rc != 0) {
        // Still the old pair: the second names go, and the marker once they
        // have gone (else the next open removes them by it).
        bool clean = !linked || _DBosDeleteFile(s.backup) >= 0;
        if (mlinked && _DBosDeleteFile(s.memoBackup) < 0) clean = false;
        if (pair && clean && _DBosDeleteFile(mark) < 0) clean = false;
        here.fail(rc, __LINE__);
        return clean ? dropWork(rc) : rc;
    }
    if (!pair) return _DBStatus(0);
    rc = s.memoNew ? _DBosRenameFile(s.memo, s.memoWork) : s.memoOld ? _DBosDeleteFile(s.memo) : 0;
    if (rc < 0) {
        // The new table without its memo file: the old table goes back
        // under its name, and the repair that the marker allows becomes an
        // undo. Should even that rename fail, the marker stays and the next
        // open finishes the change instead.
        const int why = rc;
        if (_DBosRenameFile(s.table, s.backup) == 0 && (!mlinked || _DBosDeleteFile(s.memoBackup) >= 0) &&
            _DBosDeleteFile(mark) >= 0 && s.memoNew)
            _DBosDeleteFile(s.memoWork);
        return here.fail(why, __LINE__);
    }
    // Done. A marker that will not go is finished by the next open.
    if (_DBosDeleteFile(mark) < 0) here.log(DBerrno, __LINE__);
    return _DBStatus(0);
}

bool _DBSwapNamesClash(const char *table, const char *backup, const char *memoBackup, const char *mark,
                       const char *memo) {
    // Letter case aside: on the file systems that ignore it these are one name.
    const char *other[] = {backup, memoBackup, mark, memo};
    for (const char *o : other)
        if (o && _DBstricmp(table, o) == 0) return true;
    return memo && (_DBstricmp(memo, backup) == 0 || _DBstricmp(memo, memoBackup) == 0 || _DBstricmp(memo, mark) == 0);
}
