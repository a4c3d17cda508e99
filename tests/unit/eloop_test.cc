#include "eloop/eloop.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

namespace {

void drain_one(int sock) {
    char c;
    EXPECT_EQ(1, read(sock, &c, 1));
}

// Every test owns the one loop of the process: initialised here, destroyed
// afterwards, with the signal dispositions the tests touch put back.
class Eloop : public ::testing::Test {
   protected:
    void SetUp() override {
        fired_.clear();
        eloop_init(&user_data_);
    }
    void TearDown() override {
        eloop_destroy();
        alarm(0);
        signal(SIGTERM, SIG_DFL);
        signal(SIGUSR1, SIG_DFL);
        signal(SIGALRM, SIG_DFL);
        for (int fd : fds_) close(fd);
    }

    // A socket pair whose first end is readable (one byte waiting).
    int readable_socket() {
        int sv[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM, 0, sv));
        fds_.push_back(sv[0]);
        fds_.push_back(sv[1]);
        EXPECT_EQ(1, write(sv[1], "x", 1));
        return sv[0];
    }

    static void record(void *eloop_data, void *) {
        fired_.push_back(
            {static_cast<int>(reinterpret_cast<intptr_t>(eloop_data)), eloop_get_pass_count()});
    }
    static void *tag(int n) { return reinterpret_cast<void *>(static_cast<intptr_t>(n)); }
    static void stop(void *, void *) { eloop_terminate(); }

    struct firing {
        int tag;
        uint32_t pass;
    };
    static inline std::vector<firing> fired_;
    int user_data_ = 0;
    std::vector<int> fds_;
};

TEST_F(Eloop, NothingRegisteredReturnsAtOnce) {
    eloop_run();
    EXPECT_EQ(0u, eloop_get_pass_count());
    EXPECT_EQ(0, eloop_terminated());
}

TEST_F(Eloop, TimeoutsFireByExpiryAndEqualExpiriesInRegistrationOrder) {
    // Registered in a tight loop, many of these share one microsecond; an
    // insertion that put an equal expiry first would reverse them.
    for (int i = 0; i < 40; ++i) ASSERT_EQ(0, eloop_register_timeout(-1, 0, record, tag(i), 0));
    // Earlier than all of the above although registered last.
    ASSERT_EQ(0, eloop_register_timeout(-2, 0, record, tag(100), 0));
    eloop_run();
    ASSERT_EQ(41u, fired_.size());
    EXPECT_EQ(100, fired_[0].tag);
    for (int i = 0; i < 40; ++i) EXPECT_EQ(i, fired_[i + 1].tag);
}

TEST_F(Eloop, MicrosecondsAreNormalisedIntoSeconds) {
    // -3 s + 2.5 s is 0.5 s ago; -1 s + 0.4 s is 0.6 s ago, so the second
    // fires first. Left unnormalised, the first would look 3 s old.
    ASSERT_EQ(0, eloop_register_timeout(-3, 2500000, record, tag(1), 0));
    ASSERT_EQ(0, eloop_register_timeout(-1, 400000, record, tag(2), 0));
    // And the reverse: 1,999,999 us carried into one second puts it after.
    ASSERT_EQ(0, eloop_register_timeout(-2, 1999999, record, tag(3), 0));
    eloop_run();
    ASSERT_EQ(3u, fired_.size());
    EXPECT_EQ(2, fired_[0].tag);
    EXPECT_EQ(1, fired_[1].tag);
    EXPECT_EQ(3, fired_[2].tag);
}

TEST_F(Eloop, OneTimeoutPerPassAndDueOnesDoNotWait) {
    for (int i = 0; i < 3; ++i) ASSERT_EQ(0, eloop_register_timeout(0, 0, record, tag(i), 0));
    // A far timeout keeps the list non-empty but is cancelled by the third.
    ASSERT_EQ(0, eloop_register_timeout(3600, 0, record, tag(9), 0));
    auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(0, eloop_register_timeout(
                     0, 1000,
                     [](void *, void *) {
                         EXPECT_EQ(1, eloop_cancel_timeout(record, ELOOP_ALL_CTX, ELOOP_ALL_CTX));
                     },
                     nullptr, nullptr));
    eloop_run();
    auto took = std::chrono::steady_clock::now() - start;
    ASSERT_EQ(3u, fired_.size());
    for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(i + 1, fired_[i].pass);
    EXPECT_EQ(4u, eloop_get_pass_count());
    EXPECT_LT(took, std::chrono::milliseconds(500));
}

TEST_F(Eloop, CancelMatchesHandlerAndDataWithWildcards) {
    eloop_register_timeout(10, 0, record, tag(1), tag(5));
    eloop_register_timeout(10, 0, record, tag(2), tag(5));
    eloop_register_timeout(10, 0, record, tag(1), tag(6));
    eloop_register_timeout(10, 0, stop, tag(1), tag(5));
    EXPECT_EQ(0, eloop_cancel_timeout(record, tag(3), ELOOP_ALL_CTX));
    EXPECT_EQ(1, eloop_cancel_timeout(record, tag(1), tag(6)));
    EXPECT_EQ(2, eloop_cancel_timeout(record, ELOOP_ALL_CTX, tag(5)));
    EXPECT_EQ(1, eloop_cancel_timeout(stop, ELOOP_ALL_CTX, ELOOP_ALL_CTX));
    EXPECT_EQ(0, eloop_cancel_timeout(stop, ELOOP_ALL_CTX, ELOOP_ALL_CTX));
}

TEST_F(Eloop, ReadSocketTableResults) {
    EXPECT_EQ(0, eloop_unregister_read_sock(5));  // no table yet
    auto none = [](int, void *, void *) {};
    ASSERT_EQ(0, eloop_register_read_sock(5, none, nullptr, nullptr));
    ASSERT_EQ(0, eloop_register_read_sock(6, none, nullptr, nullptr));
    ASSERT_EQ(0, eloop_register_read_sock(5, none, nullptr, nullptr));
    EXPECT_EQ(3, eloop_unregister_read_sock(7));  // not there: the count
    EXPECT_EQ(1, eloop_unregister_read_sock(5));
    EXPECT_EQ(1, eloop_unregister_read_sock(5));  // the duplicate
    EXPECT_EQ(1, eloop_unregister_read_sock(6));
    EXPECT_EQ(0, eloop_unregister_read_sock(6));  // empty again
    // Descriptors select() cannot watch are refused.
    EXPECT_EQ(-1, eloop_register_read_sock(FD_SETSIZE, none, nullptr, nullptr));
    EXPECT_EQ(-1, eloop_register_read_sock(-1, none, nullptr, nullptr));
    EXPECT_EQ(0, eloop_unregister_read_sock(5));
}

// The first ready socket's handler registers another socket: the table has
// changed, so the second ready socket waits for the next pass.
TEST_F(Eloop, ChangingTheReaderTableStopsTheScan) {
    static std::vector<std::pair<char, uint32_t>> served;
    served.clear();
    static int spare;
    spare = readable_socket();
    int a = readable_socket();
    int b = readable_socket();
    ASSERT_EQ(0, eloop_register_read_sock(
                     a,
                     [](int sock, void *, void *) {
                         drain_one(sock);
                         served.push_back({'a', eloop_get_pass_count()});
                         eloop_register_read_sock(
                             spare,
                             [](int s, void *, void *) {
                                 drain_one(s);
                                 served.push_back({'s', eloop_get_pass_count()});
                             },
                             nullptr, nullptr);
                     },
                     nullptr, nullptr));
    ASSERT_EQ(0, eloop_register_read_sock(
                     b,
                     [](int sock, void *, void *) {
                         drain_one(sock);
                         served.push_back({'b', eloop_get_pass_count()});
                         eloop_terminate();
                     },
                     nullptr, nullptr));
    eloop_run();
    ASSERT_EQ(3u, served.size());
    EXPECT_EQ('a', served[0].first);
    EXPECT_EQ(1u, served[0].second);
    // Pass 2: b, then the new socket in table order; terminate ends the loop
    // only after the pass.
    EXPECT_EQ('b', served[1].first);
    EXPECT_EQ(2u, served[1].second);
    EXPECT_EQ('s', served[2].first);
    EXPECT_EQ(2u, served[2].second);
}

TEST_F(Eloop, SelectFailureEndsTheRun) {
    testing::internal::CaptureStderr();
    // A descriptor closed after the capture opened its file, so that its
    // number stays free: select fails with EBADF.
    int fd = dup(STDIN_FILENO);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_EQ(0, eloop_register_read_sock(
                     fd, [](int, void *, void *) {}, nullptr, nullptr));
    eloop_run();
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, err.rfind("select: ", 0)) << err;
    EXPECT_EQ(0u, eloop_get_pass_count());
}

// Signals delivered several times before the loop looks are one call, made
// from the loop with the loop's and the entry's user data.
TEST_F(Eloop, SignalsAreHandledOnceFromTheLoop) {
    static int calls;
    static void *seen_loop_data;
    static void *seen_entry_data;
    calls = 0;
    ASSERT_EQ(0, eloop_register_signal(
                     SIGUSR1,
                     [](int sig, void *loop_data, void *entry_data) {
                         EXPECT_EQ(SIGUSR1, sig);
                         ++calls;
                         seen_loop_data = loop_data;
                         seen_entry_data = entry_data;
                     },
                     tag(42)));
    raise(SIGUSR1);
    raise(SIGUSR1);
    EXPECT_EQ(0, calls);  // nothing runs inside the catcher
    eloop_register_timeout(0, 0, stop, nullptr, nullptr);
    eloop_run();
    EXPECT_EQ(1, calls);
    EXPECT_EQ(&user_data_, seen_loop_data);
    EXPECT_EQ(tag(42), seen_entry_data);
}

// A signal raised by a timeout handler arrives after this pass looked at the
// counters; the next select must wake for it rather than sleep until the far
// timeout.
TEST_F(Eloop, SignalJustBeforeSelectWakesTheLoop) {
    ASSERT_EQ(0, eloop_register_signal(
                     SIGUSR1, [](int, void *, void *) { eloop_terminate(); }, nullptr));
    eloop_register_timeout(
        0, 0, [](void *, void *) { raise(SIGUSR1); }, nullptr, nullptr);
    eloop_register_timeout(30, 0, stop, nullptr, nullptr);
    auto start = std::chrono::steady_clock::now();
    eloop_run();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(1, eloop_terminated());
}

TEST_F(Eloop, SecondTerminateSignalDoesNotRearmTheAlarm) {
    static int calls;
    calls = 0;
    ASSERT_EQ(0, eloop_register_signal(
                     SIGTERM, [](int, void *, void *) { ++calls; }, nullptr));
    raise(SIGTERM);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    raise(SIGTERM);
    // Armed once: at most 1.6 s to go (a second arming would say 2 s).
    itimerval left{};
    getitimer(ITIMER_REAL, &left);
    const int64_t left_ms = left.it_value.tv_sec * 1000 + left.it_value.tv_usec / 1000;
    EXPECT_GT(left_ms, 0);
    EXPECT_LE(left_ms, 1600);

    eloop_register_timeout(0, 0, stop, nullptr, nullptr);
    eloop_run();
    EXPECT_EQ(1, calls);
    getitimer(ITIMER_REAL, &left);  // processing the signals cancelled it
    EXPECT_EQ(0, left.it_value.tv_sec);
    EXPECT_EQ(0, left.it_value.tv_usec);
}

TEST_F(Eloop, ChildThatInheritsTheCatcherLeavesOnTerminate) {
    static int calls;
    calls = 0;
    ASSERT_EQ(0, eloop_register_signal(
                     SIGTERM, [](int, void *, void *) { ++calls; }, nullptr));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        raise(SIGTERM);
        _exit(7);  // only reached if the catcher let the child go on
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));

    eloop_register_timeout(0, 0, stop, nullptr, nullptr);
    eloop_run();
    EXPECT_EQ(0, calls);
}

// A process that never gets back to its loop after SIGTERM is ended by the
// alarm two seconds later with status 1 and the fixed text.
TEST_F(Eloop, StuckShutdownIsKilledByTheAlarm) {
    ASSERT_EQ(171u, sizeof ELOOP_ALARM_TEXT - 1);
    int pipefd[2];
    ASSERT_EQ(0, pipe(pipefd));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        dup2(pipefd[1], STDERR_FILENO);
        eloop_init(nullptr);
        eloop_register_signal(
            SIGTERM, [](int, void *, void *) {}, nullptr);
        raise(SIGTERM);
        for (int i = 0; i < 50; ++i) usleep(100000);
        _exit(7);
    }
    close(pipefd[1]);
    auto start = std::chrono::steady_clock::now();
    std::string err;
    char buf[256];
    ssize_t n;
    while ((n = read(pipefd[0], buf, sizeof buf)) > 0) err.append(buf, n);
    close(pipefd[0]);
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    auto took = std::chrono::steady_clock::now() - start;
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(1, WEXITSTATUS(status));
    EXPECT_EQ(std::string(ELOOP_ALARM_TEXT), err);
    EXPECT_GE(took, std::chrono::milliseconds(1500));
}

}  // namespace
