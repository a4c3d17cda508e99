#include "db/db_fs.h"

#include <filesystem>
#include <system_error>
#include <vector>

#include "base/path.h"

namespace fs = std::filesystem;

bool db_fs_exists(const std::string &path) {
    std::error_code ec;
    return fs::exists(path, ec);
}

void db_fs_mkdir_p(const std::string &path) {
    std::error_code ec;
    fs::create_directories(path, ec);
}

void db_fs_rm_rf(const std::string &path) {
    std::error_code ec;
    fs::remove_all(path, ec);
}

void db_fs_rm(const std::string &path) {
    std::error_code ec;
    fs::remove(path, ec);
}

void db_fs_move_aside(const std::string &path) {
    std::error_code ec;
    fs::rename(path, path + ".bad", ec);
    if (ec) fs::remove_all(path, ec);
}

namespace {

// Entries of dir whose names start with prefix, listed before any of them is
// touched so that removing or moving them cannot disturb the listing.
std::vector<fs::path> entries_with_prefix(const std::string &dir, std::string_view prefix) {
    std::vector<fs::path> out;
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(dir, ec))
        if (entry.path().filename().string().starts_with(prefix)) out.push_back(entry.path());
    return out;
}

// rename(2) cannot cross from flash to the RAM file system; mv then copies.
void move_one(const fs::path &from, const fs::path &to) {
    std::error_code ec;
    fs::rename(from, to, ec);
    if (!ec) return;
    fs::copy(from, to, fs::copy_options::overwrite_existing | fs::copy_options::recursive, ec);
    if (!ec) fs::remove_all(from, ec);
}

}  // namespace

void db_fs_empty_dir(const std::string &dir) {
    for (const fs::path &p : entries_with_prefix(dir, "")) {
        if (p.filename().string().starts_with('.')) continue;
        std::error_code ec;
        fs::remove_all(p, ec);
    }
}

void db_fs_move_copies(const std::string &from_dir, std::string_view base,
                       const std::string &to_dir) {
    std::string prefix = std::string(base) + ".";
    for (const fs::path &p : entries_with_prefix(from_dir, prefix))
        move_one(p, fs::path(to_dir) / p.filename());
}

std::string db_fs_db_path(std::string_view dir, std::string_view base) {
    std::string device(dir);
    device.append("/").append(base).append(".db");
    return tallyd_path(device);
}

std::string db_fs_shell_quote(std::string_view path) {
    std::string q = "'";
    for (char c : path) {
        if (c == '\'')
            q += "'\\''";
        else
            q += c;
    }
    q += "'";
    return q;
}
