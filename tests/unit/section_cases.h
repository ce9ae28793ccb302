// Rows of cases for a section of the JSON control API, run through the
// dispatchers against the fake system server and the fake shell: each row
// names its request, the reply, the commands with their payload bytes and the
// shell lines that went out.
#pragma once

#include <fnmatch.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_camera.h"
#include "fake_files.h"
#include "fake_shell.h"
#include "fake_system.h"
#include "hex_text.h"
#include "json/json_ctrl_func.h"
#include "json_reply.h"

namespace fake {

struct SectionCase {
    const char* name;
    bool set;
    std::string request;
    std::string reply;               // empty: not compared; "{KEY}" stands for the access key
    std::vector<std::string> sent;   // "id bytes…", each a prefix of what went out
    std::vector<std::string> shell;  // glob patterns, in order
};

// "id bytes…" of a command as it went out.
inline std::string command_text(const Command& c) { return std::to_string(c.id) + " " + hex_of(c.data); }

// Runs each case from the store as it is now, and checks what it says.
inline void run_section_cases(FakeSystem& sys, FakeShell& shell, const std::vector<SectionCase>& cases) {
    const SysStore pristine = *sys.store;
    for (const SectionCase& c : cases) {
        SCOPED_TRACE(c.name);
        *sys.store = pristine;
        sys.journal.clear();
        shell.lines.clear();
        const std::string reply = json_reply(c.set ? json_set_ctrl : json_get_ctrl, c.request);
        if (!c.reply.empty()) {
            std::string want = c.reply;
            if (const size_t at = want.find("{KEY}"); at != std::string::npos)
                want.replace(at, 5, std::to_string(json_access_key()));
            EXPECT_EQ(reply, want);
        }
        ASSERT_EQ(sys.journal.size(), c.sent.size()) << reply;
        for (size_t i = 0; i < c.sent.size(); ++i)
            EXPECT_EQ(command_text(sys.journal[i]).substr(0, c.sent[i].size()), c.sent[i]);
        ASSERT_EQ(shell.lines.size(), c.shell.size());
        for (size_t i = 0; i < c.shell.size(); ++i)
            EXPECT_EQ(fnmatch(c.shell[i].c_str(), shell.lines[i].c_str(), 0), 0) << shell.lines[i];
    }
}

// A section test with the fake system server, shell, camera and clock installed.
class SectionTest : public FakeSystemTest {
protected:
    FakeShell shell;
    ShellInstalled installed_shell{shell};
    FakeCamera camera;
    CameraInstalled installed_camera{camera};
    FakeClock clock;
    ClockInstalled installed_clock{clock};
};

}  // namespace fake
