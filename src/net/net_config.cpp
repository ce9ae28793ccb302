// Ethernet settings read and changed on the running system: socket ioctls,
// the kernel's route and device tables, resolv.conf and a few shell tools.
#include "net/net_config.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "support/log.h"
#include "support/support.h"
#include "net/net_io.h"
#include "platform/platform.h"
#include "support/owners.h"

namespace net_io {
FilePtr open_file(const std::string& path, const char* mode) {
    return FilePtr(std::fopen(path.c_str(), mode));
}
ifreq make_ifreq(const char* ifname) {
    ifreq ifr{};
    std::strncpy(ifr.ifr_name, ifname, IFNAMSIZ - 1);
    return ifr;
}
Fd inet_socket() { return Fd(socket(AF_INET, SOCK_DGRAM, 0)); }
sockaddr_in inet_sockaddr(uint32_t addr) {
    sockaddr_in sin{};
    sin.sin_family = AF_INET;
    sin.sin_port = 0;
    sin.sin_addr.s_addr = addr;
    return sin;
}
}  // namespace net_io

using namespace net_io;

namespace {

constexpr const char* kResolvConf = "/etc/resolv.conf";
constexpr const char* kRouteFile = "/proc/net/route";

uint32_t sockaddr_addr(const sockaddr& sa) {
    sockaddr_in sin;
    std::memcpy(&sin, &sa, sizeof sin);
    return sin.sin_addr.s_addr;
}

void put_sockaddr(sockaddr& dst, uint32_t addr) {
    sockaddr_in sin = inet_sockaddr(addr);
    std::memcpy(&dst, &sin, sizeof sin);
}

// The gateway of one "/proc/net/route" line when it is an up gateway route.
bool route_line_gateway(const char* line, uint32_t* gateway) {
    char iface[64];
    unsigned long dest = 0, gw = 0;
    unsigned int flags = 0;
    if (std::sscanf(line, "%63s\t%08lX\t%08lX\t%8X\t", iface, &dest, &gw, &flags) != 4) return false;
    if ((flags & (RTF_UP | RTF_GATEWAY)) != (RTF_UP | RTF_GATEWAY)) return false;
    *gateway = static_cast<uint32_t>(gw);
    return true;
}

int route_request(unsigned long request, uint32_t gateway) {
    Fd sock = inet_socket();
    if (!sock.ok()) return -1;
    rtentry rt{};
    put_sockaddr(rt.rt_dst, 0);
    put_sockaddr(rt.rt_genmask, 0);
    put_sockaddr(rt.rt_gateway, gateway);
    rt.rt_flags = RTF_UP | RTF_GATEWAY;
    return ioctl(sock.get(), request, &rt);
}

// The n-th (0-based) counting "nameserver " line of resolv.conf.
uint32_t read_name_server(int index, const char* who) {
    FilePtr f = open_file(platform_path(kResolvConf).c_str(), "r");
    if (!f) {
        LOG_DBG("%s: file \"%s\" opened for reading error!\n", who, kResolvConf);
        return 0;
    }
    char line[256];
    int seen = 0;
    while (std::fgets(line, sizeof line, f.get())) {
        if (line[0] == '\n' || line[0] == '\r' || line[0] == '#') continue;
        const char* hit = std::strstr(line, "nameserver ");
        if (!hit) continue;
        if (seen++ < index) continue;
        return inet_addr(hit + 11);
    }
    LOG_DBG("%s: scan fail!\n", who);
    return 0;
}

int write_name_servers(const char* const* servers, int count, const char* who) {
    FilePtr f = open_file(platform_path(kResolvConf).c_str(), "w");
    if (!f) {
        LOG_DBG("%s: file \"%s\" opened for writing error!\n", who, kResolvConf);
        return -1;
    }
    for (int i = 0; i < count; ++i) std::fprintf(f.get(), "nameserver %s\n", servers[i]);
    return 0;
}

int run(const char* format, const char* arg) {
    char cmd[256];
    std::snprintf(cmd, sizeof cmd, format, arg);
    return pox_system(cmd);
}

}  // namespace

uint32_t net_get_ifaddr(const char* ifname) {
    Fd sock = inet_socket();
    if (!sock.ok()) {
        LOG_ERR("socket error\n");
        return 0;
    }
    ifreq ifr = make_ifreq(ifname);
    if (ioctl(sock.get(), SIOCGIFADDR, &ifr) < 0) {
        LOG_ERR("in net_get_ifaddr: ioctl SIOCGIFADDR\n");
        return 0;
    }
    return sockaddr_addr(ifr.ifr_addr);
}

int net_set_ifaddr(const char* ifname, uint32_t addr) {
    if (net_ip_in_use(addr)) {
        LOG_ERR("IP in use.\n");
        return -1;
    }
    Fd sock = inet_socket();
    if (!sock.ok()) {
        LOG_ERR("socket error\n");
        return -1;
    }
    ifreq ifr = make_ifreq(ifname);
    put_sockaddr(ifr.ifr_addr, addr);
    if (ioctl(sock.get(), SIOCSIFADDR, &ifr) < 0) {
        LOG_ERR("net_set_ifaddr: ioctl SIOCSIFADDR\n");
        return -1;
    }
    return 0;
}

int net_get_mtu(const char* ifname) {
    Fd sock = inet_socket();
    if (!sock.ok()) return -1;
    ifreq ifr = make_ifreq(ifname);
    if (ioctl(sock.get(), SIOCGIFMTU, &ifr) < 0) {
        LOG_ERR("in net_get_mtu: ioctl SIOCGIFMTU\n");
        return -1;
    }
    return ifr.ifr_mtu;
}

int net_set_mtu(const char* ifname, int mtu) {
    char cmd[128];
    std::snprintf(cmd, sizeof cmd, "echo \"%1d\" > /sys/class/net/%s/mtu", mtu, ifname);
    pox_system(cmd);
    return 0;
}

uint32_t net_get_netmask(const char* ifname) {
    Fd sock = inet_socket();
    if (!sock.ok()) return 0;
    ifreq ifr = make_ifreq(ifname);
    if (ioctl(sock.get(), SIOCGIFNETMASK, &ifr) < 0) {
        LOG_ERR("net_get_netmask: ioctl SIOCGIFNETMASK\n");
        return 0;
    }
    return sockaddr_addr(ifr.ifr_netmask);
}

int net_set_netmask(const char* ifname, uint32_t mask) {
    Fd sock = inet_socket();
    if (!sock.ok()) return -1;
    ifreq ifr = make_ifreq(ifname);
    put_sockaddr(ifr.ifr_netmask, mask);
    if (ioctl(sock.get(), SIOCSIFNETMASK, &ifr) < 0) {
        LOG_ERR("SIOCSIFNETMASK failed.%x\n", mask);
        return -1;
    }
    return 0;
}

int net_get_hwaddr(const char* ifname, unsigned char* mac) {
    Fd sock = inet_socket();
    if (!sock.ok() || !mac) return -1;
    ifreq ifr = make_ifreq(ifname);
    if (ioctl(sock.get(), SIOCGIFHWADDR, &ifr) < 0) {
        LOG_ERR("net_get_hwaddr: ioctl SIOCGIFHWADDR\n");
        return -1;
    }
    std::memcpy(mac, ifr.ifr_hwaddr.sa_data, 6);
    return 0;
}

int net_add_gateway(uint32_t gateway) {
    if (route_request(SIOCADDRT, gateway) < 0) {
        LOG_ERR("SIOCADDRT failed.%x\n", gateway);
        return -1;
    }
    return 0;
}

int net_del_gateway(uint32_t gateway) {
    if (route_request(SIOCDELRT, gateway) < 0) {
        LOG_ERR("net_del_gateway: ioctl SIOCDELRT\n");
        return -1;
    }
    return 0;
}

int net_set_gateway(uint32_t gateway) {
    FilePtr f = open_file(platform_path(kRouteFile).c_str(), "r");
    if (!f) {
        LOG_ERR("/proc/net/route");
        LOG_DBG("INET (IPv4) not configured in this system.\n");
        return -1;
    }
    // A gateway outside the interface's subnet first needs a host route.
    uint32_t addr = net_get_ifaddr("eth0");
    uint32_t mask = net_get_netmask("eth0");
    if (((addr ^ gateway) & mask) != 0) {
        in_addr in{gateway};
        run("route add -host %s eth0", net_dotted(in.s_addr).c_str());
    }
    char line[130];
    if (std::fgets(line, sizeof line, f.get())) {  // header
        uint32_t old = 0;
        while (std::fgets(line, sizeof line, f.get()))
            if (route_line_gateway(line, &old)) net_del_gateway(old);
    }
    return net_add_gateway(gateway);
}

uint32_t net_get_gateway() {
    FilePtr f = open_file(platform_path(kRouteFile).c_str(), "r");
    if (!f) {
        LOG_ERR("%s INET (IPv4) not configured in this system.\n", kRouteFile);
        return 0;
    }
    char line[130];
    if (!std::fgets(line, sizeof line, f.get())) return 0;  // header
    uint32_t gateway = 0;
    while (std::fgets(line, sizeof line, f.get()))
        if (route_line_gateway(line, &gateway)) return gateway;
    return 0;
}

int net_set_dns(const char* name_server) {
    if (!name_server) return -1;
    LOG_DBG("set dns=%s\n", name_server);
    return write_name_servers(&name_server, 1, "net_set_dns");
}

int net_set_dns1(const char* name_server) {
    if (!name_server) return -1;
    LOG_DBG("dns=%s\n", name_server);
    return write_name_servers(&name_server, 1, "net_set_dns1");
}

int net_set_dns2(const char* first, const char* second) {
    if (!first || !second) return -1;
    const char* servers[] = {first, second};
    int rc = write_name_servers(servers, 2, "net_set_dns2");
    if (rc == 0) {
        LOG_DBG("dns1=%s\n", first);
        LOG_DBG("dns2=%s\n", second);
    }
    return rc;
}

uint32_t net_get_dns() { return read_name_server(0, "net_get_dns"); }
uint32_t net_get_dns1() { return read_name_server(0, "net_get_dns1"); }
uint32_t net_get_dns2() { return read_name_server(1, "net_get_dns2"); }

int net_enable_dhcpcd() {
    LOG_ERR(" ++++++FUN: net_enable_dhcpcd ++++++\n");
    pox_system("/opt/ipnc/dhcpcd/dhcpcd -k eth0");
    pox_system("ifconfig eth0 0.0.0.0");
    return pox_system("/opt/ipnc/dhcpcd/dhcpcd eth0");
}

int net_disable_dhcpcd() {
    pox_system("killall -9 dhcpcd");
    return pox_system("rm -f /var/run/dhcpcd-eth0.pid\n");
}

int net_set_mac(const char* mac_text) {
    if (!mac_text) return -1;
    unsigned int b[6];
    if (std::sscanf(mac_text, "%02x:%02x:%02x:%02x:%02x:%02x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]) != 6)
        return -1;
    if (b[0] & 1) {
        LOG_ERR("Mac set %s is Multicast address.\n", mac_text);
        return -1;
    }
    // The text goes to the shell: accept only the address itself.
    if (std::strspn(mac_text, "0123456789abcdefABCDEF:") != std::strlen(mac_text)) return -1;
    pox_system("ifconfig eth0 down");
    run("ifconfig eth0 hw ether %s", mac_text);
    pox_system("ifconfig eth0 up");
    return 0;
}

std::string net_dotted(uint32_t addr) {
    in_addr a{};
    a.s_addr = addr;
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &a, text, sizeof text);
    return text;
}

std::string net_eth0_dotted() { return net_dotted(net_get_ifaddr("eth0")); }
