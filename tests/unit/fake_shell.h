// The shell behind pox_system for the unit tests: every line is journalled
// and none runs. `status` is what each line returns.
#pragma once

#include <string>
#include <vector>

#include "support/support.h"

namespace fake {

struct FakeShell {
    std::vector<std::string> lines;
    int status = 0;
};

inline FakeShell* g_fake_shell = nullptr;

inline int fake_shell_run(const char* command) {
    g_fake_shell->lines.emplace_back(command);
    return g_fake_shell->status;
}

// Installs `shell` for as long as it lives.
struct ShellInstalled {
    explicit ShellInstalled(FakeShell& shell) {
        g_fake_shell = &shell;
        pox_system_set_runner(fake_shell_run);
    }
    ~ShellInstalled() {
        pox_system_set_runner(nullptr);
        g_fake_shell = nullptr;
    }
};

}  // namespace fake
