/* customers.c - the typical use of the library, step by step: create a
 * customers table, append rows, read them back by number, change one, mark
 * one deleted and recall it, delete another for good with a pack, and print
 * what happens at each step. Plain C99 against xbfiles.h only. */
#include <stdio.h>
#include <string.h>

#include "xbfiles.h"

static char table[] = "customers.dbf";

/* Stop at the first failure, saying where and why. */
#define CHECK(call)                                                            \
    do {                                                                       \
        int rc_ = (call);                                                      \
        if (rc_ < 0) {                                                         \
            printf("%s failed: %d, \"%s\"\n", #call, rc_, DBGetErrorStr());  \
            DBTerminate();                                                     \
            return 1;                                                          \
        }                                                                      \
    } while (0)

struct customer {
    const char *name;
    const char *city;
    double balance;
    const char *since; /* in the default date style, mm/dd/yyyy here */
    char active;       /* 'T' or 'F' */
};

static const struct customer rows[] = {
    {"Ada Lovelace", "London", 1250.50, "12/10/2015", 'T'},
    {"Blaise Pascal", "Paris", -75.25, "06/19/2019", 'T'},
    {"Carl Gauss", "Brunswick", 0.00, "04/30/2021", 'F'},
    {"Dorothy Hodgkin", "Oxford", 310.00, "05/12/2010", 'T'},
    {"Emmy Noether", "Erlangen", 98765.43, "03/23/2023", 'T'},
};

/* Build the record buffer from one row. Numbers are stored as the text the
 * field shows, right-aligned in its width, so they are formatted here. */
static int fill(int h, const struct customer *c, int id)
{
    char text[32];
    char active = c->active;
    int rc = DBClearBuffer(h);
    if (rc < 0) return rc;
    sprintf(text, "%6d", id);
    if ((rc = DBPutStrField(h, 0, text)) < 0) return rc;
    strcpy(text, c->name);
    if ((rc = DBPutStrField(h, 1, text)) < 0) return rc;
    strcpy(text, c->city);
    if ((rc = DBPutStrField(h, 2, text)) < 0) return rc;
    sprintf(text, "%10.2f", c->balance);
    if ((rc = DBPutStrField(h, 3, text)) < 0) return rc;
    strcpy(text, c->since);
    if ((rc = DBPutFieldData(h, 4, text)) < 0) return rc; /* converted to yyyymmdd */
    return DBPutFieldData(h, 5, &active);
}

/* Read record recno and print it, each field converted to a C value. */
static int show(int h, int32_t recno)
{
    char name[32], city[32], since[16];
    double id = 0, balance = 0;
    char active = 0;
    int rc = DBGetRecord(h, recno);
    if (rc < 0) return rc;
    if ((rc = DBGetFieldData(h, 0, &id)) < 0) return rc;
    if ((rc = DBGetStrField(h, 1, name)) < 0) return rc;
    if ((rc = DBGetStrField(h, 2, city)) < 0) return rc;
    if ((rc = DBGetFieldData(h, 3, &balance)) < 0) return rc;
    if ((rc = DBGetFieldData(h, 4, since)) < 0) return rc;
    if ((rc = DBGetFieldData(h, 5, &active)) < 0) return rc;
    printf("  %2ld %c id %3.0f  %s %s %10.2f  since %s  %s\n", (long)recno,
           DBIsRecordDeleted(h) ? '*' : ' ', id, name, city, balance, since,
           active == 1 ? "active" : "inactive");
    return 0;
}

static int show_all(int h)
{
    int32_t count = 0, k;
    int rc = DBGetRecordCount(h, &count);
    if (rc < 0) return rc;
    for (k = 1; k <= count; k++)
        if ((rc = show(h, k)) < 0) return rc;
    return 0;
}

int main(void)
{
    DBFIELD fields[6];
    char version[16];
    char stylename[40];
    int style = 0;
    int h = -1;
    int32_t recno = 0, count = 0;
    int i;
    char city[] = "Hanover";

    /* Date style 2: dates travel as mm/dd/yyyy; the file always holds
     * yyyymmdd. */
    CHECK(DBInitialize(20, 2));
    DBGetVersion(version);
    DBGetDefaultDateStyle(&style, stylename);
    printf("xbfiles %s, dates in style %d, %s\n", version, style, stylename);

    /* 1. The table: six fields, dBASE III style (1). */
    memset(fields, 0, sizeof fields);
    strcpy(fields[0].name, "id");      fields[0].type = 'N'; fields[0].len = 6;
    strcpy(fields[1].name, "name");    fields[1].type = 'C'; fields[1].len = 20;
    strcpy(fields[2].name, "city");    fields[2].type = 'C'; fields[2].len = 12;
    strcpy(fields[3].name, "balance"); fields[3].type = 'N'; fields[3].len = 10; fields[3].decpl = 2;
    strcpy(fields[4].name, "since");   fields[4].type = 'D';
    strcpy(fields[5].name, "active");  fields[5].type = 'L';
    CHECK(DBCreateFile(table, 6, fields, 1));
    printf("created %s:", table);
    for (i = 0; i < 6; i++)
        printf(" %s %c(%d%s)", fields[i].name, (char)fields[i].type, fields[i].len,
               fields[i].decpl ? ",2" : "");
    printf("\n");

    /* 2. Append the rows. */
    CHECK(DBOpenFile(&h, table, 1));
    for (i = 0; i < 5; i++) {
        CHECK(fill(h, &rows[i], 101 + i));
        CHECK(DBPutRecord(h, &recno, DB_APPEND));
        printf("appended record %ld: %s\n", (long)recno, rows[i].name);
    }
    CHECK(DBFlushFile(h));

    /* 3. Read them back by number. */
    CHECK(DBGetRecordCount(h, &count));
    printf("%ld records, read back by number:\n", (long)count);
    CHECK(show_all(h));

    /* 4. Change one: Gauss moves to Hanover. */
    recno = 3;
    CHECK(DBGetRecord(h, recno));
    CHECK(DBPutStrField(h, 2, city));
    CHECK(DBPutRecord(h, &recno, DB_REWRITE));
    printf("changed record 3, city now %s:\n", city);
    CHECK(show(h, 3));

    /* 5. Mark one deleted, and recall it. */
    CHECK(DBMarkRecordInActive(h, 4));
    CHECK(DBGetRecord(h, 4));
    printf("marked record 4 deleted: DBIsRecordDeleted says %d\n", DBIsRecordDeleted(h));
    CHECK(DBMarkRecordActive(h, 4));
    CHECK(DBGetRecord(h, 4));
    printf("recalled record 4: DBIsRecordDeleted says %d\n", DBIsRecordDeleted(h));

    /* 6. Delete record 2 and pack: it is gone, the others move up. */
    CHECK(DBMarkRecordInActive(h, 2));
    printf("marked record 2 deleted, before the pack:\n");
    CHECK(show_all(h));
    CHECK(DBPackFile(&h));
    CHECK(DBGetRecordCount(h, &count));
    printf("packed: %ld records left (the old file is kept as customers.BAK):\n", (long)count);
    CHECK(show_all(h));

    CHECK(DBCloseFile(h));
    DBTerminate();
    printf("closed and terminated\n");
    return count == 4 ? 0 : 1;
}
