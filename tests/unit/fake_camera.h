// One scripted camera behind the platform's camera for the unit tests.
// Every exchange is logged in order; a packet that waits for an answer gets
// the one `answer` gives when it is set, otherwise the next queued reply.
// No answer (nullopt, or an empty queue) fails the channel; `timed_out`
// makes the channel say the camera let the time run out (-2).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "camera/image_ctrl.h"
#include "platform/platform.h"
#include "hex_text.h"

namespace fake {

using Bytes = std::vector<uint8_t>;

struct Exchange {
    std::string how;  // "wait", "nowait", "flush"
    Bytes packet;
    int capacity = -1;  // -1: no capacity pointer
};

struct FakeCamera {
    std::vector<Exchange> log;
    std::deque<std::optional<Bytes>> queue;
    std::function<std::optional<Bytes>(const Bytes& packet)> answer;
    bool timed_out = false;

    // The exchanges that carried a packet (flushes left out).
    std::vector<Exchange> sends() const {
        std::vector<Exchange> out;
        for (const Exchange& e : log)
            if (e.how != "flush") out.push_back(e);
        return out;
    }
    // The packets sent, as lower-case hex ("81 01 04 07 25 ff").
    std::vector<std::string> sent() const {
        std::vector<std::string> out;
        for (const Exchange& e : sends()) out.push_back(hex_of(e.packet));
        return out;
    }
};

inline FakeCamera* g_fake_camera = nullptr;

inline int fake_wait(uint8_t* packet, int length, int* capacity) {
    FakeCamera& cam = *g_fake_camera;
    const Bytes sent(packet, packet + length);
    cam.log.push_back({"wait", sent, capacity ? *capacity : -1});
    std::optional<Bytes> reply;
    if (cam.answer) {
        reply = cam.answer(sent);
    } else if (!cam.queue.empty()) {
        reply = cam.queue.front();
        cam.queue.pop_front();
    }
    if (!reply) return cam.timed_out ? -2 : -1;
    int n = static_cast<int>(reply->size());
    if (capacity) {
        n = std::min(n, *capacity);
        *capacity = n;
    }
    if (n > 0) std::memcpy(packet, reply->data(), static_cast<size_t>(n));
    return n;
}
inline int fake_nowait(const uint8_t* packet, int length) {
    g_fake_camera->log.push_back({"nowait", Bytes(packet, packet + length)});
    return 0;
}
inline void fake_flush() { g_fake_camera->log.push_back({"flush", {}}); }

// Installs `camera` as the platform's camera for as long as it lives.
struct CameraInstalled {
    explicit CameraInstalled(FakeCamera& camera)
        : patch((g_fake_camera = &camera, [](Platform& p) {
              p.camera_wait = fake_wait;
              p.camera_send = fake_nowait;
              p.camera_flush = fake_flush;
          })) {
        image_ctrl_request_begin();  // a camera silent in an earlier test answers again
    }
    ~CameraInstalled() { g_fake_camera = nullptr; }
    PlatformPatch patch;
};

// A test with `camera` installed for its length.
class FakeCameraTest : public ::testing::Test {
protected:
    FakeCamera camera;
    CameraInstalled installed_camera{camera};
};

}  // namespace fake
