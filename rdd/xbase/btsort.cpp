// btsort.cpp - the bulk build's sorter and page writer, shared by every index
// family. Keys are sorted in memory while they fit the budget; beyond it,
// sorted runs go to a temporary file beside the index and are merged. The
// index written is the same either way: only the memory used differs.
#include "btree.h"
#include "os.h"

#include <unistd.h>

#include <cstdio>

size_t DBsort_budget = static_cast<size_t>(64) << 20;

namespace {
constexpr DBSite here{"rdd/xbase/btsort"};

constexpr int32_t kFirstItems = 4096;      // arena size to start with, in items
constexpr int kRunBufferBytes = 1 << 16;   // per-run read buffer while merging, at most
constexpr int kSpillChunk = 1 << 16;       // write size while spilling

uint64_t _prefix(const char *p, int il) {
    uint64_t v = 0;
    const int n = il < 8 ? il : 8;
    for (int i = 0; i < 8; i++) v = (v << 8) | (i < n ? static_cast<uint8_t>(p[i]) : 0u);
    return v;
}
}  // namespace

bool DBKeySorter::less(const char *a, const char *b) const { return std::memcmp(a, b, static_cast<size_t>(il_)) < 0; }

int DBKeySorter::open(int itemlen, int unique_len, const char *index) {
    close();
    il_ = itemlen;
    ul_ = unique_len;
    const size_t per = static_cast<size_t>(itemlen) + sizeof(Ref);
    size_t cap = DBsort_budget / per;
    if (cap < 16) cap = 16;
    if (cap > 0x3FFFFFFF) cap = 0x3FFFFFFF;
    capItems_ = static_cast<int32_t>(cap);
    // The temporary file goes beside the index: the name's folder part, up to
    // and including its last ':', '\' or '/'.
    size_t dir = 0;
    for (size_t i = 0; index && index[i]; i++)
        if (index[i] == ':' || index[i] == '\\' || index[i] == '/') dir = i + 1;
    if (dir > sizeof name_ - 32) return here.fail(DBE_BADFILENAME, __LINE__);
    if (dir) std::memcpy(name_, index, dir);
    name_[dir] = '\0';
    return 0;
}

int DBKeySorter::add(const void *item) {
    if (count_ == capItems_ && spill() != 0) return DBerrno;
    if (count_ == arenaItems_) {
        int32_t grow = arenaItems_ == 0 ? kFirstItems : arenaItems_ * 2;
        if (grow > capItems_) grow = capItems_;
        void *p = arena_;
        const size_t bytes = static_cast<size_t>(grow) * static_cast<size_t>(il_);
        if ((p ? DBReAllocateMemory(&p, bytes, here.id, __LINE__)
               : DBAllocateMemoryLog(&p, bytes, here.id, __LINE__)) != 0) {
            // Short of memory for a larger arena: spill what there is and go on
            // in the arena we have.
            if (count_ == 0 || spill() != 0) return here.fail(DBE_NOMEMORY, __LINE__);
            DBerrno = 0;
        } else {
            arena_ = static_cast<char *>(p);
            arenaItems_ = grow;
        }
    }
    std::memcpy(arena_ + static_cast<size_t>(count_) * il_, item, static_cast<size_t>(il_));
    count_++;
    added_++;
    return 0;
}

int DBKeySorter::sortMemory() {
    if (refs_) DBFreeMemory(refs_, here.id, __LINE__);
    refs_ = nullptr;
    void *p = nullptr;
    if (DBAllocateMemoryLog(&p, static_cast<size_t>(count_ > 0 ? count_ : 1) * sizeof(Ref), here.id, __LINE__) != 0)
        return DBerrno;
    refs_ = static_cast<Ref *>(p);
    // Bytes every item shares with the first (a common prefix such as
    // "CUSTOMER ") decide nothing: the eight bytes compared as one integer
    // are taken after them.
    int skip = il_;
    for (int32_t i = 1; i < count_ && skip > 0; i++) {
        const char *it = arena_ + static_cast<size_t>(i) * il_;
        int s = 0;
        while (s < skip && it[s] == arena_[s]) s++;
        skip = s;
    }
    if (count_ < 2) skip = 0;
    const int tail = il_ - skip;
    for (int32_t i = 0; i < count_; i++) {
        const char *it = arena_ + static_cast<size_t>(i) * il_;
        refs_[i] = Ref{_prefix(it + skip, tail), it};
    }
    // Most keys differ in those eight bytes, so most comparisons are one
    // integer compare; the rest compare the remaining bytes.
    const int from = skip + 8;
    const int rest = il_ > from ? il_ - from : 0;
    std::sort(refs_, refs_ + count_, [from, rest](const Ref &a, const Ref &b) {
        if (a.pfx != b.pfx) return a.pfx < b.pfx;
        return rest > 0 && std::memcmp(a.p + from, b.p + from, static_cast<size_t>(rest)) < 0;
    });
    pos_ = 0;
    return 0;
}

int DBKeySorter::spill() {
    if (sortMemory() != 0) return DBerrno;
    if (fd_ < 0) {
        const size_t dir = std::strlen(name_);
        for (int n = 0;; n++) {
            std::snprintf(name_ + dir, sizeof name_ - dir, "STKS%d.TMP", n);
            if (!_DBIsFileThere(name_)) break;
            if (n == 9999) return here.fail(DBE_NOHANDLES, __LINE__);
        }
        if (DBosCreateFile(&fd_, name_) != 0) {
            fd_ = -1;
            name_[dir] = '\0';
            return here.fail(DBerrno, __LINE__);
        }
        // creat() gives a descriptor for writing only, and the runs are read
        // back in the merge: close it and open the file for both.
        DBosCloseFile(fd_);
        DBOMODE m{};
        if (DBosOpenFile(&fd_, name_, 0, &m) != 0) {
            fd_ = -1;
            _DBosDeleteFile(name_);
            name_[dir] = '\0';
            return here.fail(DBerrno, __LINE__);
        }
    }
    if (runs_ == runCap_) {
        const int cap = runCap_ ? runCap_ * 2 : 16;
        void *p = run_;
        const size_t bytes = static_cast<size_t>(cap) * sizeof(Run);
        if ((p ? DBReAllocateMemory(&p, bytes, here.id, __LINE__) : DBAllocateMemoryLog(&p, bytes, here.id, __LINE__)) != 0)
            return DBerrno;
        run_ = static_cast<Run *>(p);
        runCap_ = cap;
    }
    const int64_t bytes = static_cast<int64_t>(count_) * il_;
    if (fileEnd_ + bytes > INT32_MAX) return here.fail(DBE_WRITE, __LINE__);
    run_[runs_] = Run{fileEnd_, count_, nullptr, 0, 0, 0};
    runs_++;
    // Write the run in order, gathered into chunks.
    char chunk[kSpillChunk];
    int used = 0;
    for (int32_t i = 0; i < count_; i++) {
        if (used + il_ > kSpillChunk) {
            if (_DBosWriteAt(fd_, fileEnd_, chunk, used, 0) != 0) return here.fail(DBerrno, __LINE__);
            fileEnd_ += used;
            used = 0;
        }
        std::memcpy(chunk + used, refs_[i].p, static_cast<size_t>(il_));
        used += il_;
    }
    if (used > 0) {
        if (_DBosWriteAt(fd_, fileEnd_, chunk, used, 0) != 0) return here.fail(DBerrno, __LINE__);
        fileEnd_ += used;
    }
    count_ = 0;
    DBFreeMemory(refs_, here.id, __LINE__);
    refs_ = nullptr;
    return 0;
}

int DBKeySorter::refill(int r) {
    Run &u = run_[r];
    const int32_t n = u.left < u.cap ? u.left : u.cap;
    u.pos = 0;
    u.have = n;
    if (n == 0) return 0;
    if (_DBosReadAt(fd_, u.at, u.buf, n * il_) != 0) return here.fail(DBerrno, __LINE__);
    u.at += n * il_;
    u.left -= n;
    return 0;
}

int DBKeySorter::finish() {
    if (runs_ == 0) return sortMemory();
    if (count_ > 0 && spill() != 0) return DBerrno;
    // The arena is no longer needed; its memory goes to the run buffers.
    if (arena_) DBFreeMemory(arena_, here.id, __LINE__);
    arena_ = nullptr;
    arenaItems_ = 0;
    size_t per = DBsort_budget / static_cast<size_t>(runs_);
    if (per > static_cast<size_t>(kRunBufferBytes)) per = kRunBufferBytes;
    int32_t items = static_cast<int32_t>(per / static_cast<size_t>(il_));
    if (items < 1) items = 1;
    void *h = nullptr;
    if (DBAllocateMemoryLog(&h, static_cast<size_t>(runs_) * sizeof(int), here.id, __LINE__) != 0) return DBerrno;
    heap_ = static_cast<int *>(h);
    heapN_ = 0;
    for (int r = 0; r < runs_; r++) {
        void *b = nullptr;
        if (DBAllocateMemoryLog(&b, static_cast<size_t>(items) * il_, here.id, __LINE__) != 0) return DBerrno;
        run_[r].buf = static_cast<char *>(b);
        run_[r].cap = items;
        if (refill(r) != 0) return DBerrno;
        // Sift the run's first item up into the heap.
        int i = heapN_++;
        heap_[i] = r;
        while (i > 0) {
            const int up = (i - 1) / 2;
            if (!less(run_[heap_[i]].buf, run_[heap_[up]].buf)) break;
            std::swap(heap_[i], heap_[up]);
            i = up;
        }
    }
    merging_ = true;
    return 0;
}

int DBKeySorter::nextRaw(const char **item) {
    if (!merging_) {
        if (pos_ >= count_) return DBW_NOMOREKEYS;
        *item = refs_[pos_++].p;
        return 0;
    }
    // The run handed out last moves on to its next item first; its buffer is
    // refilled only now, when the caller is done with that item.
    if (pending_ >= 0) {
        Run &u = run_[pending_];
        u.pos++;
        if (u.pos >= u.have && refill(pending_) != 0) return DBerrno;
        if (u.have == 0) {
            heap_[0] = heap_[--heapN_];
        }
        // Sift the root down.
        int i = 0;
        for (;;) {
            const int l = 2 * i + 1, r = l + 1;
            int m = i;
            if (l < heapN_ && less(run_[heap_[l]].buf + run_[heap_[l]].pos * il_, run_[heap_[m]].buf + run_[heap_[m]].pos * il_)) m = l;
            if (r < heapN_ && less(run_[heap_[r]].buf + run_[heap_[r]].pos * il_, run_[heap_[m]].buf + run_[heap_[m]].pos * il_)) m = r;
            if (m == i) break;
            std::swap(heap_[i], heap_[m]);
            i = m;
        }
        pending_ = -1;
    }
    if (heapN_ == 0) return DBW_NOMOREKEYS;
    const Run &u = run_[heap_[0]];
    *item = u.buf + u.pos * il_;
    pending_ = heap_[0];
    return 0;
}

int DBKeySorter::next(const char **item) {
    for (;;) {
        const int rc = nextRaw(item);
        if (rc != 0) return rc;
        if (ul_ <= 0) return 0;
        // A unique index keeps the first record of each key.
        if (haveLast_ && std::memcmp(last_, *item, static_cast<size_t>(ul_)) == 0) continue;
        std::memcpy(last_, *item, static_cast<size_t>(ul_));
        haveLast_ = true;
        return 0;
    }
}

void DBKeySorter::close() {
    if (arena_) DBFreeMemory(arena_, here.id, __LINE__);
    if (refs_) DBFreeMemory(refs_, here.id, __LINE__);
    for (int r = 0; r < runs_; r++)
        if (run_[r].buf) DBFreeMemory(run_[r].buf, here.id, __LINE__);
    if (run_) DBFreeMemory(run_, here.id, __LINE__);
    if (heap_) DBFreeMemory(heap_, here.id, __LINE__);
    if (fd_ >= 0) {
        ::close(fd_);
        _DBosDeleteFile(name_);
    }
    arena_ = nullptr;
    refs_ = nullptr;
    run_ = nullptr;
    heap_ = nullptr;
    fd_ = -1;
    runs_ = runCap_ = heapN_ = 0;
    count_ = pos_ = arenaItems_ = 0;
    added_ = 0;
    merging_ = haveLast_ = false;
    pending_ = -1;
}

// ---------------------------------------------------------------------------
// Page writer
// ---------------------------------------------------------------------------

DBPageWriter::~DBPageWriter() {
    if (buf_) DBFreeMemory(buf_, here.id, __LINE__);
}

int DBPageWriter::open(int fd, int pagesize, int pages) {
    fd_ = fd;
    ps_ = pagesize;
    n_ = 0;
    void *p = nullptr;
    // Without the memory for a large buffer, pages go out one at a time.
    while (pages > 1 && DBAllocateMemoryLog(&p, static_cast<size_t>(pages) * pagesize, here.id, __LINE__) != 0) pages /= 4;
    if (!p && DBAllocateMemoryLog(&p, static_cast<size_t>(pagesize), here.id, __LINE__) != 0) return DBerrno;
    DBerrno = 0;
    buf_ = static_cast<char *>(p);
    cap_ = pages > 1 ? pages : 1;
    return 0;
}

int DBPageWriter::put(int32_t off, const void *page) {
    if (n_ > 0 && (n_ == cap_ || off != at_ + n_ * ps_) && flush() != 0) return DBerrno;
    if (n_ == 0) at_ = off;
    std::memcpy(buf_ + static_cast<size_t>(n_) * ps_, page, static_cast<size_t>(ps_));
    n_++;
    return 0;
}

int DBPageWriter::flush() {
    if (n_ == 0) return 0;
    const int rc = _DBosWriteAt(fd_, at_, buf_, n_ * ps_, 0);
    n_ = 0;
    return rc != 0 ? here.fail(rc, __LINE__) : 0;
}
