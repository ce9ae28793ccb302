// Everything the responder does to the world outside its own memory goes
// through this one record: the camera command channel, the system command
// channel and the shared store, the shell, the FastCGI streams, the files
// at fixed paths and the clock. A null member (or no record at all) means
// the real one; tests install a record of fakes, the real code never does.
// The boundary modules pick the member or their real function, so this
// header knows none of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "records/records.h"

struct Platform {
    // The camera: a packet whose reply is awaited (the reply's length, -1
    // when it failed, -2 when the camera did not answer in time), one sent
    // without waiting, and stale replies dropped.
    int (*camera_wait)(uint8_t* packet, int length, int* capacity) = nullptr;
    int (*camera_send)(const uint8_t* packet, int length) = nullptr;
    void (*camera_flush)() = nullptr;
    // The system server: a command (the reply's length, or negative) and the
    // areas of the shared store.
    int (*sys_command)(uint32_t id, void* data, int length, int* capacity) = nullptr;
    SysInfo* (*sys_info)() = nullptr;
    SysState* (*sys_state)(int wait) = nullptr;
    CamInfo* (*cam_info)() = nullptr;
    AiInfo* (*ai_info)() = nullptr;
    void* (*ext_info)() = nullptr;
    // A shell line: its exit status; and one whose output is read into
    // `out` (cut to size - 1 bytes, terminated): its status as pclose says.
    int (*shell)(const char* line) = nullptr;
    int (*shell_read)(const char* line, char* out, size_t size) = nullptr;
    // The current request's reply and body streams.
    size_t (*out_write)(const void* data, size_t size) = nullptr;
    size_t (*in_read)(void* data, size_t size) = nullptr;
    // The directory every fixed path ("/tmp/snap.jpg", "/opt/params/...")
    // is taken below; null or "": the system's own root.
    const char* root = nullptr;
    // The wall clock in seconds, and a pause.
    std::time_t (*now)() = nullptr;
    void (*sleep_ms)(int ms) = nullptr;
};

// Installs `platform` (null: everything real); the record must outlive its
// installation.
void platform_install(const Platform* platform);
// The installed record (all null when none is).
const Platform& platform();

// The member `m` of the installed record, or `real` where it is null.
template <typename Fn>
Fn platform_pick(Fn Platform::*m, Fn real) {
    Fn chosen = platform().*m;
    return chosen != nullptr ? chosen : real;
}

// A fixed path as the product opens it: below the installed root. A plain
// buffer (a path past it is cut, which only a test's long root could make).
struct PlatformPath {
    char text[256];
    const char* c_str() const { return text; }
};
PlatformPath platform_path(const char* fixed);
std::time_t platform_now();
void platform_sleep_ms(int ms);

// While one lives, the installed record with some members changed by `set`
// (the rest as they were); the record before it comes back at its end.
// Patches nest in the order they are made.
class PlatformPatch {
public:
    template <typename Set>
    explicit PlatformPatch(Set set) : mine_(platform()), before_(&platform()) {
        set(mine_);
        platform_install(&mine_);
    }
    ~PlatformPatch() { platform_install(before_); }
    PlatformPatch(const PlatformPatch&) = delete;
    PlatformPatch& operator=(const PlatformPatch&) = delete;

private:
    Platform mine_;
    const Platform* before_;
};
