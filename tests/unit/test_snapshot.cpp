// The snapshot and the preview image against the fake server, shell and
// clock, each row below a root of its own: the request's bytes, the shell
// lines, how long it waited (on the fake clock, so no real time) and the
// picture sent.

#include <fstream>

#include "cgi/reply.h"
#include "front/device.h"
#include "scratch.h"
#include "section_cases.h"

namespace {

struct PictureCase {
    const char* name;
    std::string logo;  // the stored logo's bytes, or "" for none
    int server;        // 0: the picture lands, 1: it never does, 2: the command is refused,
                       // 3: it lands, but the last one is still being written
    const char* snap;  // the snapshot's name (image_snapshot), or nullptr for the preview
    int result;        // image_snapshot's result
    std::string sent;  // the command, or ""
    std::vector<std::string> shell;
    long slept_ms;
    std::string reply;  // the preview's body
};

// More than one 1024-byte piece, zero bytes included.
const std::string kLogo = "\xFF\xD8logo" + std::string(3000, '\0') + "\xFF\xD9";

// clang-format off
const PictureCase kCases[] = {
    {"a named snapshot is linked", "", 0, "a.jpg", 0, "41 01 00 78 43",
     {"mkdir -p /opt/ipnc/www/images/snap", "ln -sf /tmp/snap.jpg /opt/ipnc/www/images/snap/a.jpg"}, 0, ""},
    {"an unnamed one is not", "", 0, "", 0, "41 01 00 78 43", {"mkdir -p /opt/ipnc/www/images/snap"}, 0, ""},
    {"a name that could leave the folder asks for nothing", "", 0, "..", -1, "", {}, 0, ""},
    {"nor one that could reach a shell", "", 0, "a;b", -1, "", {}, 0, ""},
    {"no picture within 3 s", "", 1, "a.jpg", -1, "41 01 00 78 43", {}, 3000, ""},
    {"a refused request does not wait", "", 2, "a.jpg", -1, "41 01 00 78 43", {}, 0, ""},
    {"the preview sends the stored logo whole", kLogo, 0, nullptr, 0, "", {}, 0, kLogo},
    {"the preview sends a new snapshot", "", 0, nullptr, 0, "41 68 01 40 41",
     {"rm /tmp/snap.jpg 1>/dev/null 2>/dev/null"}, 0, "JPEG"},
    {"a picture still being written is waited for, 10 s at most", "", 3, nullptr, 0, "41 68 01 40 41",
     {"rm /tmp/snap.jpg 1>/dev/null 2>/dev/null"}, 10000, "JPEG"},
    {"a preview without a picture is the header alone", "", 1, nullptr, 0, "41 68 01 40 41",
     {"rm /tmp/snap.jpg 1>/dev/null 2>/dev/null"}, 3000, ""},
};
// clang-format on

class Picture : public fake::SectionTest {};

TEST_F(Picture, SnapshotsAndPreview) {
    for (const PictureCase& c : kCases) {
        SCOPED_TRACE(c.name);
        const Scratch dir("picture");
        const fake::RootInstalled root(dir.path());
        if (!c.logo.empty()) std::ofstream(root.make("/opt/params/logo.jpg"), std::ios::binary) << c.logo;
        sys.journal.clear();
        shell.lines.clear();
        clock.slept_ms = 0;
        sys.refuse.clear();
        if (c.server == 2) sys.refuse.insert(41);
        shell.output = c.server == 3 ? " 1234" : "";
        sys.on_command = [&](const fake::Command& cmd, SysStore&) {
            if (cmd.id == 41 && c.server != 1) std::ofstream(root.make("/tmp/snap.jpg")) << "JPEG";
        };
        if (c.snap != nullptr) {
            EXPECT_EQ(image_snapshot(1, c.snap, 1920, 1080, 0), c.result);
        } else {
            OutputCapture capture;
            EXPECT_EQ(device_preview(), 0);
            EXPECT_EQ(capture.text(), std::string(kHdrJpeg) + c.reply);
        }
        ASSERT_EQ(sys.journal.size(), c.sent.empty() ? 0u : 1u);
        if (!c.sent.empty()) {
            EXPECT_EQ(fake::command_text(sys.journal[0]), c.sent);
        }
        EXPECT_EQ(shell.lines, c.shell);
        EXPECT_EQ(clock.slept_ms, c.slept_ms);
    }
}

// The parameters' limits: a mode and a flag of a byte each, sides of 16 to 4080.
TEST_F(Picture, ParameterLimits) {
    const Scratch dir("limits");
    const fake::RootInstalled root(dir.path());
    sys.on_command = [&](const fake::Command&, SysStore&) {
        std::ofstream(root.make("/tmp/snap.jpg")) << "J";
    };
    const std::array<std::array<int, 5>, 8> rows{{{0, 255, 16, 4080, 0},
                                                  {255, 0, 4080, 16, 0},
                                                  {-1, 0, 16, 16, -1},
                                                  {256, 0, 16, 16, -1},
                                                  {0, -1, 16, 16, -1},
                                                  {0, 256, 16, 16, -1},
                                                  {0, 0, 15, 16, -1},
                                                  {0, 0, 16, 4081, -1}}};
    for (const auto& [mode, flag, width, height, result] : rows)
        EXPECT_EQ(image_snapshot(mode, "", width, height, flag), result)
            << mode << " " << flag << " " << width;
}

}  // namespace
