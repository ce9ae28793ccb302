// The remote-control protocol ("aw_ptz?" and "aw_cam?") against the simulated
// camera: exact replies, the exact VISCA packets the camera received, and
// round trips through the camera's state and motors.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace e2e;
using Lines = std::vector<std::string>;

constexpr std::string_view kText = "Content-type: text/plain\r\nStatus: 200 OK\r\n\r\n";

// "#" travels URL-encoded, as a browser or panel sends it.
std::string encoded(std::string_view cmd) {
    std::string q;
    for (char c : cmd) q += (c == '#') ? std::string("%23") : std::string(1, c);
    return q;
}
std::string ptz(std::string_view cmd) { return get("aw_ptz?cmd=" + encoded(cmd) + "&res=1"); }
std::string cam(std::string_view cmd) { return get("aw_cam?cmd=" + encoded(cmd) + "&res=1"); }
std::string text(std::string_view line) { return std::string(kText) + std::string(line) + "\r\n"; }

// Asks until the answer is `want` (the motors take up to a second), then
// returns the last answer.
std::string poll_ptz(std::string_view cmd, const std::string& want) {
    std::string last;
    for (int i = 0; i < 40; ++i) {
        last = body_of(ptz(cmd));
        if (last == want + "\r\n") break;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return last;
}

// Resets the image settings to the camera's defaults (auto exposure, shutter
// step 11, frame rate 30, colour temperature 5000).
// The reset goes out without waiting; the sentinel inquiry after it makes
// sure it has reached the journal before the next test marks it.
void image_defaults() {
    Journal visca("visca.log");
    visca.mark();
    get("func=set{\"image\":{\"image_reset\":1}}");
    visca_until_sentinel(visca);
}

class RemoteE2E : public ::testing::Test {
protected:
    void SetUp() override { visca.mark(); }
    // The command with the journal marked just before it.
    std::string ptz_fresh(std::string_view cmd) {
        visca.mark();
        return ptz(cmd);
    }
    std::string cam_fresh(std::string_view cmd) {
        visca.mark();
        return cam(cmd);
    }
    Journal visca{"visca.log"};
};

}  // namespace

// Runs first: the zoom speed of a freshly started responder is above the zoom
// drive's limit, so zooming does nothing until a speed is stored.
TEST_F(RemoteE2E, CamZoomWaitsForAStoredSpeed) {
    EXPECT_EQ(cam("HZT"), text("HZT"));
    EXPECT_EQ(visca_until_sentinel(visca), Lines{});
    EXPECT_EQ(cam("LZS:5"), text("LZS:5"));
    EXPECT_EQ(cam_fresh("hzt"), text("hzt"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 07 25 ff"});
    EXPECT_EQ(cam("LZS:9"), text("LZS:9"));   // clamped to 7
    EXPECT_EQ(cam_fresh("HZW"), text("HZW"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 07 37 ff"});
}

TEST_F(RemoteE2E, PtzRefusalsAndShortQueries) {
    EXPECT_EQ(get("aw_ptz?cmd="), "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n"
                                  "{\"status\":-1,\"message\":Error params.}");
    EXPECT_EQ(ptz("#XYZ"), std::string(kText) + "\"ER1:#XYZ\"\r\n");
    EXPECT_EQ(ptz("#DA"), text("dA0"));
    EXPECT_EQ(get("aw_cam?res=1"), std::string(kText));
    EXPECT_EQ(cam("OAF:1x"), std::string(kText) + "\"ER1:OAF:1x\"\r\n");
    EXPECT_EQ(visca_until_sentinel(visca), Lines{});
}

// A command, its exact reply, the packets the camera received and, for a
// move, the position inquiry polled until the motors got there.
struct PtzCase {
    const char* cmd;
    const char* reply;
    Lines packets;
    const char* poll = nullptr;
    const char* settles_at = nullptr;
};
const std::vector<PtzCase> kPtzCases = {
    {"#P99", "pS99", {"81 01 06 01 17 0a 02 03 ff"}},
    {"#T20", "pT20", {"81 01 06 01 0a 0e 03 01 ff"}},
    {"#PTS9999", "pTS9999", {"81 01 06 01 17 16 02 02 ff"}},
    {"#P50", "pS50", {"81 01 06 01 0a 0a 03 03 ff"}},
    {"#Z99", "zS99", {"81 01 04 07 38 ff"}},
    {"#Z50", "zS50", {"81 01 04 07 3a ff"}},
    {"#F01", "fS01", {"81 01 04 38 03 ff", "81 01 04 08 27 ff"}},
    {"#APC12345678", "aPC12345678", {"81 01 06 02 18 18 01 02 03 04 05 06 07 08 ff"}, "#APC", "aPC12345678"},
    {"#AXZ555", "axz2000", {"81 01 04 47 02 00 00 00 ff"}, "#AXZ", "axzaaa"},
    {"#AXF555", "axf2000", {"81 01 04 48 02 00 00 00 ff"}, "#AXF", "axfaaa"},
};

TEST_F(RemoteE2E, PtzDrivesAndMovesSendTheirPackets) {
    for (const PtzCase& c : kPtzCases) {
        SCOPED_TRACE(c.cmd);
        EXPECT_EQ(ptz_fresh(c.cmd), text(c.reply));
        EXPECT_EQ(visca.take(c.packets.size()), c.packets);
        if (c.poll != nullptr) {
            EXPECT_EQ(poll_ptz(c.poll, c.settles_at), std::string(c.settles_at) + "\r\n");
        }
    }
    EXPECT_EQ(ptz("#PTV").find(std::string(kText) + "pTV"), 0u);  // a status, not a pan speed
}

TEST_F(RemoteE2E, PtzMotorRoundTrips) {
    // After the moves above: position 1234/5678, zoom and focus at 555.
    // Zoom converted on the way out, focus not; then raw positions and the iris code.
    EXPECT_EQ(ptz("#PTV"), text("pTV12345678aaa2000fff"));
    const std::string ptd = body_of(ptz("#PTD"));
    EXPECT_EQ(ptd.substr(0, 19), "pTD1234567820002000");
    EXPECT_EQ(ptd.size(), 21u + 2);   // two hexadecimal digits of iris code, then "\r\n"

    // Pan and tilt are signed 16-bit values.
    EXPECT_EQ(ptz_fresh("#APC80000000"), text("aPCffff80000000"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 06 02 18 18 08 00 00 00 00 00 00 00 ff"});
    EXPECT_EQ(poll_ptz("#APC", "aPCffff80000000"), "aPCffff80000000\r\n");

    // The four-value form moves to pan 0 and the tilt with its low byte cleared.
    EXPECT_EQ(ptz_fresh("#APS12345678ab3"), text("aPC00005600ab3"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 06 02 18 18 00 00 00 00 05 06 00 00 ff"});
    EXPECT_EQ(poll_ptz("#APC", "aPC00005600"), "aPC00005600\r\n");
    EXPECT_EQ(ptz("#RPS0000123400f"), text("rPS0000120000f"));
}

TEST_F(RemoteE2E, PtzPresetsStoreRecallAndClear) {
    EXPECT_EQ(ptz("#APC10002000"), text("aPC10002000"));
    ASSERT_EQ(poll_ptz("#APC", "aPC10002000"), "aPC10002000\r\n");
    visca.mark();
    EXPECT_EQ(ptz_fresh("#M07"), text("s7"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 3f 00 00 07 ff"});

    EXPECT_EQ(ptz("#RPC30004000"), text("rPC30004000"));
    ASSERT_EQ(poll_ptz("#APC", "aPC30004000"), "aPC30004000\r\n");
    visca.mark();
    EXPECT_EQ(ptz_fresh("#R07"), text("s7"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 3f 01 00 07 ff"});
    EXPECT_EQ(poll_ptz("#APC", "aPC10002000"), "aPC10002000\r\n");

    EXPECT_EQ(ptz_fresh("#C07"), text("s7"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 3f 02 00 07 ff"});
}

TEST_F(RemoteE2E, PtzStandbyAndInstallation) {
    Journal sys("syscmd.log");
    sys.mark();
    EXPECT_EQ(ptz("#O0"), text("p0"));
    EXPECT_EQ(ptz("#O"), text("p0"));
    EXPECT_EQ(get("aw_ptz?cmd=%23o1&res=1"), text("p1"));
    EXPECT_EQ(ptz("#On"), text("p1"));
    EXPECT_EQ(sys.wait_lines(3), (Lines{"64 01", "64 00", "64 00"}));

    EXPECT_EQ(ptz_fresh("#INS1"), text("iNS1"));
    EXPECT_EQ(visca.take(2), (Lines{"81 01 04 c0 01 ff", "81 09 04 c0 ff"}));
    EXPECT_EQ(ptz("#INS"), text("iNS1"));
    EXPECT_EQ(ptz("#INS0"), text("iNS0"));
}

TEST_F(RemoteE2E, FocusModeBothDialects) {
    EXPECT_EQ(ptz_fresh("#D11"), text("d11"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 38 02 ff"});
    EXPECT_EQ(ptz("#D1"), text("d11"));   // auto reads 0
    EXPECT_EQ(ptz("#D10"), text("d10"));
    EXPECT_EQ(ptz("#D1"), text("d10"));

    // The first stage acts, then the command is refused.
    visca.mark();
    EXPECT_EQ(cam_fresh("OAF:1"), std::string(kText) + "\"ER1:OAF:1\"\r\n");
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 38 02 ff"});
    EXPECT_EQ(ptz("#D1"), text("d11"));
    EXPECT_EQ(cam("LFS:6"), std::string(kText) + "\"ER1:LFS:6\"\r\n");
    visca.mark();
    EXPECT_EQ(cam_fresh("HFF"), std::string(kText) + "\"ER1:HFF\"\r\n");
    EXPECT_EQ(visca.take(2), (Lines{"81 01 04 38 03 ff", "81 01 04 08 36 ff"}));
    image_defaults();   // back to auto focus for whoever comes next
}

TEST_F(RemoteE2E, ExposureStatusShutterAndGain) {
    image_defaults();
    EXPECT_EQ(cam("OGU"), text("OGU:80"));
    EXPECT_EQ(ptz("#PTG"), text("pTG801388300fa009c4"));   // auto, 5000 K, step 11 at 30 Hz

    visca.mark();
    EXPECT_EQ(cam_fresh("OGU:0c"), text("OGU:0c"));
    EXPECT_EQ(visca.take(3), (Lines{"81 01 04 39 03 ff", "81 09 04 39 ff", "81 01 04 4c 00 00 00 02 ff"}));
    EXPECT_EQ(cam("OGU"), text("OGU:0c"));
    EXPECT_EQ(cam("OGU:30"), std::string(kText) + "\"ER3:OGU:30\"\r\n");

    visca.mark();
    EXPECT_EQ(cam_fresh("OSJ:06:01F4"), text("OSJ:06:01F4"));   // 1/500 s: step 13
    EXPECT_EQ(visca.take(2), (Lines{"81 09 04 39 ff", "81 01 04 4a 00 00 00 0d ff"}));
    EXPECT_EQ(cam("OSJ:06"), text("OSJ:06:01f4"));
    EXPECT_EQ(cam("OSJ:09"), text("OSJ:09:01388"));
    EXPECT_EQ(cam("QSH"), text("QSH:6"));
    EXPECT_EQ(ptz("#PTG"), text("pTG0c1388101f401388"));

    EXPECT_EQ(cam("OSH:9"), text("OSH:9"));
    EXPECT_EQ(cam("QSH"), text("QSH:9"));
    EXPECT_EQ(cam("OSJ:09:000fa"), text("OSJ:09:000fa"));   // 1/25 s: step 5
    EXPECT_EQ(cam("QSH"), text("OFT:f"));

    EXPECT_EQ(cam("OGU:80"), text("OGU:80"));
    EXPECT_EQ(cam("OGU"), text("OGU:80"));
    visca.mark();
    EXPECT_EQ(cam("OSH:3"), text("OSH:3"));   // auto exposure: the shutter stays
    EXPECT_EQ(visca_until_sentinel(visca), Lines{"81 09 04 39 ff"});
    image_defaults();
}

TEST_F(RemoteE2E, CamPictureSettingsRoundTrip) {
    EXPECT_EQ(cam_fresh("OFT:2"), text("OFT:2"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 da 02 ff"});
    EXPECT_EQ(cam("OFT"), text("OFT:2"));

    visca.mark();
    EXPECT_EQ(cam_fresh("OSD:3A:00"), text("OSD:3A:00"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 53 00 ff"});
    EXPECT_EQ(cam("OSD:3A"), text("OSD:3A:0"));
    EXPECT_EQ(cam("OSG:B5:3"), std::string(kText) + "\"ER3:OSG:B5:3\"\r\n");
    EXPECT_EQ(cam("OSD:3A:01"), text("OSD:3A:01"));
    EXPECT_EQ(cam("OSD:3A"), text("OSD:3A:1"));
    visca.mark();
    EXPECT_EQ(cam_fresh("OSG:B5:3"), text("OSG:B5:3"));
    EXPECT_EQ(visca.take(2), (Lines{"81 09 04 53 ff", "81 01 04 53 03 ff"}));

    EXPECT_EQ(cam_fresh("OSA:6A:70"), text("OSA:6A:70"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 5b 03 ff"});
    EXPECT_EQ(cam("OSA:6A"), text("OSA:6A:70"));

    EXPECT_EQ(cam_fresh("OSE:73:1"), text("OSE:73:1"));
    EXPECT_EQ(visca.take(1), Lines{"81 01 04 33 02 ff"});
    EXPECT_EQ(cam("OSE:73"), text("OSE:73:1"));
    EXPECT_EQ(cam("OSE:73:0"), text("OSE:73:0"));
    EXPECT_EQ(cam("OSE:73"), text("OSE:73:0"));

    EXPECT_EQ(cam("QSI:18").substr(0, kText.size() + 7), std::string(kText) + "QSI:18:");
    EXPECT_EQ(cam("osa:50:7c"), text("osa:50:7c"));
    image_defaults();
}
