// The remote-control interpreters: conversions and tables, and the two
// interpreters run against a scripted camera (packets recorded, inquiries
// answered from a table).
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "camera/image_ctrl.h"
#include "front/output.h"
#include "remote/aw_cam.h"
#include "remote/aw_ptz.h"
#include "remote/remote_common.h"

using namespace remote;

namespace {

constexpr std::string_view kText = "Content-type: text/plain\r\nStatus: 200 OK\r\n\r\n";

// ---- scripted camera ------------------------------------------------------------
struct ScriptedCamera {
    std::vector<std::string> sent;                        // every packet, "81 01 ..."
    std::map<std::string, std::vector<uint8_t>> replies;  // inquiry -> reply bytes
};
ScriptedCamera* g_camera = nullptr;

std::string hex_of(const uint8_t* p, int n) {
    std::string s;
    char b[4];
    for (int i = 0; i < n; ++i) {
        std::snprintf(b, sizeof b, i ? " %02x" : "%02x", p[i]);
        s += b;
    }
    return s;
}

int scripted_wait(uint8_t* packet, int length, int* capacity) {
    const std::string key = hex_of(packet, length);
    g_camera->sent.push_back(key);
    const auto it = g_camera->replies.find(key);
    if (it == g_camera->replies.end()) return packet[1] == 0x01 ? 0 : -1;
    int n = static_cast<int>(it->second.size());
    if (capacity) n = std::min(n, *capacity);
    std::memcpy(packet, it->second.data(), static_cast<size_t>(n));
    if (capacity) *capacity = n;
    return n;
}
int scripted_nowait(const uint8_t* packet, int length) {
    g_camera->sent.push_back(hex_of(packet, length));
    return 0;
}
void scripted_flush() {}
int scripted_sys(uint32_t, void*, int, int*) { return -1; }
constexpr CamTransport kScripted{scripted_wait, scripted_nowait, scripted_flush, scripted_sys};

class RemoteCommand : public ::testing::Test {
protected:
    void SetUp() override {
        g_camera = &camera;
        image_ctrl_set_transport(&kScripted);
    }
    void TearDown() override {
        image_ctrl_set_transport(nullptr);
        g_camera = nullptr;
    }
    // First-byte reply of an inquiry (the rest of the reply is padding).
    void first_byte(const std::string& inquiry, uint8_t value) {
        camera.replies[inquiry] = {value, 0x00, 0x00, 0x00, 0xff, 0x00};
    }
    std::string ptz(const char* arg) {
        OutputCapture cap;
        last_rc = aw_ptz(arg);
        return cap.text();
    }
    std::string cam(const char* arg) {
        OutputCapture cap;
        last_rc = aw_cam(arg);
        return cap.text();
    }
    static std::string text(std::string_view body) { return std::string(kText) + std::string(body); }

    ScriptedCamera camera;
    int last_rc = 0;
};

}  // namespace

// ---- matching and scanning -----------------------------------------------------------

TEST(RemoteParse, MatchesExactOrPrefixWithLength) {
    EXPECT_TRUE(command_matches("#o1", "#O1", 0));
    EXPECT_FALSE(command_matches("#O10", "#O1", 0));
    EXPECT_TRUE(command_matches("#p99", "#P", 4));
    EXPECT_FALSE(command_matches("#PTS9999", "#P", 4));
    EXPECT_FALSE(command_matches("#P", "#P", 4));
    EXPECT_FALSE(command_matches("", "#O", 0));
    EXPECT_TRUE(command_matches("osj:06:01F4", "OSJ:06:", 11));
}

TEST(RemoteParse, ScansFieldsInOrderAndKeepsSlotsOfFailedConversions) {
    std::array<int32_t, 4> slots{7, 7, 7, 7};
    EXPECT_EQ(scan_fields("80000000", "x4x4", slots), 2);
    EXPECT_EQ(slots[0], 0x8000);
    EXPECT_EQ(slots[1], 0);

    slots = {7, 7, 7, 7};
    EXPECT_EQ(scan_fields("12zz5678", "x4x4", slots), 1);
    EXPECT_EQ(slots[0], 0x12);
    EXPECT_EQ(slots[1], 7);

    slots = {7, 7, 7, 7};
    EXPECT_EQ(scan_fields("-5", "d2", slots), 0);   // no sign, no blanks
    EXPECT_EQ(slots[0], 7);
    EXPECT_EQ(scan_fields("9951", "d2d2", slots), 2);
    EXPECT_EQ(slots[0], 99);
    EXPECT_EQ(slots[1], 51);

    EXPECT_EQ(leading_number("01F4", 16), 0x1F4);
    EXPECT_EQ(leading_number("7x", 10), 7);
    EXPECT_FALSE(leading_number("x7", 10).has_value());
    EXPECT_FALSE(leading_number("", 16).has_value());
}

// ---- speeds and positions ---------------------------------------------------------------

TEST(RemoteConvert, PanTiltSpeeds) {
    auto eq = [](Drive d, int dir, int speed) { return d.direction == dir && d.speed == speed; };
    EXPECT_TRUE(eq(pan_tilt_speed(50, kPanK), 3, 10));
    EXPECT_TRUE(eq(pan_tilt_speed(99, kPanK), 2, 23));
    EXPECT_TRUE(eq(pan_tilt_speed(0, kPanK), 1, 24));
    EXPECT_TRUE(eq(pan_tilt_speed(51, kPanK), 2, 0));
    EXPECT_TRUE(eq(pan_tilt_speed(99, kPtsTiltK), 2, 22));
    EXPECT_TRUE(eq(pan_tilt_speed(1, kPtsTiltK), 1, 22));
}

TEST(RemoteConvert, ZoomAndFocusSpeedsAreNotLimitedAndFiftyDoesNotStop) {
    auto eq = [](Drive d, int dir, int speed) { return d.direction == dir && d.speed == speed; };
    EXPECT_TRUE(eq(zoom_speed(99), 2, 1176));
    EXPECT_TRUE(eq(zoom_speed(50), 2, 10));
    EXPECT_TRUE(eq(zoom_speed(0), 1, 1200));
    EXPECT_TRUE(eq(focus_speed(50), 2, 5));
    EXPECT_TRUE(eq(focus_speed(49), 1, 7));
    EXPECT_TRUE(eq(focus_speed(99), 2, 343));
}

TEST(RemoteConvert, PositionConversionsAreNotInverses) {
    EXPECT_EQ(position_to_motor(0x555), 8192);
    EXPECT_EQ(position_to_motor(0xfff), 24576);
    EXPECT_EQ(position_from_motor(8192), 0xaaa);
    EXPECT_EQ(position_from_motor(0), 0x555);
    EXPECT_EQ(position_from_motor(-7), 1364);   // division rounds towards zero
    EXPECT_EQ(position_from_motor(INT32_MAX), static_cast<int>(int64_t{INT32_MAX} * 2730 / 16384 + 1365));
}

// ---- shutter and iris tables --------------------------------------------------------------

TEST(RemoteTables, StatusShutterPairs) {
    EXPECT_TRUE(fifty_hertz_family(50));
    EXPECT_TRUE(fifty_hertz_family(25));
    EXPECT_FALSE(fifty_hertz_family(30));
    EXPECT_FALSE(fifty_hertz_family(-1));

    EXPECT_EQ(ptg_shutter(11, true).speed, 215);
    EXPECT_EQ(ptg_shutter(11, true).tenths, 21500);
    EXPECT_EQ(ptg_shutter(11, false).tenths, 2500);
    EXPECT_EQ(ptg_shutter(5, false).speed, 30);
    EXPECT_EQ(ptg_shutter(5, true).speed, 25);   // the 25/50 step 5 is the default
    EXPECT_EQ(ptg_shutter(22, false).tenths, 250);
    EXPECT_EQ(ptg_shutter(-1, true).speed, 25);
    EXPECT_EQ(ptg_shutter(21, false).tenths, 100000);
}

TEST(RemoteTables, ReportedShutterSpeeds) {
    EXPECT_EQ(shutter_speed_of(11, true, false), 215);
    EXPECT_EQ(shutter_speed_of(11, true, true), 2150);
    EXPECT_EQ(shutter_speed_of(14, false, false), 725);
    EXPECT_EQ(shutter_speed_of(6, true, true), 250);    // no 25/50 tenths entry for 6 and 7
    EXPECT_EQ(shutter_speed_of(7, false, true), 900);
    EXPECT_EQ(shutter_speed_of(5, false, false), 30);
    EXPECT_EQ(shutter_speed_of(5, false, true), 300);
    EXPECT_EQ(shutter_speed_of(-1, true, false), 25);
    EXPECT_EQ(shutter_speed_of(21, true, true), 100000);
}

TEST(RemoteTables, ReceivedShutterSpeedsSelectSteps) {
    const int steps06[][2] = {{25, 5},    {30, 5},    {50, 6},     {60, 6},     {75, 7},    {90, 7},
                              {100, 8},   {120, 9},   {125, 9},    {150, 10},   {180, 10},  {215, 11},
                              {250, 11},  {300, 12},  {350, 12},   {425, 13},   {500, 13},  {600, 14},
                              {725, 14},  {1000, 15}, {1250, 16},  {1500, 16},  {1750, 17}, {2000, 17},
                              {2500, 18}, {3000, 18}, {3500, 19},  {4000, 19},  {6000, 20}, {10000, 21}};
    for (const auto& s : steps06) {
        EXPECT_EQ(shutter_position_of(s[0], false), s[1]) << s[0];
        EXPECT_EQ(shutter_position_of(s[0] * 10, true), s[1]) << s[0] * 10;
    }
    EXPECT_EQ(shutter_position_of(2150, true), 11);
    EXPECT_EQ(shutter_position_of(2150, false), -1);
    EXPECT_EQ(shutter_position_of(123, false), -1);
    EXPECT_EQ(shutter_position_of(0, true), -1);
}

TEST(RemoteTables, ShutterStepCodesAndIris) {
    EXPECT_EQ(osh_position(3), 8);
    EXPECT_EQ(osh_position(7), 17);
    EXPECT_EQ(osh_position(8), 17);
    EXPECT_EQ(osh_position(14), 5);
    EXPECT_EQ(osh_position(4), -1);
    EXPECT_EQ(qsh_digit(21), 10);
    EXPECT_EQ(qsh_digit(15), 7);
    EXPECT_EQ(qsh_digit(16), 0);
    EXPECT_EQ(iris_code(0), 140);
    EXPECT_EQ(iris_code(3), 96);
    EXPECT_EQ(iris_code(13), 18);
    EXPECT_EQ(iris_code(14), 20);
    EXPECT_EQ(iris_code(-1), 20);
}

// ---- aw_ptz ----------------------------------------------------------------------------------

TEST_F(RemoteCommand, PtzRefusalsAndShortArguments) {
    EXPECT_EQ(ptz("cmd="), "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n"
                           "{\"status\":-1,\"message\":Error params.}");
    EXPECT_EQ(last_rc, -1);
    EXPECT_NE(ptz(nullptr).find("Error params."), std::string::npos);
    EXPECT_EQ(ptz("cmd=#XYZ&res=1"), text("\"ER1:#XYZ\"\r\n"));
    EXPECT_EQ(last_rc, -1);
    EXPECT_EQ(ptz("cmd=&res=1"), text(""));
    EXPECT_EQ(ptz("cmd=#DA1"), text("\"ER1:#DA1\"\r\n"));
    EXPECT_EQ(ptz("cmd=#F5"), text("\"ER1:#F5\"\r\n"));
    EXPECT_EQ(ptz("cmd=#Pxx"), text("\"ER1:#Pxx\"\r\n"));   // no speed: not a drive
    ptz("cmd=#PTV");                                             // a status, not a pan speed
    EXPECT_TRUE(camera.sent.empty());
}

TEST_F(RemoteCommand, PtzAnswersWithoutCamera) {
    EXPECT_EQ(ptz("cmd=#DA"), text("dA0\r\n"));
    EXPECT_EQ(ptz("cmd=#TAE"), text("tAE1\r\n"));
    EXPECT_EQ(ptz("cmd=#tae7&res=1"), text("tAE7\r\n"));
    EXPECT_EQ(last_rc, 0);
}

TEST_F(RemoteCommand, PtzDrives) {
    EXPECT_EQ(ptz("cmd=#P99&res=1"), text("pS99\r\n"));
    EXPECT_EQ(ptz("cmd=#P50"), text("pS50\r\n"));
    EXPECT_EQ(ptz("cmd=#T01"), text("pT01\r\n"));
    EXPECT_EQ(ptz("cmd=#PTS9999"), text("pTS9999\r\n"));
    EXPECT_EQ(ptz("cmd=#Z99"), text("zS99\r\n"));
    EXPECT_EQ(ptz("cmd=#Z50"), text("zS50\r\n"));
    EXPECT_EQ(ptz("cmd=#F50"), text("fS50\r\n"));
    const std::vector<std::string> expected{
        "81 01 06 01 17 0a 02 03 ff", "81 01 06 01 0a 0a 03 03 ff", "81 01 06 01 0a 17 03 01 ff",
        "81 01 06 01 17 16 02 02 ff", "81 01 04 07 38 ff",          "81 01 04 07 3a ff",
        "81 01 04 38 03 ff",          "81 01 04 08 35 ff"};
    EXPECT_EQ(camera.sent, expected);
}

TEST_F(RemoteCommand, PtzAbsoluteMovesEchoSignedValuesAndOverlappingSlots) {
    EXPECT_EQ(ptz("cmd=#APC80000000"), text("aPCffff80000000\r\n"));
    EXPECT_EQ(ptz("cmd=#RPC12345678"), text("rPC12345678\r\n"));
    EXPECT_EQ(ptz("cmd=#APS12345678ab3"), text("aPC00005600ab3\r\n"));
    EXPECT_EQ(ptz("cmd=#RPS1234f6780a1"), text("rPS0000fffff6000a1\r\n"));
    EXPECT_EQ(ptz("cmd=#AXZ555"), text("axz2000\r\n"));
    EXPECT_EQ(ptz("cmd=#AXFfff"), text("axf6000\r\n"));
    const std::vector<std::string> expected{
        "81 01 06 02 18 18 08 00 00 00 00 00 00 00 ff", "81 01 06 02 18 18 01 02 03 04 05 06 07 08 ff",
        "81 01 06 02 18 18 00 00 00 00 05 06 00 00 ff", "81 01 06 02 18 18 00 00 00 00 0f 06 00 00 ff",
        "81 01 04 47 02 00 00 00 ff",                   "81 01 04 48 06 00 00 00 ff"};
    EXPECT_EQ(camera.sent, expected);
}

TEST_F(RemoteCommand, PtzFocusModePresetsAndInstallation) {
    first_byte("81 09 04 38 ff", 0);
    EXPECT_EQ(ptz("cmd=#D1"), text("d11\r\n"));
    first_byte("81 09 04 38 ff", 1);
    EXPECT_EQ(ptz("cmd=#D1"), text("d10\r\n"));
    EXPECT_EQ(ptz("cmd=#D10"), text("d10\r\n"));
    EXPECT_EQ(ptz("cmd=#M12"), text("s12\r\n"));
    EXPECT_EQ(ptz("cmd=#R05"), text("s5\r\n"));
    first_byte("81 09 04 a6 ff", 1);
    EXPECT_EQ(ptz("cmd=#INS1"), text("iNS1\r\n"));
    const std::vector<std::string> expected{"81 09 04 38 ff",    "81 09 04 38 ff",    "81 01 04 38 03 ff",
                                            "81 01 04 3f 00 00 0c ff", "81 01 04 3f 01 00 05 ff",
                                            "81 01 04 a6 01 ff", "81 09 04 a6 ff"};
    EXPECT_EQ(camera.sent, expected);

    // A failing inquiry answers the JSON error with the argument cut at '&'.
    camera.replies.clear();
    EXPECT_EQ(ptz("cmd=#INS&res=1"), "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n"
                                     "{\"status\":-1,\"message\":cmd=#INS}");
    EXPECT_EQ(last_rc, -1);
}

TEST_F(RemoteCommand, PtzExposureStatus) {
    first_byte("81 09 04 39 ff", 1);                        // manual
    first_byte("81 09 04 4c ff", 6);                        // gain 6 -> (6 + 4) * 2
    camera.replies["81 09 04 2a ff"] = {0x78, 0x14, 0, 0, 0xff};   // 0x1478
    first_byte("81 09 04 4a ff", 11);
    first_byte("81 09 04 c7 ff", 50);
    camera.replies["81 09 04 da ff"] = {0x90, 0x50, 0x03, 0xff};
    EXPECT_EQ(ptz("cmd=#PTG"), text("pTG141478100d7053fc3\r\n"));

    first_byte("81 09 04 39 ff", 0);                        // auto: gain field "80"
    first_byte("81 09 04 c7 ff", 30);                       // 30/60: no trailing value
    EXPECT_EQ(ptz("cmd=#PTG"), text("pTG801478300fa009c4\r\n"));

    first_byte("81 09 04 39 ff", 3);
    first_byte("81 09 04 c7 ff", 25);
    camera.replies["81 09 04 da ff"] = {0x90, 0x60, 0x02, 0xff};   // not a completion: "0"
    first_byte("81 09 04 4a ff", 5);
    EXPECT_EQ(ptz("cmd=#PTG"), text("pTG14147820019000fa0\r\n"));
}

// ---- aw_cam ----------------------------------------------------------------------------------

// Must run before any "LZS:" of this process: the zoom speed starts at 10.
TEST_F(RemoteCommand, CamZoomDoesNothingUntilASpeedIsStored) {
    EXPECT_EQ(cam("cmd=HZT&res=1"), text("HZT\r\n"));
    EXPECT_TRUE(camera.sent.empty());
    EXPECT_EQ(cam("cmd=LZS:9"), text("LZS:9\r\n"));   // clamped to 7
    EXPECT_EQ(cam("cmd=HZW"), text("HZW\r\n"));
    EXPECT_EQ(cam("cmd=LZS:5"), text("LZS:5\r\n"));
    EXPECT_EQ(cam("cmd=hzt"), text("hzt\r\n"));
    const std::vector<std::string> expected{"81 01 04 07 37 ff", "81 01 04 07 25 ff"};
    EXPECT_EQ(camera.sent, expected);
}

TEST_F(RemoteCommand, CamFirstStageActsThenRefuses) {
    EXPECT_EQ(cam("cmd=OAF:1"), text("\"ER1:OAF:1\"\r\n"));
    EXPECT_EQ(last_rc, -1);
    EXPECT_EQ(cam("cmd=HFF"), text("\"ER1:HFF\"\r\n"));
    EXPECT_EQ(cam("cmd=LFS:0"), text("\"ER1:LFS:0\"\r\n"));   // clamped to 1
    EXPECT_EQ(cam("cmd=HFN"), text("\"ER1:HFN\"\r\n"));
    EXPECT_EQ(cam("cmd=ORS"), text("\"ER1:ORS\"\r\n"));
    const std::vector<std::string> expected{"81 01 04 38 02 ff", "81 01 04 38 03 ff", "81 01 04 08 33 ff",
                                            "81 01 04 38 03 ff", "81 01 04 08 21 ff"};
    EXPECT_EQ(camera.sent, expected);
}

TEST_F(RemoteCommand, CamFixedAnswersEchoesAndUnknowns) {
    EXPECT_EQ(cam("cmd=OMS"), text("OMS:001\r\n"));
    EXPECT_EQ(cam("res=1&cmd=osd:b1"), text("OSD:B1:02B\r\n"));
    EXPECT_EQ(cam("cmd=OSA:51"), text("OSA:51:7C\r\n"));
    EXPECT_EQ(cam("cmd=OSD:1e:3"), text("OSD:1e:3\r\n"));
    EXPECT_EQ(cam("cmd=OWS"), text("OWS\r\n"));
    EXPECT_EQ(cam("cmd=OMS:001"), text("\"ER1:OMS:001\"\r\n"));   // "OMS:" takes one character
    EXPECT_EQ(cam("cmd=XYZ&res=1"), text("\"ER1:XYZ\"\r\n"));
    EXPECT_EQ(cam("res=1"), text(""));
    EXPECT_EQ(last_rc, -1);
    EXPECT_EQ(cam("cmd="), text(""));
    EXPECT_EQ(cam(nullptr), text(""));
    EXPECT_TRUE(camera.sent.empty());
}

TEST_F(RemoteCommand, CamShutter) {
    first_byte("81 09 04 39 ff", 1);   // manual: the shutter gate is open
    EXPECT_EQ(cam("cmd=OSJ:06:01F4&res=1"), text("OSJ:06:01F4\r\n"));
    EXPECT_EQ(cam("cmd=OSJ:09:00866"), text("OSJ:09:00866\r\n"));   // 2150 -> step 11
    EXPECT_EQ(cam("cmd=OSJ:06:0007"), text("OSJ:06:0007\r\n"));     // no step: nothing sent
    EXPECT_EQ(cam("cmd=OSH:3"), text("OSH:3\r\n"));
    const std::vector<std::string> expected{
        "81 09 04 39 ff", "81 01 04 4a 00 00 00 0d ff", "81 09 04 39 ff", "81 01 04 4a 00 00 00 0b ff",
        "81 09 04 39 ff", "81 01 04 4a 00 00 00 08 ff"};
    EXPECT_EQ(camera.sent, expected);

    first_byte("81 09 04 4a ff", 11);
    first_byte("81 09 04 c7 ff", 50);
    EXPECT_EQ(cam("cmd=OSJ:06"), text("OSJ:06:00d7\r\n"));
    EXPECT_EQ(cam("cmd=OSJ:09"), text("OSJ:09:00866\r\n"));
    EXPECT_EQ(cam("cmd=QSH"), text("QSH:5\r\n"));
    first_byte("81 09 04 4a ff", 21);
    EXPECT_EQ(cam("cmd=QSH"), text("QSH:a\r\n"));
    first_byte("81 09 04 4a ff", 5);
    EXPECT_EQ(cam("cmd=QSH"), text("OFT:f\r\n"));
    first_byte("81 09 04 c7 ff", 60);
    EXPECT_EQ(cam("cmd=OSJ:06"), text("OSJ:06:001e\r\n"));
}

TEST_F(RemoteCommand, CamGainAndExposure) {
    EXPECT_EQ(cam("cmd=OGU:80"), text("OGU:80\r\n"));
    EXPECT_EQ(cam("cmd=OGU:30"), text("\"ER3:OGU:30\"\r\n"));
    EXPECT_EQ(last_rc, -1);
    first_byte("81 09 04 39 ff", 1);
    EXPECT_EQ(cam("cmd=OGU:0c"), text("OGU:0c\r\n"));
    const std::vector<std::string> expected{"81 01 04 39 00 ff", "81 01 04 39 03 ff", "81 09 04 39 ff",
                                            "81 01 04 4c 00 00 00 02 ff"};
    EXPECT_EQ(camera.sent, expected);

    EXPECT_EQ(cam("cmd=OGU"), text("\"ER3:OGU\"\r\n"));   // gain inquiry fails
    first_byte("81 09 04 4c ff", 2);
    EXPECT_EQ(cam("cmd=OGU"), text("OGU:0c\r\n"));
    first_byte("81 09 04 39 ff", 0);
    EXPECT_EQ(cam("cmd=OGU"), text("OGU:80\r\n"));
}

TEST_F(RemoteCommand, CamPictureSettings) {
    EXPECT_EQ(cam("cmd=OSD:3A:01"), text("OSD:3A:01\r\n"));
    EXPECT_EQ(cam("cmd=OSD:3A:00"), text("OSD:3A:00\r\n"));
    first_byte("81 09 04 53 ff", 2);
    EXPECT_EQ(cam("cmd=OSG:B5:3"), text("OSG:B5:3\r\n"));
    EXPECT_EQ(cam("cmd=OSA:6A:70"), text("OSA:6A:70\r\n"));
    EXPECT_EQ(cam("cmd=OFT:2"), text("OFT:2\r\n"));
    EXPECT_EQ(cam("cmd=OSE:73:1"), text("OSE:73:1\r\n"));
    EXPECT_EQ(cam("cmd=OSE:73:0"), text("OSE:73:0\r\n"));
    const std::vector<std::string> expected{
        "81 01 04 53 01 ff", "81 01 04 53 00 ff", "81 09 04 53 ff", "81 01 04 53 03 ff",
        "81 01 04 5b 03 ff", "81 01 04 da 02 ff", "81 01 04 33 02 ff", "81 01 04 33 03 ff"};
    EXPECT_EQ(camera.sent, expected);

    EXPECT_EQ(cam("cmd=OSD:3A"), text("OSD:3A:1\r\n"));
    first_byte("81 09 04 53 ff", 5);
    EXPECT_EQ(cam("cmd=OSD:3A"), text("OSD:3A:0\r\n"));
    EXPECT_EQ(cam("cmd=OSG:B5:3"), text("\"ER3:OSG:B5:3\"\r\n"));
    first_byte("81 09 04 5b ff", 3);
    EXPECT_EQ(cam("cmd=OSA:6A"), text("OSA:6A:70\r\n"));
    first_byte("81 09 04 33 ff", 1);
    EXPECT_EQ(cam("cmd=OSE:73"), text("OSE:73:1\r\n"));
    EXPECT_EQ(cam("cmd=OFT"), text("OFT:0\r\n"));   // failed inquiry
    camera.replies["81 09 04 da ff"] = {0x90, 0x50, 0x04, 0xff};
    EXPECT_EQ(cam("cmd=OFT"), text("OFT:4\r\n"));
}
