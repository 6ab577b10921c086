/* lookup.c - finding records through an NTX index: build an index on the
 * customers' names, find one customer by name, rename her while keeping the
 * index in step (delete the old key, write the record, add the new key), and
 * walk the index to list the customers in name order. Plain C99 against
 * xbfiles.h only. */
#include <stdio.h>
#include <string.h>

#include "xbfiles.h"

static char table[] = "people.dbf";
static char index_file[] = "people.ntx";

#define CHECK(call)                                                            \
    do {                                                                       \
        int rc_ = (call);                                                      \
        if (rc_ < 0) {                                                         \
            printf("%s failed: %d, \"%s\"\n", #call, rc_, DBGetErrorStr());  \
            DBTerminate();                                                     \
            return 1;                                                          \
        }                                                                      \
    } while (0)

static const char *const names[] = {"Noether", "Lovelace", "Hopper", "Curie",
                                    "Franklin", "Meitner", "Germain", "Hypatia"};
static const char *const cities[] = {"Erlangen", "London", "New York", "Paris",
                                     "London", "Vienna", "Paris", "Alexandria"};

/* Print every entry of the index in key order, with the record it names. */
static int list(int t, int ix)
{
    char key[32], city[16];
    int32_t recno = 0;
    int rc = DBclGoFirstKey(ix, key, &recno);
    while (rc == 0) {
        if ((rc = DBGetRecord(t, recno)) < 0) return rc;
        if ((rc = DBGetStrField(t, 1, city)) < 0) return rc;
        printf("  %s  record %ld, %s\n", key, (long)recno, city);
        rc = DBclGoNextKey(ix, key, &recno);
    }
    return rc == DBW_NOMOREKEYS ? 0 : rc;
}

int main(void)
{
    DBFIELD fields[2];
    int t = -1, i;
    short ix = -1;
    int32_t recno = 0;
    char key[32], name[32], *made = NULL;

    /* A four-digit date style, so that index keys of dates keep their
     * century. */
    CHECK(DBInitialize(20, 2));
    memset(fields, 0, sizeof fields);
    strcpy(fields[0].name, "NAME"); fields[0].type = 'C'; fields[0].len = 20;
    strcpy(fields[1].name, "CITY"); fields[1].type = 'C'; fields[1].len = 12;
    CHECK(DBCreateFile(table, 2, fields, 3)); /* style 3: Clipper */
    CHECK(DBOpenFile(&t, table, 3));
    for (i = 0; i < 8; i++) {
        strcpy(name, names[i]);
        CHECK(DBClearBuffer(t));
        CHECK(DBPutStrField(t, 0, name));
        strcpy(name, cities[i]);
        CHECK(DBPutStrField(t, 1, name));
        CHECK(DBPutRecord(t, &recno, DB_APPEND));
    }

    /* 1. One pass over the table builds the whole index. */
    CHECK(DBclBuildIndex(t, index_file, 'C', "UPPER(NAME)", 20, 0));
    CHECK(DBclOpenIndex(&ix, index_file, 0));
    printf("built %s on UPPER(NAME); in name order:\n", index_file);
    CHECK(list(t, ix));

    /* 2. Find one by name: a prefix is enough. */
    strcpy(key, "HOP");
    CHECK(DBclKeySearch(ix, key, &recno, 1));
    CHECK(DBGetRecord(t, recno));
    CHECK(DBGetStrField(t, 0, name));
    printf("searched for \"HOP\": record %ld, %s\n", (long)recno, name);

    /* 3. Rename her, keeping the index in step: the old key goes, the record
     * is written, the key the record now gives comes in. */
    CHECK(DBclMakeKey(t, ix, &made));
    CHECK(DBclDeleteKey(ix, made, recno));
    DBFreeMemory(made, __FILE__, __LINE__);
    strcpy(name, "Hopper-Murray");
    CHECK(DBPutStrField(t, 0, name));
    CHECK(DBPutRecord(t, &recno, DB_REWRITE));
    CHECK(DBclMakeKey(t, ix, &made));
    CHECK(DBclAddKey(ix, made, recno));
    DBFreeMemory(made, __FILE__, __LINE__);
    printf("renamed record %ld to %s; the index in order now:\n", (long)recno, name);
    CHECK(list(t, ix));

    /* 4. A name that is not there: the search stops on the key before it. */
    strcpy(key, "GAUSS");
    i = DBclKeySearch(ix, key, &recno, 1);
    printf("searched for \"GAUSS\": %d (%s), nearest below: %s\n", i, DBGetErrorStr(), key);

    CHECK(DBclCloseIndex(ix));
    CHECK(DBCloseFile(t));
    DBTerminate();
    return 0;
}
