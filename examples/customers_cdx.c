/* customers_cdx.c - a compound index kept beside a customers table: a CDX
 * file with two tags (by name, and by city then name), both kept in step as
 * records are appended and changed, and lookups by either tag. Plain C99
 * against xbfiles.h only. */
#include <stdio.h>
#include <string.h>

#include "xbfiles.h"

static char table[] = "custidx.dbf";
static char index_file[] = "custidx.cdx";

#define CHECK(call)                                                            \
    do {                                                                       \
        int rc_ = (call);                                                      \
        if (rc_ < 0) {                                                         \
            printf("%s failed: %d, \"%s\"\n", #call, rc_, DBGetErrorStr());  \
            DBTerminate();                                                     \
            return 1;                                                          \
        }                                                                      \
    } while (0)

static const char *const rows[][2] = {
    {"Ada Lovelace", "London"}, {"Blaise Pascal", "Paris"},    {"Carl Gauss", "Brunswick"},
    {"Dorothy Hodgkin", "Oxford"}, {"Emmy Noether", "Erlangen"}, {"Alan Turing", "London"},
};

/* The keys of the current record for both tags. */
static int keys(int h, int byname, int bycity, char *name, char *city)
{
    int rc = DBfpMakeKey(h, byname, name);
    if (rc < 0) return rc;
    return DBfpMakeKey(h, bycity, city);
}

/* Walk a tag from first to last, printing each record's name and city. */
static int list(int h, int tag, const char *title)
{
    char key[64], name[32], city[32];
    int32_t recno = 0;
    int rc;
    printf("%s:\n", title);
    for (rc = DBfpGoFirstKey(tag, key, &recno); rc == 0; rc = DBfpGoNextKey(tag, key, &recno)) {
        if ((rc = DBGetRecord(h, recno)) < 0) return rc;
        DBGetStrField(h, 0, name);
        DBGetStrField(h, 1, city);
        printf("  %2ld  %-16s %s\n", (long)recno, name, city);
    }
    return rc == DBW_NOMOREKEYS ? 0 : rc;
}

int main(void)
{
    DBFIELD fields[2];
    int h = -1, cdx = -1, byname = -1, bycity = -1, i;
    int32_t recno = 0;
    char name[64], city[64], oldname[64], oldcity[64], key[64];
    char moved[] = "Hanover";

    CHECK(DBInitialize(20, 2));
    memset(fields, 0, sizeof fields);
    strcpy(fields[0].name, "name"); fields[0].type = 'C'; fields[0].len = 16;
    strcpy(fields[1].name, "city"); fields[1].type = 'C'; fields[1].len = 12;
    CHECK(DBCreateFile(table, 2, fields, 4)); /* style 4: FoxPro */
    CHECK(DBOpenFile(&h, table, 4));

    /* 1. The compound file and its two tags. */
    CHECK(DBfpCreateIndex(index_file));
    CHECK(DBfpOpenIndex(&cdx, index_file, 0));
    CHECK(DBfpCreateTag(cdx, "byname", 'C', "UPPER(NAME)", 16, NULL));
    CHECK(DBfpCreateTag(cdx, "bycity", 'C', "UPPER(CITY)+UPPER(NAME)", 28, NULL));
    CHECK(DBfpOpenNamedTag(&byname, cdx, "byname"));
    CHECK(DBfpOpenNamedTag(&bycity, cdx, "bycity"));
    /* The file does not say what type a key is: name it. */
    CHECK(DBfpSetDefaultKeyType(byname, 'C'));
    CHECK(DBfpSetDefaultKeyType(bycity, 'C'));
    printf("created %s with tags BYNAME and BYCITY\n", index_file);

    /* 2. Append records; each gets its key in both tags. */
    for (i = 0; i < 6; i++) {
        char n[32], c[32];
        strcpy(n, rows[i][0]);
        strcpy(c, rows[i][1]);
        CHECK(DBClearBuffer(h));
        CHECK(DBPutStrField(h, 0, n));
        CHECK(DBPutStrField(h, 1, c));
        CHECK(DBPutRecord(h, &recno, DB_APPEND));
        CHECK(keys(h, byname, bycity, name, city));
        CHECK(DBfpAddKey(byname, name, recno));
        CHECK(DBfpAddKey(bycity, city, recno));
    }
    CHECK(list(h, byname, "by name"));
    CHECK(list(h, bycity, "by city, then name"));

    /* 3. A record changes: the old keys go, the new ones come. */
    recno = 3;
    CHECK(DBGetRecord(h, recno));
    CHECK(keys(h, byname, bycity, oldname, oldcity));
    CHECK(DBPutStrField(h, 1, moved));
    CHECK(DBPutRecord(h, &recno, DB_REWRITE));
    CHECK(keys(h, byname, bycity, name, city));
    CHECK(DBfpDeleteKey(byname, oldname, recno));
    CHECK(DBfpAddKey(byname, name, recno));
    CHECK(DBfpDeleteKey(bycity, oldcity, recno));
    CHECK(DBfpAddKey(bycity, city, recno));
    printf("record 3 moved to %s\n", moved);
    CHECK(list(h, bycity, "by city, then name"));

    /* 4. Lookups by either tag: an exact name, and everyone in London (a
     * prefix of the city tag's key). */
    strcpy(key, "EMMY NOETHER");
    if (DBfpKeySearch(byname, key, &recno, 1) == 0) {
        CHECK(DBGetRecord(h, recno));
        DBGetStrField(h, 1, city);
        printf("found EMMY NOETHER in record %ld, city %s\n", (long)recno, city);
    }
    strcpy(key, "LONDON");
    printf("in LONDON:");
    if (DBfpKeySearch(bycity, key, &recno, 1) == 0) {
        do {
            CHECK(DBGetRecord(h, recno));
            DBGetStrField(h, 0, name);
            printf(" %s (record %ld);", name, (long)recno);
        } while (DBfpGoNextKey(bycity, key, &recno) == 0 && strncmp(key, "LONDON", 6) == 0);
    }
    printf("\n");

    CHECK(DBfpCloseIndex(cdx));
    CHECK(DBCloseFile(h));
    DBTerminate();
    printf("closed and terminated\n");
    return 0;
}
