/* use.c - a program outside the project that finds the installed library
 * (through pkg-config or CMake), creates a table and an index, and reads
 * them back. Exits 0 when everything worked. */
#include <stdio.h>
#include <string.h>

#include <xbfiles.h>

int main(void)
{
    DBFIELD f[1];
    int t = -1;
    short ix = -1;
    int32_t recno = 0;
    char key[16], version[16];
    memset(f, 0, sizeof f);
    strcpy(f[0].name, "NAME");
    f[0].type = 'C';
    f[0].len = 10;
    if (DBInitialize(16, 2) != 0 || DBCreateFile("use.dbf", 1, f, 1) != 0 || DBOpenFile(&t, "use.dbf", 1) != 0)
        return 1;
    DBClearBuffer(t);
    DBPutStrField(t, 0, "installed");
    if (DBPutRecord(t, &recno, DB_APPEND) != 0) return 2;
    if (DBclBuildIndex(t, "use.ntx", 'C', "NAME", 10, 0) != 0 || DBclOpenIndex(&ix, "use.ntx", 0) != 0) return 3;
    if (DBclGoFirstKey(ix, key, &recno) != 0 || strcmp(key, "installed ") != 0 || recno != 1) return 4;
    DBGetVersion(version);
    printf("xbfiles %s: found '%s' at record %ld\n", version, key, (long)recno);
    DBTerminate();
    return 0;
}
