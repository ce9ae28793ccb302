// The interface library against a real "eth0": each case runs in a child
// process with its own network and mount namespaces, a veth eth0 whose peer sits in a LAN namespace and a
// private resolv.conf, so the host is never touched.
#include <arpa/inet.h>
#include <sched.h>
#include <netinet/in.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <functional>

#include "net/net_config.h"
#include "fake_files.h"
#include "scratch.h"

namespace {

uint32_t ip(const char* dotted) { return inet_addr(dotted); }

// Runs `body` in a sandboxed child; it returns the text of its failures.
std::string in_sandbox(const std::function<std::string()>& body) {
    int fds[2];
    if (pipe(fds) != 0) return "pipe";
    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        std::string out;
        char resolv[] = "/tmp/net_config_resolv_XXXXXX";
        int tmp = mkstemp(resolv);
        if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 || tmp < 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(resolv, "/etc/resolv.conf", nullptr, MS_BIND, nullptr) != 0 ||
            // sysfs shows the namespace's own interfaces only when mounted in it
            mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0 ||
            // named namespaces live in a private /run/netns, gone with the child
            std::system("mkdir -p /run/netns && mount -t tmpfs tmpfs /run/netns") != 0 ||
            // eth0 here, its peer in a second namespace that plays the LAN at 10.0.0.1
            std::system("ip link set lo up && ip link add eth0 type veth peer name lan0 && "
                        "ip netns add lan && ip link set lan0 netns lan && "
                        "ip -n lan addr add 10.0.0.1/24 dev lan0 && ip -n lan link set lan0 up && "
                        "ip -n lan link set lo up && "
                        "ip addr add 10.0.0.5/24 dev eth0 && ip link set eth0 up") != 0) {
            out = "SKIP";
        } else {
            out = body();
        }
        if (tmp >= 0) unlink(resolv);
        (void)!write(fds[1], out.data(), out.size());
        _exit(0);
    }
    close(fds[1]);
    std::string out;
    char buf[512];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    waitpid(pid, nullptr, 0);
    return out;
}

#define CHECK_EQ_IN_CHILD(out, a, b) \
    if ((a) != (b)) (out) += std::string(#a " != " #b "; ")

class NetConfig : public ::testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "needs root for network namespaces";
    }
    void run(const std::function<std::string()>& body) {
        std::string failures = in_sandbox(body);
        if (failures == "SKIP") GTEST_SKIP() << "namespaces not available";
        EXPECT_EQ(failures, "");
    }
};

TEST_F(NetConfig, ReadsAndWritesNameServers) {
    run([] {
        std::string out;
        {
            std::ofstream f("/etc/resolv.conf");
            f << "# nameserver 1.1.1.1\n\nsearch lan\nnameserver 8.8.8.8\n  nameserver 9.9.9.9\n";
        }
        CHECK_EQ_IN_CHILD(out, net_get_dns1(), ip("8.8.8.8"));
        CHECK_EQ_IN_CHILD(out, net_get_dns(), ip("8.8.8.8"));
        CHECK_EQ_IN_CHILD(out, net_get_dns2(), ip("9.9.9.9"));
        CHECK_EQ_IN_CHILD(out, net_set_dns2("4.4.4.4", "5.5.5.5"), 0);
        CHECK_EQ_IN_CHILD(out, slurp("/etc/resolv.conf"),
                          std::string("nameserver 4.4.4.4\nnameserver 5.5.5.5\n"));
        CHECK_EQ_IN_CHILD(out, net_set_dns("7.7.7.7"), 0);
        CHECK_EQ_IN_CHILD(out, slurp("/etc/resolv.conf"), std::string("nameserver 7.7.7.7\n"));
        CHECK_EQ_IN_CHILD(out, net_set_dns1("6.6.6.6"), 0);
        CHECK_EQ_IN_CHILD(out, slurp("/etc/resolv.conf"), std::string("nameserver 6.6.6.6\n"));
        CHECK_EQ_IN_CHILD(out, net_get_dns2(), 0u);
        { std::ofstream f("/etc/resolv.conf"); }
        CHECK_EQ_IN_CHILD(out, net_get_dns1(), 0u);
        return out;
    });
}

TEST_F(NetConfig, AddressMaskMtuAndMac) {
    run([] {
        std::string out;
        CHECK_EQ_IN_CHILD(out, net_get_ifaddr("eth0"), ip("10.0.0.5"));
        CHECK_EQ_IN_CHILD(out, net_get_netmask("eth0"), ip("255.255.255.0"));
        CHECK_EQ_IN_CHILD(out, net_set_netmask("eth0", ip("255.255.0.0")), 0);
        CHECK_EQ_IN_CHILD(out, net_get_netmask("eth0"), ip("255.255.0.0"));
        // The present address passes the in-use test.
        CHECK_EQ_IN_CHILD(out, net_ip_in_use(ip("10.0.0.5")), 0);
        CHECK_EQ_IN_CHILD(out, net_set_ifaddr("eth0", ip("10.0.0.5")), 0);
        CHECK_EQ_IN_CHILD(out, net_get_ifaddr("nosuch0"), 0u);
        CHECK_EQ_IN_CHILD(out, net_set_mtu("eth0", 1400), 0);
        CHECK_EQ_IN_CHILD(out, net_get_mtu("eth0"), 1400);

        unsigned char before[6], after[6];
        CHECK_EQ_IN_CHILD(out, net_get_hwaddr("eth0", before), 0);
        CHECK_EQ_IN_CHILD(out, net_set_mac("01:00:5e:00:00:01"), -1);  // multicast
        CHECK_EQ_IN_CHILD(out, net_set_mac("02:11:22:33:44"), -1);     // five bytes
        net_get_hwaddr("eth0", after);
        CHECK_EQ_IN_CHILD(out, std::string(before, before + 6), std::string(after, after + 6));
        CHECK_EQ_IN_CHILD(out, net_set_mac("02:11:22:33:44:55"), 0);
        net_get_hwaddr("eth0", after);
        const unsigned char want[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
        CHECK_EQ_IN_CHILD(out, std::string(after, after + 6), std::string(want, want + 6));
        return out;
    });
}

TEST_F(NetConfig, DefaultGatewayFromRouteTable) {
    run([] {
        std::string out;
        CHECK_EQ_IN_CHILD(out, net_get_gateway(), 0u);
        // A host route has no gateway flag and is not taken for the gateway.
        std::system("ip route add 10.0.0.9/32 dev eth0");
        CHECK_EQ_IN_CHILD(out, net_get_gateway(), 0u);
        CHECK_EQ_IN_CHILD(out, net_set_gateway(ip("10.0.0.1")), 0);
        CHECK_EQ_IN_CHILD(out, net_get_gateway(), ip("10.0.0.1"));
        CHECK_EQ_IN_CHILD(out, net_set_gateway(ip("10.0.0.2")), 0);
        CHECK_EQ_IN_CHILD(out, net_get_gateway(), ip("10.0.0.2"));
        // Outside the subnet: a host route makes it reachable first.
        CHECK_EQ_IN_CHILD(out, net_set_gateway(ip("172.16.0.1")), 0);
        CHECK_EQ_IN_CHILD(out, net_get_gateway(), ip("172.16.0.1"));
        {  // without a route table to read, nothing is changed
            const Scratch dir("noroute");
            const fake::RootInstalled root(dir.path());
            CHECK_EQ_IN_CHILD(out, net_set_gateway(ip("10.0.0.3")), -1);
        }
        CHECK_EQ_IN_CHILD(out, net_get_gateway(), ip("172.16.0.1"));
        return out;
    });
}

TEST_F(NetConfig, PingAnswersOnlyForLiveAddresses) {
    run([] {
        std::string out;
        CHECK_EQ_IN_CHILD(out, net_ping("10.0.0.5", 1000), 0);
        CHECK_EQ_IN_CHILD(out, net_ping("10.0.0.1", 1000), 0);  // the LAN end answers
        CHECK_EQ_IN_CHILD(out, net_ping("10.0.0.77", 200), -1);
        // 500 is half a millisecond: an absent neighbour is never "in use".
        CHECK_EQ_IN_CHILD(out, net_ip_in_use(ip("10.0.0.77")), 0);
        // A port bound by someone is in use, a free one is not.
        int s = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in sin{};
        sin.sin_family = AF_INET;
        sin.sin_port = htons(18555);
        bind(s, reinterpret_cast<sockaddr*>(&sin), sizeof sin);
        CHECK_EQ_IN_CHILD(out, net_check_port(18555), 1);
        close(s);
        CHECK_EQ_IN_CHILD(out, net_check_port(18555), 0);
        return out;
    });
}

// Each text and the address it parses to ("" when refused).
TEST(NetParse, TwelveDigitAndDottedForms) {
    for (std::string text :
         {"192168001100=192.168.1.100", "192256001100=", "10.1.2.3=10.1.2.3", "10.1.2.x="}) {
        const std::string want = text.substr(text.find('=') + 1);
        text.resize(text.find('='));
        uint32_t addr = 0;  // the bytes in network order
        const bool parsed = net_parse_addr(text.data(), reinterpret_cast<unsigned char*>(&addr)) == 1;
        EXPECT_EQ(parsed ? net_dotted(addr) : "", want) << text;
    }
    EXPECT_EQ(net_set_mac(nullptr), -1);  // no text: refused before anything runs
}

TEST(NetParse, InternetChecksum) {
    // Example from RFC 1071: the words 0001 f203 f4f5 f6f7 sum to ddf2, so
    // the checksum is its complement (bytes taken in memory order).
    const unsigned char data[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
    uint16_t sum = net_icmp_checksum(data, sizeof data);
    const auto* b = reinterpret_cast<const unsigned char*>(&sum);
    EXPECT_EQ(b[0], 0x22);
    EXPECT_EQ(b[1], 0x0d);
    // A buffer with its checksum in place sums to zero; odd lengths work too.
    unsigned char odd[] = {0x45, 0x00, 0x00, 0x00, 0x12};
    uint16_t c = net_icmp_checksum(odd, 5);
    std::memcpy(odd + 2, &c, 2);
    EXPECT_EQ(net_icmp_checksum(odd, 5), 0);
    // A sum whose first fold carries again (ffff + ffff + 0001 in either byte order).
    unsigned char carry[] = {0xff, 0xff, 0xff, 0xff, 0x01, 0x00, 0x00, 0x00};
    c = net_icmp_checksum(carry, 8);
    std::memcpy(carry + 6, &c, 2);
    EXPECT_EQ(net_icmp_checksum(carry, 8), 0);
}

}  // namespace
