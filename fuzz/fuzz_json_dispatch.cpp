// Fuzz target for the JSON control API's dispatchers, run without a camera:
// the system port is an in-memory settings record (so write handlers get
// past their refusals and their commands are taken, but nothing leaves the
// process), and the camera channel answers no inquiry.
//
// The first input byte picks the dispatcher, the rest is the JSON text; both
// run with the method GET, so every read and write handler is reachable.
// Some handlers run fixed firmware commands through the shell; PATH is
// emptied so that on a development machine none of them is found. The
// snapshot command is refused, so no handler waits for a picture.
// Checks that every reply starts with the JSON header block and that a reply
// printed for a usable object ends with a "status" member.
// See fuzz/README.md for building and running.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "cgi/output.h"
#include "camera/image_ctrl.h"
#include "cgi/reply.h"
#include "ipc/sys_port.h"
#include "json/json_ctrl_func.h"
#include "support/elog.h"

namespace {

SysStore g_store;
constexpr uint32_t kCmdSnapshot = 41;

int fuzz_command(uint32_t cmd, void*, int, int*) { return cmd == kCmdSnapshot ? -1 : 0; }
SysInfo* fuzz_info() { return &g_store.info; }
SysState* fuzz_state(int) { return &g_store.state; }
CamInfo* fuzz_cam() { return &g_store.cam; }
AiInfo* fuzz_ai() { return &g_store.ai; }
constexpr SysPort kPort{fuzz_command, fuzz_info, fuzz_state, fuzz_cam, fuzz_ai};

int silent_wait(uint8_t*, int, int*) { return -1; }
int taken_nowait(const uint8_t*, int) { return 0; }
void no_flush() {}
constexpr CamTransport kCamera{silent_wait, taken_nowait, no_flush};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        g_print_level = 0;
        setenv("PATH", "/nonexistent", 1);
        sys_port_install(&kPort);
        image_ctrl_set_transport(&kCamera);
        return true;
    }();
    (void)quiet;
    if (size == 0) return 0;
    const bool set = (data[0] & 1) != 0;
    // Requests reach the dispatchers as zero-terminated text of at most 2048 bytes.
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text = text.substr(0, text.find('\0')).substr(0, 2048);

    setenv("REQUEST_METHOD", "GET", 1);
    OutputCapture capture;
    const int result = set ? json_set_ctrl(text.c_str()) : json_get_ctrl(text.c_str());

    const std::string& reply = capture.text();
    if (reply.compare(0, kHdrJson.size(), kHdrJson) != 0) __builtin_trap();
    if (result == 0) {
        const std::string_view tail = std::string_view(reply).substr(kHdrJson.size());
        if (tail.find("\"status\":\t") == std::string_view::npos || !tail.ends_with("}\n")) __builtin_trap();
    }
    return 0;
}

#include "replay_main.h"
