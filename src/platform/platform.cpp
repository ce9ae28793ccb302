#include "platform/platform.h"

#include <unistd.h>

#include <cstdio>

namespace {

const Platform kReal{};
const Platform* g_platform = &kReal;

std::time_t real_now() { return std::time(nullptr); }
void real_sleep_ms(int ms) {
    if (ms > 0) usleep(static_cast<useconds_t>(ms) * 1000);
}

}  // namespace

void platform_install(const Platform* platform) { g_platform = platform != nullptr ? platform : &kReal; }

const Platform& platform() { return *g_platform; }

PlatformPath platform_path(const char* fixed) {
    PlatformPath path;
    const char* root = g_platform->root;
    std::snprintf(path.text, sizeof path.text, "%s%s", root != nullptr ? root : "", fixed);
    return path;
}

std::time_t platform_now() { return platform_pick(&Platform::now, real_now)(); }

void platform_sleep_ms(int ms) { platform_pick(&Platform::sleep_ms, real_sleep_ms)(ms); }
