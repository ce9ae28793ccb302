// The remote-control protocol ("aw_ptz?" and "aw_cam?") against the simulated
// camera: scripts of commands with their exact replies, the exact VISCA
// packets the camera received, and round trips through its state and motors.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <thread>

namespace {

using namespace e2e;
using Lines = std::vector<std::string>;

constexpr std::string_view kText = "Content-type: text/plain\r\nStatus: 200 OK\r\n\r\n";

// One step: a command ("#..." goes to aw_ptz, anything else to aw_cam), its
// reply line, and when given all the packets the camera received for it. A
// polled step asks again until the reply comes (the motors take up to a
// second).
struct Step {
    std::string cmd;
    std::string reply;
    std::optional<Lines> packets = std::nullopt;
    bool poll = false;
};
constexpr bool kPoll = true;

std::string send(const std::string& cmd) {
    std::string q = cmd[0] == '#' ? "aw_ptz?cmd=%23" + cmd.substr(1) : "aw_cam?cmd=" + cmd;
    return get(q + "&res=1");
}

void run_script(const std::vector<Step>& steps) {
    Journal visca("visca.log");
    for (size_t i = 0; i < steps.size(); ++i) {
        const Step& s = steps[i];
        SCOPED_TRACE("step " + std::to_string(i) + ": " + s.cmd);
        const std::string want = std::string(kText) + s.reply + "\r\n";
        std::string got = send(s.cmd);
        for (int n = 0; s.poll && got != want && n < 40; ++n) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            got = send(s.cmd);
        }
        EXPECT_EQ(got, want);
        if (s.packets) {
            EXPECT_EQ(visca_until_sentinel(visca), *s.packets);
        }
        visca.mark();
    }
}

// Back to the camera's defaults (auto exposure and focus, shutter step 11,
// frame rate 30, 5000 K) for whoever comes next.
void image_defaults() {
    Journal visca("visca.log");
    get("func=set{\"image\":{\"image_reset\":1}}");
    visca_until_sentinel(visca);
}

}  // namespace

// Runs first: the zoom speed of a freshly started responder is above the zoom
// drive's limit, so zooming does nothing until a speed is stored.
TEST(RemoteE2E, CamZoomWaitsForAStoredSpeed) {
    run_script({{"HZT", "HZT", Lines{}},
                {"LZS:5", "LZS:5"},
                {"hzt", "hzt", Lines{"81 01 04 07 25 ff"}},
                {"LZS:9", "LZS:9"},  // clamped to 7
                {"HZW", "HZW", Lines{"81 01 04 07 37 ff"}}});
}

// Moves through the camera's motors; each reply read back once they settle.
TEST(RemoteE2E, PtzMovesReachTheMotors) {
    run_script({
        {"#APC12345678", "aPC12345678"},
        {"#APC", "aPC12345678", {}, kPoll},
        {"#AXZ555", "axz2000"},
        {"#AXZ", "axzaaa", {}, kPoll},
        {"#AXF555", "axf2000"},
        {"#AXF", "axfaaa", {}, kPoll},
        {"#PTV", "pTV12345678aaa2000fff"},  // zoom converted on the way out, focus not
        // the four-value form moves to pan 0 and the tilt with its low byte cleared
        {"#APS12345678ab3", "aPC00005600ab3"},
        {"#APC", "aPC00005600", {}, kPoll},
    });
    // raw positions of the settled motors, then two hexadecimal digits of iris code
    const std::string ptd = body_of(send("#PTD"));
    EXPECT_EQ(ptd.substr(0, 19), "pTD0000560020002000");
    EXPECT_EQ(ptd.size(), 21u + 2);
    run_script({{"#RPS0000123400f", "rPS0000120000f"}});
}

TEST(RemoteE2E, PtzPresetsStoreRecallAndClear) {
    run_script({
        {"#APC10002000", "aPC10002000"},
        {"#APC", "aPC10002000", {}, kPoll},
        {"#M07", "s7", Lines{"81 01 04 3f 00 00 07 ff"}},
        {"#RPC30004000", "rPC30004000"},
        {"#APC", "aPC30004000", {}, kPoll},
        {"#R07", "s7", Lines{"81 01 04 3f 01 00 07 ff"}},
        {"#APC", "aPC10002000", {}, kPoll},
        {"#C07", "s7", Lines{"81 01 04 3f 02 00 07 ff"}},
    });
}

TEST(RemoteE2E, PtzStandbyAndInstallation) {
    Journal sys("syscmd.log");
    run_script({{"#O0", "p0"}, {"#O", "p0"}, {"#o1", "p1"}, {"#On", "p1"}});
    EXPECT_EQ(sys.wait_lines(3), (Lines{"64 01", "64 00", "64 00"}));
    run_script({{"#INS1", "iNS1", Lines{"81 01 04 c0 01 ff", "81 09 04 c0 ff"}},
                {"#INS", "iNS1"},
                {"#INS0", "iNS0"}});
}

TEST(RemoteE2E, FocusModeBothDialects) {
    run_script({
        {"#D11", "d11", Lines{"81 01 04 38 02 ff"}},
        {"#D1", "d11"},  // auto reads 0
        {"#D10", "d10"},
        {"#D1", "d10"},
        {"OAF:1", "\"ER1:OAF:1\""},  // its first stage acts
        {"#D1", "d11"},
    });
    image_defaults();
}

TEST(RemoteE2E, ExposureStatusShutterAndGain) {
    image_defaults();
    run_script({
        {"OGU", "OGU:80"},
        {"#PTG", "pTG801388300fa009c4"},  // auto, 5000 K, step 11 at 30 Hz
        {"OGU:0c", "OGU:0c", Lines{"81 01 04 39 03 ff", "81 09 04 39 ff", "81 01 04 4c 00 00 00 02 ff"}},
        {"OGU", "OGU:0c"},
        {"OGU:30", "\"ER3:OGU:30\""},
        {"OSJ:06:01F4", "OSJ:06:01F4",
         Lines{"81 09 04 39 ff", "81 01 04 4a 00 00 00 0d ff"}},  // 1/500 s: step 13
        {"OSJ:06", "OSJ:06:01f4"},
        {"OSJ:09", "OSJ:09:01388"},
        {"QSH", "QSH:6"},
        {"#PTG", "pTG0c1388101f401388"},
        {"OSH:9", "OSH:9"},
        {"QSH", "QSH:9"},
        {"OSJ:09:000fa", "OSJ:09:000fa"},  // 1/25 s: step 5
        {"QSH", "OFT:f"},
        {"OGU:80", "OGU:80"},
        {"OGU", "OGU:80"},
        {"OSH:3", "OSH:3", Lines{"81 09 04 39 ff"}},  // auto exposure: the shutter stays
    });
    image_defaults();
}

TEST(RemoteE2E, CamPictureSettingsRoundTrip) {
    run_script({
        {"OFT:2", "OFT:2", Lines{"81 01 04 da 02 ff"}},
        {"OFT", "OFT:2"},
        {"OSD:3A:00", "OSD:3A:00", Lines{"81 01 04 53 00 ff"}},
        {"OSD:3A", "OSD:3A:0"},
        {"OSG:B5:3", "\"ER3:OSG:B5:3\""},
        {"OSD:3A:01", "OSD:3A:01"},
        {"OSD:3A", "OSD:3A:1"},
        {"OSG:B5:3", "OSG:B5:3", Lines{"81 09 04 53 ff", "81 01 04 53 03 ff"}},
        {"OSA:6A:70", "OSA:6A:70", Lines{"81 01 04 5b 03 ff"}},
        {"OSA:6A", "OSA:6A:70"},
        {"OSE:73:1", "OSE:73:1", Lines{"81 01 04 33 02 ff"}},
        {"OSE:73", "OSE:73:1"},
        {"OSE:73:0", "OSE:73:0"},
        {"OSE:73", "OSE:73:0"},
        {"osa:50:7c", "osa:50:7c"},
    });
    EXPECT_EQ(send("QSI:18").rfind(std::string(kText) + "QSI:18:", 0), 0u);
    image_defaults();
}
