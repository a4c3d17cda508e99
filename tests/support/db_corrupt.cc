#include "support/db_corrupt.h"

#include <cstdio>
#include <string>
#include <vector>

#include "db/db_files.h"

namespace {

int64_t query_int(sqlite3 *conn, const std::string &sql) {
    sql_stmt s = sql_prepare(conn, sql.c_str());
    return s && s.step() == SQLITE_ROW ? sqlite3_column_int64(s.get(), 0) : -1;
}

}  // namespace

bool corrupt_table(sql_conn &conn, const char *path, const char *table) {
    int64_t page_size = query_int(conn.get(), "PRAGMA page_size");
    int64_t root = query_int(
        conn.get(), std::string("SELECT rootpage FROM sqlite_master WHERE name='") + table + "'");
    conn.close();

    bool ok = false;
    if (page_size > 0 && root > 1) {
        if (FILE *f = std::fopen(path, "r+b")) {
            std::vector<unsigned char> garbage(static_cast<size_t>(page_size), 0xff);
            ok = std::fseek(f, static_cast<long>((root - 1) * page_size), SEEK_SET) == 0 &&
                 std::fwrite(garbage.data(), 1, garbage.size(), f) == garbage.size();
            ok = std::fclose(f) == 0 && ok;
        }
    }
    tallyd_db_open(path, SQLITE_OPEN_READWRITE, conn);
    return ok;
}
