// The shell behind pox_system and pox_popen for the unit tests: every line
// is journalled and none runs. `status` is what each line returns; a line
// whose output is read is journalled apart and prints `output`.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/support.h"

namespace fake {

struct FakeShell {
    std::vector<std::string> lines;
    int status = 0;
    std::vector<std::string> read_lines;
    std::string output;
};

inline FakeShell* g_fake_shell = nullptr;

inline int fake_shell_run(const char* command) {
    g_fake_shell->lines.emplace_back(command);
    return g_fake_shell->status;
}

inline int fake_shell_read(const char* command, char* out, size_t size) {
    g_fake_shell->read_lines.emplace_back(command);
    if (out != nullptr && size > 0) std::snprintf(out, size, "%s", g_fake_shell->output.c_str());
    return g_fake_shell->status;
}

// Installs `shell` as the platform's shell for as long as it lives.
struct ShellInstalled {
    explicit ShellInstalled(FakeShell& shell)
        : patch((g_fake_shell = &shell, [](Platform& p) {
              p.shell = fake_shell_run;
              p.shell_read = fake_shell_read;
          })) {}
    ~ShellInstalled() { g_fake_shell = nullptr; }
    PlatformPatch patch;
};

}  // namespace fake
