// What every report command of tallyctl shares: named options, the output
// choice (table, --json, --raw bytes, a --png or --svg picture), sending the
// request and showing the decoded reply.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "report_picture.h"
#include "reports/report_wire.h"

struct report_output {
    bool raw = false;
    std::optional<tallyctl_picture_format> picture;
    std::string picture_path;
};

// Prints "tallyctl CMD: what" on standard error; returns 2 (bad usage).
int tallyctl_usage_error(const char *cmd, const std::string &what);

// Options of the form --name VALUE or --flag, in any order.
class option_reader {
   public:
    option_reader(const char *cmd, const std::vector<std::string> &args) : cmd_(cmd), args_(args) {}
    bool next(std::string *name) {
        if (i_ >= args_.size()) return false;
        *name = args_[i_++];
        return true;
    }
    // The value after the current option; false (usage printed) if none.
    bool value(const std::string &name, std::string *v) {
        if (i_ >= args_.size()) {
            status_ = tallyctl_usage_error(cmd_, "missing value after " + name);
            return false;
        }
        *v = args_[i_++];
        return true;
    }
    int fail(const std::string &what) { return status_ = tallyctl_usage_error(cmd_, what); }
    int status() const { return status_; }

    // --raw, --png FILE, --svg FILE; true when name was one of them.
    bool output(const std::string &name, report_output *o) {
        if (name == "--raw") return o->raw = true;
        if (name != "--png" && name != "--svg") return false;
        o->picture = name == "--png" ? tallyctl_picture_format::png : tallyctl_picture_format::svg;
        value(name, &o->picture_path);
        return true;
    }

   private:
    const char *cmd_;
    const std::vector<std::string> &args_;
    size_t i_ = 0;
    int status_ = 0;
};

// A word out of a list of words; its index, or -1.
int tallyctl_word_index(const std::string &w, std::initializer_list<const char *> words);

// Draws a decoded reply into o's picture file; false with *error set.
using tallyctl_drawer = bool (*)(const nlohmann::json &decoded, const report_output &o,
                                 const std::string &title, std::string *error);

// Sends the request (a builder's message, header bytes zero) on the control
// socket and prints the one reply (or dumps it, or draws it with draw).
// 0 done, 1 when the daemon did not answer or the picture failed.
int tallyctl_show_report(const tallyctl_ctx &ctx, uint32_t id, const std::vector<uint8_t> &msg,
                         const report_wire::layout &l, const report_output &o, tallyctl_drawer draw,
                         const std::string &title);
