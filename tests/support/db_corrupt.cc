#include "support/db_corrupt.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "db/db_files.h"

namespace {

int64_t query_int(sqlite3 *conn, const std::string &sql) {
    sql_stmt s = sql_prepare(conn, sql.c_str());
    return s && s.step() == SQLITE_ROW ? sqlite3_column_int64(s.get(), 0) : -1;
}

// Adds one to the file change counter (bytes 24..27 of the header,
// big-endian), so that a connection another process keeps open drops its page
// cache at its next transaction and reads the file again.
bool bump_change_counter(const char *path) {
    FILE *f = std::fopen(path, "r+b");
    if (!f) return false;
    unsigned char c[4] = {};
    bool ok = std::fseek(f, 24, SEEK_SET) == 0 && std::fread(c, 1, 4, f) == 4;
    for (int i = 3; ok && i >= 0 && ++c[i] == 0; --i) {
    }
    ok = ok && std::fseek(f, 24, SEEK_SET) == 0 && std::fwrite(c, 1, 4, f) == 4;
    return std::fclose(f) == 0 && ok;
}

// Overwrites len bytes at offset with random bytes from rng.
bool scribble(FILE *f, long offset, size_t len, std::mt19937 &rng) {
    std::vector<unsigned char> junk(len);
    for (unsigned char &b : junk) b = static_cast<unsigned char>(rng());
    return std::fseek(f, offset, SEEK_SET) == 0 && std::fwrite(junk.data(), 1, len, f) == len;
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
    return ok && bump_change_counter(path);
}

bool damage_db_file(const char *path, db_damage kind, uint32_t seed) {
    std::error_code ec;
    const uintmax_t size = std::filesystem::file_size(path, ec);
    if (ec) return false;
    if (kind == db_damage::truncated) return truncate(path, 0) == 0;
    std::mt19937 rng(seed);
    FILE *f = std::fopen(path, "r+b");
    if (!f) return false;
    bool ok = true;
    if (kind == db_damage::header) {
        ok = scribble(f, 0, 100, rng);
    } else {
        // The page size is bytes 16..17 of the header, big-endian (1: 65536).
        unsigned char b[2] = {};
        ok = std::fseek(f, 16, SEEK_SET) == 0 && std::fread(b, 1, 2, f) == 2;
        long page = b[0] << 8 | b[1];
        if (page == 1) page = 65536;
        const long pages = page >= 512 ? static_cast<long>(size) / page : 0;
        ok = ok && pages > 1;
        for (long p = 1; ok && p < pages; ++p)
            ok = scribble(f, p * page, static_cast<size_t>(page), rng);
    }
    ok = std::fclose(f) == 0 && ok;
    return ok && (kind == db_damage::header || bump_change_counter(path));
}
