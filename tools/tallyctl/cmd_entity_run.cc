// Command-table adapters of the entity commands: turn the words into a
// datagram with cmd_entity.h and send it with the client library; the
// sending half serves the event commands too.
#include <cstdio>

#include "cmd_entity.h"
#include "commands.h"

int tallyctl_build_and_send(std::string_view cmd, tallyctl_builder build, const tallyctl_ctx &ctx,
                            const std::vector<std::string> &args) {
    tallyctl_datagram d;
    std::string error;
    int rc = build(cmd, args, &d, &error);
    if (rc == 1) {
        std::fputs(error.c_str(), stdout);
        return 0;
    }
    if (rc != 0) {
        std::fprintf(stderr, "tallyctl %.*s: %s\n", static_cast<int>(cmd.size()), cmd.data(),
                     error.c_str());
        return rc;
    }
    tallyd_socket_kind kind =
        d.stat_socket ? tallyd_socket_kind::stat : tallyd_socket_kind::control;
    return tallyctl_send_datagram(ctx, kind, tallyctl_message(d.id, d.payload));
}

namespace {

int send_entity(std::string_view cmd, const tallyctl_ctx &ctx,
                const std::vector<std::string> &args) {
    return tallyctl_build_and_send(cmd, tallyctl_entity_datagram, ctx, args);
}

}  // namespace

int tallyctl_cmd_set_hostname(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return send_entity("set-hostname", ctx, args);
}

int tallyctl_cmd_arc(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return send_entity("arc", ctx, args);
}

int tallyctl_cmd_stat0a(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return send_entity("stat0a", ctx, args);
}

int tallyctl_cmd_ids(const tallyctl_ctx &, const std::vector<std::string> &args) {
    if (args.size() > 1) {
        std::fprintf(stderr, "tallyctl ids: at most one of ap, ssid, apgroup, dvcinfo\n");
        return 2;
    }
    std::string out, error;
    int rc = tallyctl_print_ids(args.empty() ? "" : args[0], &out, &error);
    std::fputs(out.c_str(), stdout);
    if (!error.empty()) std::fprintf(stderr, "tallyctl ids: %s", error.c_str());
    return rc;
}
