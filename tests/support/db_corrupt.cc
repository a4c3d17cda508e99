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

bool corrupt_table_file(const char *path, const char *table) {
    sql_conn conn;
    tallyd_db_open(path, SQLITE_OPEN_READWRITE, conn);
    bool ok = conn && corrupt_table(conn, path, table);
    conn.close();
    // The file change counter (bytes 24..27 of the header, big-endian).
    FILE *f = ok ? std::fopen(path, "r+b") : nullptr;
    if (!f) return false;
    unsigned char c[4] = {};
    ok = std::fseek(f, 24, SEEK_SET) == 0 && std::fread(c, 1, 4, f) == 4;
    for (int i = 3; ok && i >= 0 && ++c[i] == 0; --i) {
    }
    ok = ok && std::fseek(f, 24, SEEK_SET) == 0 && std::fwrite(c, 1, 4, f) == 4;
    return std::fclose(f) == 0 && ok;
}
