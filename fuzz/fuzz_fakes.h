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
#include "platform/platform.h"
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

// No shell line runs: the firmware commands are the camera's, not this host's.
inline int shell(const char*) { return 0; }
inline int shell_read(const char*, char* out, size_t size) {
    if (out != nullptr && size > 0) out[0] = '\0';
    return 0;
}

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

// The whole platform: the two peers, no shell, and every fixed path below a
// scratch directory of the run's own (so no register device either).
inline Platform g_platform{.camera_wait = wait,
                           .camera_send = nowait,
                           .camera_flush = flush,
                           .sys_command = command,
                           .sys_info = info,
                           .sys_state = state,
                           .cam_info = cam,
                           .ai_info = ai,
                           .ext_info = ext,
                           .shell = shell,
                           .shell_read = shell_read};

// The scratch directory every fixed path is taken below, made on first use
// in the working directory and removed when the run ends.
inline const std::string& root() {
    static const std::string dir = [] {
        std::string d = std::filesystem::current_path().string() + "/fuzz-files-" + std::to_string(getpid());
        std::filesystem::create_directories(d + "/tmp");
        return d;
    }();
    // Registered once the name exists, so that it is removed before the name is.
    static const bool cleanup = std::atexit([] {
                                    std::error_code ignored;
                                    std::filesystem::remove_all(root(), ignored);
                                }) == 0;
    (void)cleanup;
    return dir;
}

// Installs the platform once, with quiet logging.
inline void install() {
    static const bool done = [] {
        g_print_level = 0;
        g_platform.root = root().c_str();
        platform_install(&g_platform);
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
