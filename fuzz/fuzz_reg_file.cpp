// Fuzz target for the service tools: the "reg" section against a register
// device of the target's own (a sparse file as large as the 32-bit physical
// address space) and "file ctrl" below the run's scratch directory.
// Input: the first byte picks the dispatcher (even: get, odd: set), the rest
// is the request's JSON text. Checks: every register a write answered holds,
// in the device file at its address, the value the answer reports.
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "cgi/output.h"
#include "fuzz_fakes.h"
#include "json/json_ctrl_func.h"
#include "support/memmap.h"
#include "support/owners.h"

namespace {

const std::string& device() {
    static const std::string path = [] {
        std::filesystem::create_directories(fuzz::root() + "/dev");
        std::string p = fuzz::root() + "/dev/ambad";
        const int fd = open(p.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        if (fd < 0 || ftruncate(fd, off_t{1} << 32) != 0) __builtin_trap();
        close(fd);
        return p;
    }();
    // Registered once the name exists, so that it is removed before the name is.
    static const bool cleanup = std::atexit([] { std::remove(device().c_str()); }) == 0;
    (void)cleanup;
    return path;
}

uint32_t stored(uint32_t address) {
    const int fd = open(device().c_str(), O_RDONLY);
    uint32_t value = 0;
    if (fd < 0 || pread(fd, &value, sizeof value, address) != sizeof value) __builtin_trap();
    close(fd);
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::install();
    fuzz::replies_from(nullptr, 0);
    device();
    if (size < 1) return 0;
    const bool set = (data[0] & 1) != 0;
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text = text.substr(0, text.find('\0')).substr(0, 2048);
    setenv("REQUEST_METHOD", "GET", 1);
    std::string reply;
    {
        OutputCapture capture;
        set ? json_set_ctrl(text.c_str()) : json_get_ctrl(text.c_str());
        reply = capture.text();
    }
    if (!set) return 0;
    // Each register a "reg" member answered with a value: the device holds,
    // at its address, the value of the last answer for it (a request may
    // name a register, and the section, more than once).
    const size_t body = reply.find('{');
    JsonTree answer(body == std::string::npos ? nullptr : cJSON_Parse(reply.c_str() + body));
    std::map<unsigned long long, unsigned long> last;
    for (const cJSON* section = answer ? answer->child : nullptr; section != nullptr;
         section = section->next) {
        if (strcasecmp(section->string, "reg") != 0 || !cJSON_IsObject(section)) continue;
        for (const cJSON* m = section->child; m != nullptr; m = m->next) {
            if (!cJSON_IsString(m)) continue;
            const char* key = m->string;
            const bool hex = key[0] == '0' && (key[1] == 'x' || key[1] == 'X');
            const unsigned long long address = std::strtoull(hex ? key + 2 : key, nullptr, hex ? 16 : 10);
            if (address % 4 != 0 || address > 0xFFFFFFFCull) __builtin_trap();  // a word it may not reach
            last[address] = std::strtoul(m->valuestring + 2, nullptr, 16);
        }
    }
    for (const auto& [address, value] : last)
        if (value != stored(static_cast<uint32_t>(address))) __builtin_trap();
    return 0;
}

#include "replay_main.h"
