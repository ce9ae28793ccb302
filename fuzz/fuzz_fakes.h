// The peers every fuzz target runs against, inside the process: an
// in-memory settings record behind the system port (commands are taken and
// go nowhere; the snapshot command is refused so that nothing waits for a
// picture), and a camera whose replies come from the fuzz input. Every
// packet the camera command set sends must be well framed: a packet that is
// not stops the run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "camera/image_ctrl.h"
#include "camera/visca_ops.h"
#include "ipc/sys_port.h"
#include "net/net_config.h"
#include "json/json_reg.h"
#include "support/memmap.h"
#include "support/elog.h"
#include "support/support.h"

namespace fuzz {

inline SysStore g_store;
inline constexpr uint32_t kCmdSnapshot = 41;

// The camera's replies: each wait takes a length byte (0 = no reply, the
// channel fails) and that many reply bytes; an empty source fails too.
inline const uint8_t* g_replies = nullptr;
inline size_t g_replies_left = 0;

inline int command(uint32_t cmd, void*, int, int*) { return cmd == kCmdSnapshot ? -1 : 0; }
inline SysInfo* info() { return &g_store.info; }
inline SysState* state(int) { return &g_store.state; }
inline CamInfo* cam() { return &g_store.cam; }
inline AiInfo* ai() { return &g_store.ai; }
inline void* ext() { return g_store.ext; }
inline constexpr SysPort kPort{command, info, state, cam, ai, ext};

// No shell line runs: the firmware commands are the camera's, not this host's.
inline int shell(const char*) { return 0; }

inline void check_framed(const uint8_t* packet, int length) {
    if (!visca::framed(packet, length)) __builtin_trap();
}
inline int wait(uint8_t* packet, int length, int* capacity) {
    check_framed(packet, length);
    if (g_replies_left == 0) return -1;
    size_t n = *g_replies++;
    --g_replies_left;
    if (n == 0) return -1;
    n = n < g_replies_left ? n : g_replies_left;
    n = n < static_cast<size_t>(visca::kBufSize) ? n : static_cast<size_t>(visca::kBufSize);
    if (capacity != nullptr && static_cast<size_t>(*capacity) < n) n = static_cast<size_t>(*capacity);
    std::memcpy(packet, g_replies, n);
    g_replies += n;
    g_replies_left -= n;
    if (capacity != nullptr) *capacity = static_cast<int>(n);
    return static_cast<int>(n);
}
inline int nowait(const uint8_t* packet, int length) {
    check_framed(packet, length);
    return 0;
}
inline void flush() {}
inline constexpr CamTransport kCamera{wait, nowait, flush};

// Installs the fakes once: quiet logging, no shell, the two peers, and the
// files a handler writes kept below a scratch directory.
inline void install() {
    static const bool done = [] {
        g_print_level = 0;
        pox_system_set_runner(shell);
        sys_port_install(&kPort);
        image_ctrl_set_transport(&kCamera);
        // No register device, and files written only below a scratch
        // directory of the run's own in the working directory, removed
        // when the run ends.
        memmap_set_device("/nonexistent/ambad");
        static const std::string scratch = "fuzz-files-" + std::to_string(getpid());
        std::filesystem::create_directory(scratch);
        json_file_ctrl_set_root(scratch.c_str());
        static const std::string resolv = scratch + "/resolv.conf";
        net_set_resolv_path(resolv.c_str());
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(scratch, ignored);
        });
        return true;
    }();
    (void)done;
}

// The camera answers from these bytes until the next call.
inline void replies_from(const uint8_t* data, size_t size) {
    g_replies = data;
    g_replies_left = size;
}

}  // namespace fuzz
