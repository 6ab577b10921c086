// Writing CDX and IDX files: Harbour's tags built afresh, Harbour's own file
// changed, and the bytes of what we write.
#include "cdx_util.h"

#include "btree.h"

#include <set>

using cdx::cs;
using cdx::KeyLine;

namespace {

class CdxBuild : public cdx::Suite {
protected:
    void SetUp() override {
        cdx::Suite::SetUp();
        fixture("hbcdx.fpt");
        ASSERT_EQ(DBOpenFile(&t, cs(openableFixture("hbcdx.dbf").c_str()), 4), 0);
    }
    int t = -1;
};

// Every Harbour expression built into a new compound file and into compact
// and non-compact IDX files: each walks like Harbour's dump (a rebuilt tag
// holds equal keys in record order, as Harbour's does); the IDX files
// through a cache of three buffers and of a thousand, and again reopened
// read-only.
TEST_F(CdxBuild, EveryHarbourTagBuiltAfreshWalksLikeItsDump) {
    int h = -1;
    const std::string fresh = path("fresh.cdx");
    ASSERT_EQ(DBfpCreateIndex(cs(fresh.c_str())), 0);
    ASSERT_EQ(DBfpOpenIndex(&h, cs(fresh.c_str()), 0), 0);
    for (const cdx::Tag &s : cdx::kTags)
        ASSERT_EQ(DBfpCreateTag(h, cs(s.name), s.mode(), cs(s.expr), s.keylen, nullptr), 0) << s.name;
    for (const cdx::Tag &s : cdx::kTags) {
        const std::vector<KeyLine> want = cdx::expected(s);
        int tag = -1;
        ASSERT_EQ(DBfpOpenNamedTag(&tag, h, cs(s.name)), 0);
        ASSERT_EQ(DBfpBuildIndex(t, tag), 0) << s.name;
        EXPECT_TRUE(idx::same(cdx::walk(tag), want)) << s.name;
        // DBfpMakeKey of a record gives the key the build stored for it.
        ASSERT_GE(DBGetRecord(t, want[7].rec), 0);
        char key[256];
        ASSERT_EQ(DBfpMakeKey(t, tag, key), 0);
        EXPECT_EQ(std::string(key, static_cast<size_t>(s.keylen)), want[7].key) << s.name;
        cdx::expectSound(tag, want.size(), s.name);
        ASSERT_EQ(DBfpCloseTag(tag), 0);
    }
    cdx::expectSound(h, 6, "directory");
    ASSERT_EQ(DBfpCloseIndex(h), 0);
    for (int compact : {0x400, 0}) {
        for (const cdx::Tag &s : cdx::kTags) {
            const std::vector<KeyLine> want = cdx::expected(s);
            const std::string f = path(std::string(s.name) + (compact ? ".cidx" : ".idx"));
            SCOPED_TRACE(f);
            h = cdx::newIdx(f, s.mode() | compact, s.keylen, s.expr);
            ASSERT_EQ(DBfbBuildIndex(t, h), 0);
            for (short size : {3, 1000}) {
                short got = size;
                ASSERT_EQ(DBfbGetSetCacheSize(h, &got, 0), 0);
                ASSERT_EQ(got, size);
                EXPECT_TRUE(idx::same(cdx::walk(h), want)) << size << " buffers";
            }
            cdx::expectSound(h, want.size(), f);
            ASSERT_EQ(DBfbCloseIndex(h), 0);
            // What a reader of the format sees in the header.
            const std::vector<uint8_t> b = xbt::readFile(f);
            EXPECT_EQ(b[14], (compact ? 0x20 : 0) | (s.unique ? 1 : 0));
            EXPECT_EQ(idx::le16(b, 12), s.keylen);
            if (!compact) EXPECT_EQ(idx::le32(b, 8), b.size()) << "end of file recorded";
            EXPECT_EQ(b.size() % 512, 0u);
            ASSERT_EQ(DBfbOpenIndex(&h, cs(f.c_str()), DBO_READONLY), 0);
            DBfbSetDefaultKeyType(h, s.type);
            EXPECT_TRUE(idx::same(cdx::walk(h, false), want)) << "reopened";
            ASSERT_EQ(DBfbCloseIndex(h), 0);
        }
    }
}

// Harbour's own file changed as a program that edits records changes it:
// each edit deletes the record's old name and adds the new one; a tag is
// added and another deleted; the tags not touched read exactly as before.
// (Changes to tags of every key type, unique too, are RandomChangesMatchTheModel's.)
TEST_F(CdxBuild, HarbourFileChangedLikeRecordsChangeStillMatchesTheModel) {
    const std::string f = fixture("hbcdx.cdx");
    int h = -1;
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), 0), 0);
    int tag = cdx::openTag(h, "byname", 'C');
    idx::Model model(false, true);  // equal keys run by record number, as Harbour keeps them
    for (const KeyLine &l : cdx::expected(cdx::kTags[0])) ASSERT_TRUE(model.add(l.key, l.rec));
    idx::Rng rng(11);
    auto del = [&](char *key, int32_t rec) { return DBfpDeleteKey(tag, key, rec); };
    auto add = [&](char *key, int32_t rec) { return DBfpAddKey(tag, key, rec); };
    auto newName = [&](KeyLine e) {
        e.key[rng.below(20)] = static_cast<char>('A' + rng.below(6));
        return e.key;
    };
    idx::rekey(model, rng, 300, del, add, newName);
    ASSERT_FALSE(HasFatalFailure());
    ASSERT_EQ(DBfpCreateTag(h, cs("byid"), 'N', cs("QTY"), 8, nullptr), 0);
    EXPECT_EQ(DBfpDeleteTag(h, cs("bycity")), 0);
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("bycity")), DBE_TAGNAME);
    ASSERT_EQ(DBfpOpenNamedTag(&tag, h, cs("byid")), 0);
    ASSERT_EQ(DBfpBuildIndex(t, tag), 0);
    EXPECT_EQ(cdx::walk(tag).size(), 300u);
    ASSERT_EQ(DBfpCloseIndex(h), 0);
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), 0), 0);
    for (const cdx::Tag &tg : cdx::kTags) {
        const std::string name = tg.name;
        if (name == "bycity") continue;
        const std::vector<KeyLine> want = name == "byname" ? model.entries() : cdx::expected(tg);
        tag = cdx::openTag(h, name, tg.type);
        EXPECT_TRUE(idx::same(cdx::walk(tag), want)) << name;
        cdx::expectSound(tag, want.size(), name, 0);
    }
    DBINDEXCHECK chk;
    ASSERT_EQ(DBfpCheckTag(h, &chk, 0), 0) << chk.msg;
    EXPECT_EQ(chk.keys, 6);
    EXPECT_GT(chk.free, 0);
    ASSERT_EQ(DBfpCloseIndex(h), 0);
}

TEST_F(CdxBuild, WriteKeysTakesItemsInAnyOrderAndUniqueKeepsTheFirstRecord) {
    for (int unique : {0, 0x80}) {
        const std::string f = path(unique ? "wu.idx" : "w.idx");
        const int h = cdx::newIdx(f, 'C' | 0x400 | unique, 6);
        // Items: a key of 6 bytes, then its record big-endian.
        std::vector<char> items;
        std::set<std::pair<std::string, int32_t>> all;  // by key, then record
        idx::Rng rng(3);
        for (int i = 0; i < 5000; i++) {
            char item[11];
            const int32_t rec = static_cast<int32_t>(1 + rng.below(70000));
            std::snprintf(item, sizeof item, "K%05u", rng.below(900));
            for (int b = 0; b < 4; b++) item[6 + b] = static_cast<char>(rec >> (24 - 8 * b));
            items.insert(items.end(), item, item + 10);
            const std::string key(item, 6);
            all.insert({key, rec});
        }
        std::vector<KeyLine> w;  // unique: the first record of each key in record order
        for (const auto &[key, rec] : all)
            if (!unique || w.empty() || w.back().key != key) w.push_back({rec, key});
        ASSERT_EQ(DBfpWriteKeys(h, items.data(), static_cast<int32_t>(items.size() / 10)), 0);
        EXPECT_TRUE(idx::same(cdx::walk(h), w)) << f;
        cdx::expectSound(h, w.size(), f);
        // Again over the full tree: the old pages are reused, the file does
        // not grow.
        const long before = (DBfpFlushIndex(h), xbt::fileSize(f));
        ASSERT_EQ(DBfpWriteKeys(h, items.data(), static_cast<int32_t>(items.size() / 10)), 0);
        ASSERT_EQ(DBfpFlushIndex(h), 0);
        EXPECT_LE(xbt::fileSize(f), before + 512);
        EXPECT_TRUE(idx::same(cdx::walk(h), w)) << f + " again";
        char bad[10] = {'A', 'A', 'A', 'A', 'A', 'A', 0, 0, 0, 0};
        EXPECT_EQ(DBfpWriteKeys(h, bad, 1), DBE_SEEK);
        EXPECT_EQ(DBfpWriteKeys(h, nullptr, 1), DBE_NULLPARAM);
        ASSERT_EQ(DBfbCloseIndex(h), 0);
    }
}

// Bytes of a new compound file: the directory header and an empty root
// leaf whose masks agree with its widths.
TEST_F(CdxBuild, NewFilesHaveTheLayoutOtherProgramsRead) {
    const std::string f = path("n.cdx");
    ASSERT_EQ(DBfpCreateIndex(cs(f.c_str())), 0);
    std::vector<uint8_t> b = xbt::readFile(f);
    ASSERT_EQ(b.size(), 1536u);
    // Header: root, free list, key length, flags, expression length; the
    // root leaf: attributes, count, both links, free bytes, widths 4 and 4.
    const struct { size_t at; int bytes; uint32_t v; } fields[] = {
        {0, 4, 1024}, {4, 4, 0xFFFFFFFF}, {12, 2, 10}, {14, 1, 0xE0}, {510, 2, 1}, {1024, 2, 3}, {1026, 2, 0},
        {1028, 4, 0xFFFFFFFF}, {1032, 4, 0xFFFFFFFF}, {1036, 2, 488}, {1045, 1, 4}, {1046, 1, 4}};
    for (const auto &fd : fields)
        EXPECT_EQ(fd.bytes == 4 ? idx::le32(b, fd.at) : fd.bytes == 2 ? idx::le16(b, fd.at) : b[fd.at], fd.v) << fd.at;
    EXPECT_EQ(idx::le32(b, 1038), (1u << b[1044]) - 1);  // the record mask agrees with its width
    EXPECT_EQ(b[1044] + b[1045] + b[1046], 8 * b[1047]);
    int h = -1;
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), 0), 0);
    ASSERT_EQ(DBfpCreateTag(h, cs("Names"), 'c', cs("  LEFT(NAME,'4')"), 4, cs("ACTIVE")), 0);
    int tag = -1;
    ASSERT_EQ(DBfpOpenNamedTag(&tag, h, cs("NAMES")), 0);
    DBFBINDEXINFO info;
    ASSERT_EQ(DBfbGetIndexInfo(tag, &info), 0);
    EXPECT_STREQ(info.expr, "LEFT(NAME,\"4\")");
    EXPECT_STREQ(info.forexpr, "ACTIVE");
    EXPECT_EQ(info.ftype, 0x68);
    ASSERT_EQ(DBfpCloseIndex(h), 0);
    EXPECT_EQ(idx::le16(xbt::readFile(f), 1026), 1);  // the directory's one entry
}

}  // namespace
