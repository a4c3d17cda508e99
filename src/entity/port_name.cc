#include "entity/port_name.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

struct port_label {
    int32_t port;
    const char *text;
};

// Sorted by port for the binary search below.
constexpr port_label kLabels[] = {
    {1, "icmp(port 1)"},
    {4, "ipinip(port 4)"},
    {8, "egp(port 8)"},
    {20, "ftp(port 20)"},
    {21, "ftp(port 21)"},
    {22, "ssh(port 22)"},
    {23, "telnet(port 23)"},
    {25, "smtp(port 25)"},
    {47, "gre(port 70)"},
    {53, "dns(port 53)"},
    {67, "dhcp(port 67)"},
    {68, "dhcp(port 68)"},
    {69, "tftp(port 69)"},
    {70, "gopher(port 70)"},
    {79, "finger(port 79)"},
    {80, "http(port 80)"},
    {88, "eigrp(port 70)"},
    {110, "pop3(port 110)"},
    {119, "nntp(port 119)"},
    {123, "ntp(port 123)"},
    {137, "netbios(port 137)"},
    {138, "netbios(port 138)"},
    {139, "netbios(port 139)"},
    {179, "bgp(port 179)"},
    {194, "irc(port 194)"},
    {389, "ldap(port 389)"},
    {411, "directconnect(port 411)"},
    {443, "https(port 443)"},
    {514, "syslog(port 514)"},
    {515, "printer(port 515)"},
    {520, "rip(port 520)"},
    {563, "snntp(port 563)"},
    {636, "sldap(port 636)"},
    {990, "sftp(port 990)"},
    {992, "stelnet(port 992)"},
    {994, "sirc(port 994)"},
    {995, "spop3(port 995)"},
    {1080, "socks(port 1080)"},
    {1352, "notes(port 1352)"},
    {1433, "sqlserver(port 1433)"},
    {1698, "rsvp(port 1698)"},
    {1699, "rsvp(port 1699)"},
    {1701, "l2tp(port 1701)"},
    {1723, "pptp(port 1723)"},
    {2000, "skinny(port 2000)"},
    {2001, "skinny(port 2001)"},
    {2002, "skinny(port 2002)"},
    {2049, "nfs(port 2049"},
    {4662, "edonkey(port 4662)"},
    {5060, "sip(port 5060)"},
    {6000, "xwindows(port 6000)"},
    {6001, "xwindows(port 6001)"},
    {6002, "xwindows(port 6002)"},
    {6003, "xwindows(port 6003)"},
    {6699, "winmx(port 6699)"},
    {6881, "bittorrent(port 6881)"},
    {6882, "bittorrent(port 6882)"},
    {6883, "bittorrent(port 6883)"},
    {6884, "bittorrent(port 6884)"},
    {6885, "bittorrent(port 6885)"},
    {6886, "bittorrent(port 6886)"},
    {6887, "bittorrent(port 6887)"},
    {6888, "bittorrent(port 6888)"},
    {6889, "bittorrent(port 6889)"},
    {24032, "cuseeme(port 24032)"},
};

static_assert(std::size(kLabels) == 65);
static_assert(std::is_sorted(std::begin(kLabels), std::end(kLabels),
                             [](const port_label &a, const port_label &b) {
                                 return a.port < b.port;
                             }));

}  // namespace

int tallyd_port_to_name(int32_t port, char *out) {
    const port_label *it =
        std::lower_bound(std::begin(kLabels), std::end(kLabels), port,
                         [](const port_label &l, int32_t p) { return l.port < p; });
    if (it != std::end(kLabels) && it->port == port)
        return std::snprintf(out, TALLYD_PORT_NAME_SIZE, "%s", it->text);
    return std::snprintf(out, TALLYD_PORT_NAME_SIZE, "%s%d", "port ", port);
}
