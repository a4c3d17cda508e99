// The one reply of a report request.
//
// Every report handler answers exactly once, whatever happens on the way: a
// report_reply starts the reply when it is made (header reset, request id
// copied from the request, the first bytes of the data area cleared, data
// length 0) and sends it when send() is called or, at the latest, when it
// goes out of scope. Builders write into data() and state how much of it
// the reply carries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

class report_reply {
   public:
    // Starts the reply to request (the whole received message) with `zeroed`
    // data bytes cleared.
    explicit report_reply(std::span<const uint8_t> request, size_t zeroed = 0);
    // Sends the reply if send() was not called.
    ~report_reply();
    report_reply(const report_reply &) = delete;
    report_reply &operator=(const report_reply &) = delete;

    // The data area (message offset 28 to the end of the reply buffer).
    std::span<uint8_t> data();
    // Clears the first n data bytes and makes them the reply's data; returns
    // them.
    std::span<uint8_t> fill(size_t n);
    void set_length(size_t n);
    size_t length() const;

    // Sends the reply (tallyd_reply_send(0)); 0, or -1 when sending failed
    // (logged there). Later calls send nothing and return the first result.
    int send();

   private:
    bool sent_ = false;
    int result_ = 0;
};
