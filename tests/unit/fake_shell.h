// The shell behind pox_system for the unit tests: every line is journalled
// and none runs. `status` is what each line returns.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"
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

// Installs `shell` as the platform's shell for as long as it lives.
struct ShellInstalled {
    explicit ShellInstalled(FakeShell& shell)
        : patch((g_fake_shell = &shell, [](Platform& p) { p.shell = fake_shell_run; })) {}
    ~ShellInstalled() { g_fake_shell = nullptr; }
    PlatformPatch patch;
};

}  // namespace fake
