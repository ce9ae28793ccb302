// A system server behind the system port for the unit tests: an in-memory
// store (settings record, live state, camera and tracking areas) and a
// journal of every command with its payload bytes. A command succeeds unless
// `refuse` names it (or `silent`, which times out); `on_command` may play the
// server's part and change the record before the reply.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "ipc/sys_port.h"
#include "platform/platform.h"

namespace fake {

struct Command {
    uint32_t id;
    std::vector<uint8_t> data;
};

struct FakeSystem {
    std::unique_ptr<SysStore> store = std::make_unique<SysStore>();
    std::vector<Command> journal;
    std::set<uint32_t> refuse;
    std::set<uint32_t> silent;  // never answered: the channel's time-out, -2
    std::function<void(const Command&, SysStore&)> on_command;
    bool present = true;  // false: every reader answers null

    SysInfo& info() { return store->info; }
    SysState& state() { return store->state; }
    // The ids sent, in order.
    std::vector<uint32_t> ids() const {
        std::vector<uint32_t> out;
        for (const Command& c : journal) out.push_back(c.id);
        return out;
    }
};

inline FakeSystem* g_fake_system = nullptr;

inline int fake_command(uint32_t cmd, void* data, int length, int*) {
    FakeSystem& sys = *g_fake_system;
    const auto* bytes = static_cast<const uint8_t*>(data);
    Command c{cmd, std::vector<uint8_t>(bytes, bytes + (length > 0 ? length : 0))};
    sys.journal.push_back(c);
    if (sys.refuse.count(cmd) != 0) return -1;
    if (sys.silent.count(cmd) != 0) return -2;
    if (sys.on_command) sys.on_command(c, *sys.store);
    return 0;
}
inline SysInfo* fake_info() { return g_fake_system->present ? &g_fake_system->store->info : nullptr; }
inline SysState* fake_state(int) { return g_fake_system->present ? &g_fake_system->store->state : nullptr; }
inline CamInfo* fake_cam() { return g_fake_system->present ? &g_fake_system->store->cam : nullptr; }
inline AiInfo* fake_ai() { return g_fake_system->present ? &g_fake_system->store->ai : nullptr; }
inline void* fake_ext() { return g_fake_system->present ? g_fake_system->store->ext : nullptr; }

// Copies a command's payload over `size` bytes of the store at `offset`: the
// server's part for a command that carries a whole block.
inline std::function<void(const Command&, SysStore&)> store_block(size_t offset, size_t size) {
    return [offset, size](const Command& c, SysStore& store) {
        std::memcpy(reinterpret_cast<uint8_t*>(&store) + offset, c.data.data(),
                    std::min(size, c.data.size()));
    };
}

// Installs `sys` as the platform's system server for as long as it lives.
struct SystemInstalled {
    explicit SystemInstalled(FakeSystem& sys)
        : patch((g_fake_system = &sys, [](Platform& p) {
              p.sys_command = fake_command;
              p.sys_info = fake_info;
              p.sys_state = fake_state;
              p.cam_info = fake_cam;
              p.ai_info = fake_ai;
              p.ext_info = fake_ext;
          })) {}
    ~SystemInstalled() { g_fake_system = nullptr; }
    PlatformPatch patch;
};

// A test with `sys` installed for its length.
class FakeSystemTest : public ::testing::Test {
protected:
    FakeSystem sys;
    SystemInstalled installed_system{sys};
};

}  // namespace fake
