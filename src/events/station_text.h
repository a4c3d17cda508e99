// The texts of one station record as the station handlers use them:
// zero-terminated copies cut at their field widths, and for the three texts
// the daemon quotes (host name, user name, authentication type) the escaped
// statement form with the value it stores. Lives in the handler's frame;
// nothing is allocated.
#pragma once

#include <cstddef>

#include "base/fixed_text.h"
#include "db/sql.h"
#include "db/sql_shown.h"
#include "events/events_wire.h"

// A text escaped the daemon's way: quotes doubled within size N (the field
// width), the stored value read back from that form.
template <size_t N>
struct escaped_text {
    fixed_text<N> shown;

    explicit escaped_text(std::string_view v) : shown(v) {}
    // Escapes the text when it holds a quote (texts without one stay as
    // they are, even at their full width).
    void escape() {
        if (shown.has('\'')) tallyd_sql_escape(shown.data(), static_cast<int32_t>(N));
    }
    // The statement form and the stored value; valid while this object lives
    // and is not changed.
    sql_text arg() const {
        return {shown.c_str(), sql_literal_value(shown.c_str(), value_, sizeof value_)};
    }

   private:
    mutable char value_[N + 1];
};

struct station_text {
    explicit station_text(const events_wire::station &s)
        : mac(s.client_mac),
          ap_mac(s.ap_mac),
          device(s.device),
          ssid(s.ssid),
          host_name(s.host_name),
          auth_type(s.auth_type),
          user_name(s.user_name) {}

    // The client MAC has the one accepted form: 17 characters, no quote.
    bool mac_ok() const { return mac.view().size() == 17 && !mac.has('\''); }
    void escape_all() {
        host_name.escape();
        auth_type.escape();
        user_name.escape();
    }
    sql_text host() const { return host_name.arg(); }
    sql_text auth() const { return auth_type.arg(); }
    sql_text user() const { return user_name.arg(); }

    fixed_text<events_wire::kStaClientMac.width> mac;
    fixed_text<events_wire::kStaApMac.width> ap_mac;
    fixed_text<events_wire::kStaDevice.width> device;
    fixed_text<events_wire::kStaSsid.width> ssid;
    escaped_text<events_wire::kStaHostName.width> host_name;
    escaped_text<events_wire::kStaAuthType.width> auth_type;
    escaped_text<events_wire::kStaUserName.width> user_name;
};
