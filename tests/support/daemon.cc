#include "support/daemon.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "base/path.h"
#include "support/launch.h"
#include "support/test_root.h"
#include "tallyctl/client.h"

extern char **environ;

namespace {

using clock_type = std::chrono::steady_clock;

// The environment of the daemon: ours without any TALLYD_ setting, then the
// harness's own.
std::vector<std::string> daemon_env(const std::string &root, const tallyd_daemon_options &o) {
    std::vector<std::string> env;
    for (char **e = environ; *e; ++e)
        if (std::strncmp(*e, "TALLYD_", 7) != 0) env.emplace_back(*e);
    env.push_back("TALLYD_ROOT=" + root);
    env.push_back("TALLYD_LOG=stderr");
    if (o.time_scale) env.push_back("TALLYD_TIME_SCALE=" + std::to_string(o.time_scale));
    for (const std::string &e : o.env) env.push_back(e);
    return env;
}

// Appends complete lines of chunk to lines; partial keeps the unfinished tail.
void split_lines(std::string &partial, std::string_view chunk, std::vector<std::string> &lines) {
    partial.append(chunk);
    size_t start = 0, nl;
    while ((nl = partial.find('\n', start)) != std::string::npos) {
        lines.push_back(partial.substr(start, nl - start));
        start = nl + 1;
    }
    partial.erase(0, start);
}

int decode_status(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

}  // namespace

tallyd_daemon::tallyd_daemon(tallyd_daemon_options options) : options_(std::move(options)) {
    if (options_.root.empty()) {
        own_root_ = std::make_unique<temp_dir>();
        root_ = own_root_->path();
    } else {
        root_ = options_.root;
    }
}

tallyd_daemon::~tallyd_daemon() {
    if (running()) {
        kill(pid_, SIGKILL);
        wait_exit(5000);
    }
    if (reader_.joinable()) reader_.join();
}

void tallyd_daemon::use_root() const {
    tallyd_root_set(root_);
}

std::string tallyd_daemon::path(std::string_view device_path) const {
    return root_ + std::string(device_path);
}

bool tallyd_daemon::start() {
    if (running()) return false;
    if (reader_.joinable()) reader_.join();
    int out[2], err[2];
    if (pipe(out) != 0) return false;
    if (pipe(err) != 0) {
        close(out[0]);
        close(out[1]);
        return false;
    }
    std::vector<std::string> env = daemon_env(root_, options_);
    std::vector<char *> envp;
    for (std::string &e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    std::vector<std::string> args = tallyd_test_argv("tallyd");
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);

    pid_ = fork();
    if (pid_ == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        close(out[0]);
        close(err[0]);
        // The daemon resolves nothing relative; its own directory is neutral.
        if (chdir(root_.c_str()) != 0) _exit(126);
        // The launcher, if any, is found on PATH.
        execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    if (pid_ < 0) {
        close(out[0]);
        close(err[0]);
        return false;
    }
    status_ = -1;
    reader_ = std::thread(&tallyd_daemon::collect, this, out[0], err[0]);
    if (!options_.wait_ready) return true;

    auto deadline = clock_type::now() +
                    std::chrono::milliseconds(tallyd_test_timeout(options_.ready_timeout_ms));
    while (clock_type::now() < deadline) {
        if (!running()) return false;
        if (access(path(TALLYD_MONITOR_SOCKET).c_str(), F_OK) == 0 && probe(500)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

// Reads both pipes until the daemon (and any child holding them) is gone.
void tallyd_daemon::collect(int out_fd, int err_fd) {
    pollfd fds[2] = {{out_fd, POLLIN, 0}, {err_fd, POLLIN, 0}};
    std::string partial[2];
    int open_count = 2;
    char buf[4096];
    while (open_count > 0) {
        if (poll(fds, 2, -1) < 0) break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            std::lock_guard<std::mutex> lock(mu_);
            auto &lines = i == 0 ? out_lines_ : err_lines_;
            if (n > 0) {
                split_lines(partial[i], std::string_view(buf, n), lines);
            } else {
                if (!partial[i].empty()) lines.push_back(partial[i]);
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_count;
            }
            cv_.notify_all();
        }
    }
}

int tallyd_daemon::wait_exit(int timeout_ms) {
    if (pid_ <= 0) return status_;
    auto deadline = clock_type::now() + std::chrono::milliseconds(tallyd_test_timeout(timeout_ms));
    for (;;) {
        int status = 0;
        pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_) {
            status_ = decode_status(status);
            pid_ = -1;
            if (reader_.joinable()) reader_.join();
            return status_;
        }
        if (r < 0 || clock_type::now() >= deadline) return r < 0 ? status_ : -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

bool tallyd_daemon::running() {
    if (pid_ <= 0) return false;
    return wait_exit(0) == -1 && pid_ > 0;
}

int tallyd_daemon::stop(int timeout_ms) {
    if (pid_ > 0) kill(pid_, SIGTERM);
    return wait_exit(timeout_ms);
}

std::vector<std::string> tallyd_daemon::log_lines() {
    std::lock_guard<std::mutex> lock(mu_);
    return err_lines_;
}

std::vector<std::string> tallyd_daemon::out_lines() {
    std::lock_guard<std::mutex> lock(mu_);
    return out_lines_;
}

int tallyd_daemon::log_count(std::string_view fragment) {
    std::lock_guard<std::mutex> lock(mu_);
    int n = 0;
    for (const std::string &l : err_lines_)
        if (l.find(fragment) != std::string::npos) ++n;
    return n;
}

bool tallyd_daemon::wait_log(std::string_view fragment, int timeout_ms, int count) {
    auto deadline = clock_type::now() + std::chrono::milliseconds(tallyd_test_timeout(timeout_ms));
    while (log_count(fragment) < count) {
        std::unique_lock<std::mutex> lock(mu_);
        if (cv_.wait_until(lock, deadline) == std::cv_status::timeout) {
            lock.unlock();
            return log_count(fragment) >= count;
        }
    }
    return true;
}

std::string tallyd_daemon::log_text() {
    std::string s;
    for (const std::string &l : log_lines()) s += l + "\n";
    return s;
}

::testing::AssertionResult tallyd_daemon::logs_line(const std::string &line, int count,
                                                    int timeout_ms) {
    if (wait_log(line, timeout_ms, count)) {
        std::vector<std::string> lines = log_lines();
        if (std::find(lines.begin(), lines.end(), line) != lines.end())
            return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "no line \"" << line << "\" in:\n" << log_text();
}

bool tallyd_daemon::probe(int timeout_ms) {
    use_root();
    tallyctl_bytes reply;
    std::string error;
    return tallyctl_probe(tallyd_test_timeout(timeout_ms), &reply, &error);
}

bool tallyd_daemon::send_raw(tallyd_socket_kind socket, std::span<const uint8_t> datagram) {
    use_root();
    tallyctl_conn conn;
    std::string error;
    return conn.open(socket, &error) && conn.send(datagram, &error);
}

bool tallyd_daemon::send(uint32_t id, std::span<const uint8_t> payload, tallyd_socket_kind socket) {
    return send_raw(socket, tallyctl_message(id, payload));
}

std::vector<std::vector<uint8_t>> tallyd_daemon::request(uint32_t id,
                                                         std::span<const uint8_t> payload,
                                                         int wait_ms, int gap_ms) {
    use_root();
    std::vector<tallyctl_bytes> replies;
    std::string error;
    tallyctl_request(tallyd_socket_kind::control, tallyctl_message(id, payload),
                     tallyd_test_timeout(wait_ms), tallyd_test_timeout(gap_ms), &replies, &error);
    return replies;
}
