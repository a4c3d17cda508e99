#include "support/db_corrupt.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

int64_t query_int(sqlite3 *conn, const std::string &sql) {
    sqlite3_stmt *s = nullptr;
    int64_t v = -1;
    if (sqlite3_prepare_v2(conn, sql.c_str(), -1, &s, nullptr) == SQLITE_OK &&
        sqlite3_step(s) == SQLITE_ROW)
        v = sqlite3_column_int64(s, 0);
    sqlite3_finalize(s);
    return v;
}

}  // namespace

bool corrupt_table(sqlite3 **conn, const char *path, const char *table) {
    int64_t page_size = query_int(*conn, "PRAGMA page_size");
    int64_t root = query_int(
        *conn, std::string("SELECT rootpage FROM sqlite_master WHERE name='") + table + "'");
    sqlite3_close_v2(*conn);
    *conn = nullptr;

    bool ok = false;
    if (page_size > 0 && root > 1) {
        if (FILE *f = std::fopen(path, "r+b")) {
            std::vector<unsigned char> garbage(static_cast<size_t>(page_size), 0xff);
            ok = std::fseek(f, static_cast<long>((root - 1) * page_size), SEEK_SET) == 0 &&
                 std::fwrite(garbage.data(), 1, garbage.size(), f) == garbage.size();
            ok = std::fclose(f) == 0 && ok;
        }
    }
    sqlite3_open_v2(path, conn, SQLITE_OPEN_READWRITE, nullptr);
    return ok;
}
