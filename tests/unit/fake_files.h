// The platform's files and clock for the unit tests: a root that every fixed
// path is taken below, and a clock that moves only when the product waits.
#pragma once

#include <ctime>
#include <filesystem>
#include <string>

#include "platform/platform.h"

namespace fake {

// Every fixed path ("/tmp/snap.jpg") below `dir` while it lives; the
// directories the path names are made first.
class RootInstalled {
public:
    explicit RootInstalled(std::string dir)
        : dir_(std::move(dir)), patch_([this](Platform& p) { p.root = dir_.c_str(); }) {}
    // The file `fixed` stands for, its directory made.
    std::string make(const std::string& fixed) const {
        const std::filesystem::path p = dir_ + fixed;
        std::filesystem::create_directories(p.parent_path());
        return p.string();
    }

private:
    std::string dir_;
    PlatformPatch patch_;
};

struct FakeClock {
    std::time_t now = 1764072000;  // 2025-11-25 12:00:00 UTC
    long slept_ms = 0;
};
inline FakeClock* g_fake_clock = nullptr;

inline std::time_t fake_now() { return g_fake_clock->now; }
inline void fake_sleep_ms(int ms) {
    g_fake_clock->slept_ms += ms;
    g_fake_clock->now += ms / 1000;
}

// Installs `clock` for as long as it lives: waits take no real time.
struct ClockInstalled {
    explicit ClockInstalled(FakeClock& clock)
        : patch((g_fake_clock = &clock, [](Platform& p) {
              p.now = fake_now;
              p.sleep_ms = fake_sleep_ms;
          })) {}
    ~ClockInstalled() { g_fake_clock = nullptr; }
    PlatformPatch patch;
};

}  // namespace fake
