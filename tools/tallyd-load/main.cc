// tallyd-load: holds a running tallyd under a steady stream of datagrams.
//
// The stream mixes the network events of a simulated controller (played
// ahead of time and sent round and round), counters batches on the
// statistics socket and report requests (every top summary, usage and
// application-client kind in turn). Sends block when the daemon's queue is
// full, so the rate reached in the time given is what the daemon keeps up
// with. Replies are read on a thread of their own; the daemon answers one
// request at a time, in order, so each reply belongs to the oldest request still open and its
// latency is the time since that request went out.
//
// Exit status 0 when every request was answered exactly once, 1 when one
// was not (or a reply came for nothing), 2 for bad usage.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "client.h"
#include "events/events_wire.h"
#include "ipc/msg_layout.h"
#include "reports/report_wire.h"
#include "sim_world.h"

namespace {

using steady = std::chrono::steady_clock;

constexpr const char *kUsage =
    "usage: tallyd-load [--rate N] [--seconds S] [--aps N] [--clients M]\n"
    "                   [--requests-per-mille R] [--batches-per-mille B]\n"
    "Sends N datagrams a second (default 10000) for S seconds (default 60) to the\n"
    "daemon under $TALLYD_ROOT: events of a controller of N APs and M clients, R\n"
    "report requests (default 10) and B counters batches (default 20) in every\n"
    "thousand datagrams. Prints the rate reached, the replies and their latency.\n";

struct options {
    uint32_t rate = 10000;
    uint32_t seconds = 60;
    uint32_t aps = 200;
    uint32_t clients = 1000;
    uint32_t requests = 10;  // per thousand datagrams
    uint32_t batches = 20;
};

bool parse(int argc, char **argv, options *o) {
    for (int i = 1; i < argc; i += 2) {
        const std::string a = argv[i];
        uint32_t *field = a == "--rate"                 ? &o->rate
                          : a == "--seconds"            ? &o->seconds
                          : a == "--aps"                ? &o->aps
                          : a == "--clients"            ? &o->clients
                          : a == "--requests-per-mille" ? &o->requests
                          : a == "--batches-per-mille"  ? &o->batches
                                                        : nullptr;
        if (!field || i + 1 >= argc || !tallyctl_parse_u32(argv[i + 1], field)) return false;
    }
    return o->rate > 0 && o->aps > 0 && o->clients > 0 && o->requests + o->batches <= 1000;
}

// Every report request kind the daemon answers, built with its layouts.
std::vector<tallyctl_bytes> report_requests() {
    using namespace report_wire;
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> built;
    for (uint32_t flag : {kFlagApps, kFlagClients, kFlagAps, kFlagSsids})
        for (uint32_t period : {kPeriodHour, kPeriodDay})
            built.emplace_back(TALLYD_MSG_GET_TOP_SUMMARY, build_top({0, period, flag}));
    for (uint32_t period : {0u, kUsageDay, kUsageWeek, kUsageMonth})
        for (uint32_t usage : {kUsageSeries, kUsageDetail}) {
            usage_request r;
            r.period = period;
            r.usage = usage;
            built.emplace_back(TALLYD_MSG_GET_CLIENTS_SUMMARY, build_usage(r));
        }
    built.emplace_back(TALLYD_MSG_GET_APP_CLIENT, build_app_client({"HTTP", kByApp, 0}));
    std::vector<tallyctl_bytes> out;
    for (auto &[id, msg] : built) {
        tallyd_msg_header_put(msg, 0, id, static_cast<uint32_t>(msg.size() - TALLYD_MSG_HDR_LEN));
        out.push_back(std::move(msg));
    }
    return out;
}

double ms_since(steady::time_point t) {
    return std::chrono::duration<double, std::milli>(steady::now() - t).count();
}

}  // namespace

int main(int argc, char **argv) {
    options o;
    if (!parse(argc, argv, &o)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    // Twenty minutes of the controller's events, and the stations they name
    // for the counters batches.
    sim_world world(sim_world_config{o.aps, o.clients, 4, 4, 1});
    std::vector<tallyctl_bytes> events;
    std::vector<events_wire::station> stations;
    sim_minute minute;
    for (uint32_t m = 0; m < 20; ++m) {
        world.play(m, &minute);
        for (sim_message &msg : minute.control) events.push_back(std::move(sim_sealed(msg)));
        stations.insert(stations.end(), minute.counters.begin(), minute.counters.end());
    }
    const std::vector<tallyctl_bytes> requests = report_requests();
    if (events.empty() || stations.empty()) return 2;

    tallyctl_conn ctrl, stat;
    std::string error;
    if (!ctrl.open(tallyd_socket_kind::control, &error) ||
        !stat.open(tallyd_socket_kind::stat, &error)) {
        std::fprintf(stderr, "tallyd-load: %s\n", error.c_str());
        return 1;
    }

    // Replies are read on a thread of their own: a sender blocked on the
    // daemon's full queue must never leave the daemon blocked on a full
    // queue of replies.
    std::mutex mu;
    std::deque<steady::time_point> open_requests;
    std::vector<double> latencies;
    uint64_t extra_replies = 0;
    std::atomic<bool> sending{true};
    std::thread reader([&] {
        tallyctl_bytes reply;
        steady::time_point quiet_since = steady::now();
        for (;;) {
            if (ctrl.receive(&reply, 100)) {
                quiet_since = steady::now();
                std::lock_guard<std::mutex> lock(mu);
                if (open_requests.empty()) {
                    ++extra_replies;
                    continue;
                }
                latencies.push_back(ms_since(open_requests.front()));
                open_requests.pop_front();
                continue;
            }
            // After the last send: done when nothing is open, or when the
            // daemon has been silent for five seconds.
            std::lock_guard<std::mutex> lock(mu);
            if (!sending && (open_requests.empty() || ms_since(quiet_since) > 5000)) break;
        }
    });

    uint64_t sent = 0, n_events = 0, n_batches = 0, n_requests = 0;
    const steady::time_point start = steady::now();
    const auto period = std::chrono::nanoseconds(1000000000ull / o.rate);
    const uint64_t total = uint64_t{o.rate} * o.seconds;
    size_t next_event = 0, next_request = 0, next_station = 0;
    bool ok = true;
    const steady::time_point end = start + std::chrono::seconds(o.seconds);
    for (; ok && sent < total && steady::now() < end; ++sent) {
        std::this_thread::sleep_until(start + period * sent);
        // Requests and batches spread evenly over every thousand datagrams.
        const uint64_t slot = sent % 1000;
        const bool request = (slot + 1) * o.requests / 1000 != slot * o.requests / 1000;
        const bool batch = (slot + 1) * o.batches / 1000 != slot * o.batches / 1000;
        if (request) {
            {
                std::lock_guard<std::mutex> lock(mu);
                open_requests.push_back(steady::now());
            }
            ok = ctrl.send(requests[next_request++ % requests.size()], &error);
            ++n_requests;
        } else if (batch) {
            // Twenty stations, stamped now on the daemon's clock.
            std::vector<events_wire::station> stas;
            for (int i = 0; i < 20; ++i) stas.push_back(stations[next_station++ % stations.size()]);
            tallyctl_bytes msg = events_wire::build_client_stats(tallyd_now(), stas);
            tallyd_msg_header_put(msg, 0, TALLYD_MSG_CLIENT_STATS,
                                  static_cast<uint32_t>(msg.size() - TALLYD_MSG_HDR_LEN));
            ok = stat.send(msg, &error);
            ++n_batches;
        } else {
            ok = ctrl.send(events[next_event++ % events.size()], &error);
            ++n_events;
        }
    }
    const double secs = ms_since(start) / 1000;
    sending = false;
    reader.join();
    if (!ok) {
        std::fprintf(stderr, "tallyd-load: send failed: %s\n", error.c_str());
        return 1;
    }

    std::sort(latencies.begin(), latencies.end());
    auto pct = [&](double p) {
        return latencies.empty()
                   ? 0.0
                   : latencies[std::min(latencies.size() - 1, size_t(p * latencies.size()))];
    };
    std::printf(
        "tallyd-load: %llu datagrams in %.1f s: %.0f datagrams/s (%llu events, %llu counters "
        "batches, %llu report requests: %.0f requests/s)\n",
        (unsigned long long)sent, secs, sent / secs, (unsigned long long)n_events,
        (unsigned long long)n_batches, (unsigned long long)n_requests, n_requests / secs);
    std::printf(
        "tallyd-load: %zu requests answered, %zu unanswered, %llu replies for nothing; reply "
        "latency p50 %.2f ms, p99 %.2f ms, max %.2f ms\n",
        latencies.size(), open_requests.size(), (unsigned long long)extra_replies, pct(0.5),
        pct(0.99), latencies.empty() ? 0.0 : latencies.back());
    return open_requests.empty() && extra_replies == 0 ? 0 : 1;
}
