// Fuzz target for the interface configuration's readers of the kernel's and
// the resolver's files: /etc/resolv.conf, /proc/net/route, /proc/net/dev and
// /sys/class/net/IF/carrier, laid out below a directory of the run's own.
// Input: the four contents, separated by NUL bytes (carrier last, for
// "eth0"). Reads everything through the library and the ethernet section,
// then writes two name servers and checks that they read back.
#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cgi/output.h"
#include "fuzz_fakes.h"
#include "json/json_ctrl_func.h"
#include "net/net_config.h"

namespace {

std::vector<std::string> parts(const uint8_t* data, size_t size, size_t count) {
    std::vector<std::string> out(count);
    size_t at = 0;
    for (size_t i = 0; i < count && at <= size; ++i) {
        const void* nul = std::memchr(data + at, 0, size - at);
        const size_t end =
            nul != nullptr ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - data) : size;
        out[i].assign(reinterpret_cast<const char*>(data + at), end - at);
        at = end + 1;
    }
    return out;
}

const std::string& root() {
    static const std::string dir = [] {
        const std::string& d = fuzz::root();
        for (const char* sub : {"/proc/net", "/sys/class/net/eth0", "/etc"})
            std::filesystem::create_directories(d + sub);
        return d;
    }();
    return dir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::install();
    fuzz::replies_from(nullptr, 0);
    const std::string& dir = root();
    const std::vector<std::string> files = parts(data, size, 4);
    const std::string resolv = dir + "/etc/resolv.conf";
    std::ofstream(resolv, std::ios::binary | std::ios::trunc) << files[0];
    std::ofstream(dir + "/proc/net/route", std::ios::binary | std::ios::trunc) << files[1];
    std::ofstream(dir + "/proc/net/dev", std::ios::binary | std::ios::trunc) << files[2];
    std::ofstream(dir + "/sys/class/net/eth0/carrier", std::ios::binary | std::ios::trunc) << files[3];

    net_get_dns();
    net_get_dns1();
    net_get_dns2();
    net_get_gateway();
    net_any_link_up();
    Check_Link_status("eth0");
    {
        setenv("REQUEST_METHOD", "GET", 1);
        OutputCapture capture;
        json_get_ctrl(R"({"ethernet":{"eth0":true}})");
    }
    // What is written reads back, whatever the file held before.
    if (net_set_dns2("10.1.2.3", "10.4.5.6") == 0 &&
        (net_get_dns1() != inet_addr("10.1.2.3") || net_get_dns2() != inet_addr("10.4.5.6")))
        __builtin_trap();
    return 0;
}

#include "replay_main.h"
