#include "client.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "base/path.h"
#include "base/wire.h"
#include "ipc/msg_layout.h"
#include "ipc/reply.h"

namespace {

std::string upper(std::string_view s) {
    std::string u(s);
    for (char &c : u) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return u;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

std::string tallyctl_hex32(uint32_t v) {
    char b[16];
    std::snprintf(b, sizeof b, "0x%08x", v);
    return b;
}

std::string tallyctl_socket_path(tallyd_socket_kind kind) {
    switch (kind) {
        case tallyd_socket_kind::stat:
            return tallyd_path(TALLYD_STAT_SOCKET);
        case tallyd_socket_kind::monitor:
            return tallyd_path(TALLYD_MONITOR_SOCKET);
        case tallyd_socket_kind::control:
            break;
    }
    return tallyd_path(TALLYD_CTRL_SOCKET);
}

bool tallyctl_parse_socket(std::string_view word, tallyd_socket_kind *kind) {
    if (word == "control" || word == "ctrl") {
        *kind = tallyd_socket_kind::control;
    } else if (word == "stat" || word == "statistics") {
        *kind = tallyd_socket_kind::stat;
    } else if (word == "monitor") {
        *kind = tallyd_socket_kind::monitor;
    } else {
        return false;
    }
    return true;
}

std::string_view tallyctl_socket_name(tallyd_socket_kind kind) {
    switch (kind) {
        case tallyd_socket_kind::stat:
            return "stat";
        case tallyd_socket_kind::monitor:
            return "monitor";
        case tallyd_socket_kind::control:
            break;
    }
    return "control";
}

bool tallyctl_parse_id(std::string_view word, uint32_t *id) {
    std::string name = upper(word);
    if (const tallyd_msg_name *m = tallyd_msg_find(name)) {
        *id = m->id;
        return true;
    }
    if (const tallyd_msg_name *m = tallyd_msg_find("TALLYD_MSG_" + name)) {
        *id = m->id;
        return true;
    }
    return tallyctl_parse_u32(word, id);
}

bool tallyctl_parse_u32(std::string_view word, uint32_t *out) {
    int base = 10;
    if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) {
        word.remove_prefix(2);
        base = 16;
    }
    auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), *out, base);
    return !word.empty() && ec == std::errc() && end == word.data() + word.size();
}

bool tallyctl_parse_hex(std::string_view text, tallyctl_bytes *out) {
    tallyctl_bytes bytes;
    int high = -1;
    for (char c : text) {
        if (c == ' ' || c == ':' || c == '-') {
            if (high >= 0) return false;  // a separator inside a byte
            continue;
        }
        int d = hex_digit(c);
        if (d < 0) return false;
        if (high < 0) {
            high = d;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | d));
            high = -1;
        }
    }
    if (high >= 0) return false;
    *out = std::move(bytes);
    return true;
}

tallyctl_bytes tallyctl_message(uint32_t id, std::span<const uint8_t> payload, uint8_t module) {
    tallyctl_bytes m(TALLYD_MSG_HDR_LEN + payload.size());
    tallyd_msg_header_put(m, module, id, static_cast<uint32_t>(payload.size()));
    std::copy(payload.begin(), payload.end(), m.begin() + TALLYD_MSG_HDR_LEN);
    return m;
}

tallyctl_reply_fields tallyctl_decode_reply(std::span<const uint8_t> r) {
    auto num = [&](const wire_field &f) { return static_cast<uint32_t>(wire_get_num(r, f)); };
    return {num(TALLYD_HDR_MODULE),        num(TALLYD_HDR_FLAG),         num(TALLYD_HDR_MSG_ID),
            num(TALLYD_HDR_LENGTH),        num(TALLYD_REPLY_REQUEST_ID), num(TALLYD_REPLY_WORD),
            num(TALLYD_REPLY_PAYLOAD_LEN), num(TALLYD_REPLY_WRITE_POS),  r.size()};
}

namespace {

size_t payload_bytes(std::span<const uint8_t> r) {
    return r.size() > TALLYD_REPLY_HDR_LEN ? r.size() - TALLYD_REPLY_HDR_LEN : 0;
}

// Message ids read best as hex, every other field as a number.
bool shown_as_hex(const wire_field &f) {
    std::string_view name = f.name;
    return name == "msg_id" || name == "request_id";
}

}  // namespace

std::string tallyctl_format_reply(std::span<const uint8_t> r) {
    std::string s;
    for (const wire_field &f : tallyd_reply_header_fields) {
        uint32_t v = static_cast<uint32_t>(wire_get_num(r, f));
        s += std::string(f.name) + " " + (shown_as_hex(f) ? tallyctl_hex32(v) : std::to_string(v));
        s += " ";
    }
    return s + "payload_bytes " + std::to_string(payload_bytes(r));
}

nlohmann::json tallyctl_reply_json(std::span<const uint8_t> r) {
    nlohmann::json j = nlohmann::json::object();
    for (const wire_field &f : tallyd_reply_header_fields) {
        uint32_t v = static_cast<uint32_t>(wire_get_num(r, f));
        if (shown_as_hex(f))
            j[f.name] = tallyctl_hex32(v);
        else
            j[f.name] = v;
    }
    j["payload_bytes"] = payload_bytes(r);
    return j;
}

bool tallyctl_conn::open(tallyd_socket_kind kind, std::string *error) {
    close();
    std::string path = tallyctl_socket_path(kind);
    if (access(path.c_str(), F_OK) != 0) {
        *error = "tallyd is not running: no socket at " + path;
        return false;
    }
    // The temporary name lives in <root>/tmp, which a sandbox may lack.
    std::error_code ec;
    if (!tallyd_root().empty()) std::filesystem::create_directories(tallyd_path("/tmp"), ec);
    if (unix_sock_open_client(path.c_str(), &sock_, 1) < 0) {
        *error = "tallyd is not running: cannot reach " + path + " (" + strerror(errno) + ")";
        return false;
    }
    return true;
}

void tallyctl_conn::close() {
    if (sock_.fd >= 0) unix_sock_close(&sock_);
}

bool tallyctl_conn::send(std::span<const uint8_t> datagram, std::string *error) {
    // A unix datagram larger than its socket's send buffer cannot be sent at
    // all: a counters batch of hundreds of stations needs more than the
    // default. The kernel caps the value at its wmem_max.
    int have = 0;
    socklen_t len = sizeof have;
    const size_t need = datagram.size() + 1024;
    if (getsockopt(sock_.fd, SOL_SOCKET, SO_SNDBUF, &have, &len) == 0 &&
        static_cast<size_t>(have) < need) {
        int want = static_cast<int>(need);
        setsockopt(sock_.fd, SOL_SOCKET, SO_SNDBUF, &want, sizeof want);
    }
    if (::send(sock_.fd, datagram.data(), datagram.size(), 0) < 0) {
        *error = std::string("send failed: ") + strerror(errno);
        if (errno == EMSGSIZE)
            *error += " (" + std::to_string(datagram.size()) +
                      " bytes; the kernel's limit is /proc/sys/net/core/wmem_max)";
        return false;
    }
    return true;
}

bool tallyctl_conn::receive(tallyctl_bytes *out, int timeout_ms) {
    if (!unix_sock_wait(&sock_, timeout_ms)) return false;
    out->resize(TALLYD_REPLY_BUF_SIZE);
    ssize_t n = recv(sock_.fd, out->data(), out->size(), 0);
    if (n < 0) return false;
    out->resize(static_cast<size_t>(n));
    return true;
}

bool tallyctl_request(tallyd_socket_kind kind, std::span<const uint8_t> datagram, int first_wait_ms,
                      int gap_ms, std::vector<tallyctl_bytes> *replies, std::string *error) {
    tallyctl_conn conn;
    if (!conn.open(kind, error) || !conn.send(datagram, error)) return false;
    tallyctl_bytes r;
    int wait = first_wait_ms;
    while (conn.receive(&r, wait)) {
        replies->push_back(std::move(r));
        wait = gap_ms;
    }
    return true;
}

bool tallyctl_probe(int timeout_ms, tallyctl_bytes *reply, std::string *error) {
    tallyctl_conn conn;
    tallyctl_bytes probe = tallyctl_message(TALLYD_MSG_TAC_PROBE, {});
    if (!conn.open(tallyd_socket_kind::monitor, error) || !conn.send(probe, error)) return false;
    if (!conn.receive(reply, timeout_ms)) {
        *error = "no answer to the probe within " + std::to_string(timeout_ms) + " ms";
        return false;
    }
    return true;
}
