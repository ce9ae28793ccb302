// The remote-control interpreters: conversions and tables, and the two
// interpreters run against a scripted camera (packets recorded, inquiries
// answered from a table).

#include <map>
#include <sstream>
#include <tuple>

#include "camera/image_ctrl.h"
#include "fake_camera.h"
#include "fake_system.h"
#include "section_cases.h"
#include "cgi/output.h"
#include "remote/aw_cam.h"
#include "remote/aw_ptz.h"
#include "remote/remote_common.h"

using namespace remote;

namespace {

constexpr std::string_view kText = "Content-type: text/plain\r\nStatus: 200 OK\r\n\r\n";

// ---- scripted camera ------------------------------------------------------------
// Inquiries are answered from `replies` by their hex text; commands without a
// scripted reply are accepted, other inquiries fail.
class RemoteCommand : public fake::FakeCameraTest {
protected:
    void SetUp() override {
        camera.answer = [this](const fake::Bytes& packet) -> std::optional<fake::Bytes> {
            const auto it = replies.find(fake::hex_of(packet));
            if (it != replies.end()) return it->second;
            if (packet.size() > 1 && packet[1] == 0x01) return fake::Bytes{};
            return std::nullopt;
        };
    }
    // First-byte reply of an inquiry (the rest of the reply is padding).
    void first_byte(const std::string& inquiry, uint8_t value) {
        replies[inquiry] = {value, 0x00, 0x00, 0x00, 0xff, 0x00};
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

    std::map<std::string, fake::Bytes> replies;  // inquiry -> reply bytes
    int last_rc = 0;
};

}  // namespace

// ---- pure pieces --------------------------------------------------------------------------

TEST(RemoteParse, MatchingAndScanning) {
    EXPECT_TRUE(command_matches("#o1", "#O1", 0));
    EXPECT_FALSE(command_matches("#O10", "#O1", 0));
    EXPECT_TRUE(command_matches("#p99", "#P", 4));
    EXPECT_FALSE(command_matches("#PTS9999", "#P", 4));
    EXPECT_FALSE(command_matches("", "#O", 0));

    // Conversions stop at the first that finds no digit; its slot keeps its value.
    std::array<int32_t, 4> slots{7, 7, 7, 7};
    EXPECT_EQ(scan_fields("80000000", "x4x4", slots), 2);
    EXPECT_EQ(slots[0], 0x8000);
    EXPECT_EQ(slots[1], 0);
    slots = {7, 7, 7, 7};
    EXPECT_EQ(scan_fields("12zz5678", "x4x4", slots), 1);
    EXPECT_EQ(slots[0], 0x12);
    EXPECT_EQ(slots[1], 7);
    EXPECT_EQ(scan_fields("-5", "d2", slots), 0);  // no sign, no blanks
    EXPECT_EQ(leading_number("01F4", 16), 0x1F4);
    EXPECT_EQ(leading_number("Af", 16), 0xAF);
    EXPECT_FALSE(leading_number("x7", 10).has_value());
}

TEST(RemoteConvert, SpeedsAndPositions) {
    auto eq = [](Drive d, int dir, int speed) { return d.direction == dir && d.speed == speed; };
    EXPECT_TRUE(eq(pan_tilt_speed(50, kPanK), 3, 10));
    EXPECT_TRUE(eq(pan_tilt_speed(99, kPanK), 2, 23));
    EXPECT_TRUE(eq(pan_tilt_speed(75, kPanK), 2, 12));
    EXPECT_TRUE(eq(pan_tilt_speed(0, kPanK), 1, 24));
    EXPECT_TRUE(eq(pan_tilt_speed(99, kPtsTiltK), 2, 22));
    // Zoom and focus products are not limited, and 50 does not stop them.
    EXPECT_TRUE(eq(zoom_speed(99), 2, 1176));
    EXPECT_TRUE(eq(zoom_speed(50), 2, 10));
    EXPECT_TRUE(eq(zoom_speed(0), 1, 1200));
    EXPECT_TRUE(eq(focus_speed(50), 2, 5));
    EXPECT_TRUE(eq(focus_speed(99), 2, 343));

    EXPECT_EQ(position_to_motor(0x555), 8192);
    EXPECT_EQ(position_from_motor(8192), 0xaaa);
    EXPECT_EQ(position_from_motor(0), 0x555);
    EXPECT_EQ(position_from_motor(-7), 1364);  // rounds towards zero
    EXPECT_EQ(position_from_motor(INT32_MAX), static_cast<int>(int64_t{INT32_MAX} * 2730 / 16384 + 1365));
}

TEST(RemoteTables, ShutterAndIris) {
    EXPECT_TRUE(fifty_hertz_family(50));
    EXPECT_FALSE(fifty_hertz_family(-1));
    EXPECT_EQ(ptg_shutter(11, true).tenths, 21500);  // not ten times 215
    EXPECT_EQ(ptg_shutter(5, false).speed, 30);
    EXPECT_EQ(ptg_shutter(5, true).speed, 25);
    EXPECT_EQ(ptg_shutter(22, false).tenths, 250);
    EXPECT_EQ(shutter_speed_of(6, true, true), 250);  // no 25/50 tenths entry for 6 and 7
    EXPECT_EQ(shutter_speed_of(7, false, true), 900);
    EXPECT_EQ(shutter_speed_of(21, true, true), 100000);
    EXPECT_EQ(shutter_speed_of(-1, false, false), 30);
    EXPECT_EQ(shutter_position_of(25, false), 5);
    EXPECT_EQ(shutter_position_of(2500, false), 18);
    EXPECT_EQ(shutter_position_of(2150, true), 11);
    EXPECT_EQ(shutter_position_of(2150, false), -1);
    EXPECT_EQ(shutter_position_of(100000, true), 21);
    EXPECT_EQ(osh_position(8), 17);
    EXPECT_EQ(osh_position(4), -1);
    EXPECT_EQ(qsh_digit(21), 10);
    EXPECT_EQ(qsh_digit(19), 9);
    EXPECT_EQ(qsh_digit(16), 0);
    EXPECT_EQ(iris_code(3), 96);
    EXPECT_EQ(iris_code(14), 20);
    EXPECT_EQ(iris_code(-1), 20);
}

// ---- the interpreters on a scripted camera -----------------------------------------------------

TEST_F(RemoteCommand, RefusalsAndAnswersWithoutTheCamera) {
    EXPECT_EQ(ptz("cmd="),
              "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n"
              "{\"status\":-1,\"message\":Error params.}");
    EXPECT_EQ(last_rc, -1);
    EXPECT_NE(ptz(nullptr).find("Error params."), std::string::npos);
    EXPECT_EQ(ptz("cmd=#XYZ&res=1"), text("\"ER1:#XYZ\"\r\n"));
    EXPECT_EQ(ptz("cmd=&res=1"), text(""));
    EXPECT_EQ(ptz("cmd=#F5"), text("\"ER1:#F5\"\r\n"));
    EXPECT_EQ(ptz("cmd=#Pxx"), text("\"ER1:#Pxx\"\r\n"));  // no speed: not a drive
    EXPECT_EQ(ptz("cmd=#DA"), text("dA0\r\n"));
    EXPECT_EQ(ptz("cmd=#tae7"), text("tAE7\r\n"));
    EXPECT_EQ(ptz("cmd=#TAE"), text("tAE1\r\n"));  // not a tilt drive: no speed digits
    EXPECT_EQ(cam("res=1&cmd=osd:b1"), text("OSD:B1:02B\r\n"));
    EXPECT_EQ(cam("cmd=OMS:001"), text("\"ER1:OMS:001\"\r\n"));  // "OMS:" takes one character
    EXPECT_EQ(cam("cmd=ORS"), text("\"ER1:ORS\"\r\n"));
    EXPECT_EQ(cam("cmd=OAF:1x"), text("\"ER1:OAF:1x\"\r\n"));
    EXPECT_EQ(cam("res=1"), text(""));
    EXPECT_EQ(cam(nullptr), text(""));
    EXPECT_EQ(last_rc, -1);
    EXPECT_TRUE(camera.sent().empty());
}

TEST_F(RemoteCommand, PtzFailuresAnswerTheJsonError) {
    const std::string error =
        "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n"
        "{\"status\":-1,\"message\":cmd=#INS}";
    EXPECT_EQ(ptz("cmd=#INS&res=1"), error);  // the argument cut at '&'
    EXPECT_EQ(last_rc, -1);
    EXPECT_NE(ptz("cmd=#PTV").find("cmd=#PTV}"), std::string::npos);  // no camera area
    EXPECT_NE(ptz("cmd=#PTG").find("cmd=#PTG}"), std::string::npos);
}

TEST_F(RemoteCommand, PtzSignedEchoesAndOverlappingSlots) {
    EXPECT_EQ(ptz("cmd=#APC80000000"), text("aPCffff80000000\r\n"));
    EXPECT_EQ(ptz("cmd=#RPS1234f6780a1"), text("rPS0000fffff6000a1\r\n"));
    const std::vector<std::string> expected{"81 01 06 02 18 18 08 00 00 00 00 00 00 00 ff",
                                            "81 01 06 02 18 18 00 00 00 00 0f 06 00 00 ff"};
    EXPECT_EQ(camera.sent(), expected);
}

TEST_F(RemoteCommand, PtzExposureStatus) {
    first_byte("81 09 04 39 ff", 1);                       // manual
    first_byte("81 09 04 4c ff", 6);                       // gain field (6 + 4) * 2
    replies["81 09 04 2a ff"] = {0x78, 0x14, 0, 0, 0xff};  // 0x1478
    first_byte("81 09 04 4a ff", 11);
    first_byte("81 09 04 c7 ff", 50);
    replies["81 09 04 da ff"] = {0x90, 0x50, 0x03, 0xff};
    EXPECT_EQ(ptz("cmd=#PTG"), text("pTG141478100d7053fc3\r\n"));

    first_byte("81 09 04 39 ff", 0);   // auto: gain field "80"
    first_byte("81 09 04 c7 ff", 30);  // 30/60: no trailing value
    EXPECT_EQ(ptz("cmd=#PTG"), text("pTG801478300fa009c4\r\n"));

    first_byte("81 09 04 39 ff", 3);
    first_byte("81 09 04 c7 ff", 25);
    first_byte("81 09 04 4a ff", 5);
    replies["81 09 04 da ff"] = {0x90, 0x60, 0x02, 0xff};  // not a completion: "0"
    EXPECT_EQ(ptz("cmd=#PTG"), text("pTG14147820019000fa0\r\n"));
}

TEST_F(RemoteCommand, CamShutterAtFiftyHertz) {
    first_byte("81 09 04 4a ff", 11);
    first_byte("81 09 04 c7 ff", 50);
    EXPECT_EQ(cam("cmd=OSJ:06"), text("OSJ:06:00d7\r\n"));
    EXPECT_EQ(cam("cmd=OSJ:09"), text("OSJ:09:00866\r\n"));
    first_byte("81 09 04 4a ff", 7);
    EXPECT_EQ(cam("cmd=OSJ:09"), text("OSJ:09:000fa\r\n"));
    first_byte("81 09 04 4a ff", 21);
    EXPECT_EQ(cam("cmd=QSH"), text("QSH:a\r\n"));

    first_byte("81 09 04 39 ff", 3);  // shutter priority: the gate is open
    EXPECT_EQ(cam("cmd=OSJ:09:00866"), text("OSJ:09:00866\r\n"));
    EXPECT_EQ(camera.sent().back(), "81 01 04 4a 00 00 00 0b ff");
}

TEST_F(RemoteCommand, CamFailedInquiries) {
    EXPECT_EQ(cam("cmd=OGU"), text("\"ER3:OGU\"\r\n"));
    EXPECT_EQ(last_rc, -1);
    EXPECT_EQ(cam("cmd=OFT"), text("OFT:0\r\n"));
    EXPECT_EQ(cam("cmd=QSH"), text("QSH:0\r\n"));
    EXPECT_EQ(cam("cmd=OSJ:06"), text("OSJ:06:001e\r\n"));
    EXPECT_EQ(cam("cmd=QSI:18"), text("QSI:18:555000fff\r\n"));  // no camera area: zeros
    EXPECT_EQ(cam("cmd=OGU:zz"), text("\"ER3:OGU:zz\"\r\n"));
}

// Standby and power: each spelling sends its standby number to the system
// server and answers the power state the command asked for.
TEST_F(RemoteCommand, PtzStandbySpellings) {
    fake::FakeSystem sys;
    const fake::SystemInstalled installed(sys);
    sys.on_command = [](const fake::Command& c, SysStore& store) { store.state.standby = c.data[0]; };
    for (const auto& [command, reply, sent] : {std::tuple{"#O0", "p0", "64 01"},
                                               {"#Of", "p0", "64 01"},
                                               {"#O1", "p1", "64 00"},
                                               {"#On", "p1", "64 00"}}) {
        SCOPED_TRACE(command);
        sys.journal.clear();
        EXPECT_EQ(ptz((std::string("cmd=") + command + "&res=1").c_str()), text(std::string(reply) + "\r\n"));
        ASSERT_EQ(sys.journal.size(), 1u);
        EXPECT_EQ(fake::command_text(sys.journal[0]), sent);
    }
}

// The camera commands that only answer: each setting echoes, each inquiry
// answers its fixed value ("cmd=answer"; "cmd=" alone: the echo), and
// nothing reaches the camera.
TEST_F(RemoteCommand, CamFixedAnswers) {
    std::istringstream rows(
        "OMS:1= OMS=OMS:001 OSD:BF:0= OSD:BF=OSD:BF:1 OSG:59:0= OSG:59=OSG:59:1 OSG:5A:0= OSG:5A=OSG:5A:1 "
        "OSG:5D:01= OSG:5D=OSG:5D:04 OSJ:03:1= OSJ:03=OSJ:03:0 OSJ:04:11= OSJ:05:22= OSJ:07:33= OSJ:08:44= "
        "OSD:69:02= OSD:69=OSD:69:01 OGS:05= OGS=OGS:04 OSA:50:11= OSA:51:11= OSA:52:11= OSA:50=OSA:50:7C "
        "OSA:51=OSA:51:7C OSA:52=OSA:52:7C OSA:60:1= OSA:60=OSA:60:0 OSA:28:1= OSA:28=OSA:28:0 OWS=OWS "
        "OSA:88:1= OSA:88=OSA:88:0 OAW:1= OAW=OAW:0 OAS=OAS OSD:B1:123= OSD:B1=OSD:B1:02B OSD:1E:1= "
        "OSD:1F:2= "
        "ODT:1= ODT=ODT:0 OSE:33:1= OSE:33=OSE:33:0 OSE:72:0= OSE:72=OSE:72:1 OSD:50:0= OSD:50=OSD:50:1");
    for (std::string row; rows >> row;) {
        const size_t eq = row.find('=');
        const std::string command = row.substr(0, eq), answer = row.substr(eq + 1);
        EXPECT_EQ(cam(("cmd=" + command).c_str()), text((answer.empty() ? command : answer) + "\r\n"))
            << command;
    }
    EXPECT_TRUE(camera.sent().empty());
}

// Drives and the motors' positions (the camera area of the store): the
// reply line and every packet each command sent.
TEST_F(RemoteCommand, DrivesAndMotorPositions) {
    fake::FakeSystem sys;
    const fake::SystemInstalled installed(sys);
    sys.store->cam.pan() = 0x1234, sys.store->cam.tilt() = 0x5678;
    sys.store->cam.zoom() = 8192, sys.store->cam.focus() = 0x2000;
    const std::tuple<const char*, const char*, std::vector<std::string>> rows[] = {
        {"#F01", "fS01", {"81 01 04 38 03 ff", "81 01 04 08 27 ff"}},
        {"#D11", "d11", {"81 01 04 38 02 ff"}},
        {"#D10", "d10", {"81 01 04 38 03 ff"}},
        {"OAF:1", "\"ER1:OAF:1\"", {"81 01 04 38 02 ff"}},  // the first stage acts, then it is refused
        {"LFS:6", "\"ER1:LFS:6\"", {}},
        {"HFF", "\"ER1:HFF\"", {"81 01 04 38 03 ff", "81 01 04 08 36 ff"}},
        {"#P99", "pS99", {"81 01 06 01 17 0a 02 03 ff"}},
        {"#T20", "pT20", {"81 01 06 01 0a 0e 03 01 ff"}},
        {"#PTS9999", "pTS9999", {"81 01 06 01 17 16 02 02 ff"}},
        {"#P50", "pS50", {"81 01 06 01 0a 0a 03 03 ff"}},
        {"#Z99", "zS99", {"81 01 04 07 38 ff"}},
        {"#Z50", "zS50", {"81 01 04 07 3a ff"}},
        {"#APC12345678", "aPC12345678", {"81 01 06 02 18 18 01 02 03 04 05 06 07 08 ff"}},
        {"#APS12345678ab3", "aPC00005600ab3", {"81 01 06 02 18 18 00 00 00 00 05 06 00 00 ff"}},
        {"#AXZ555", "axz2000", {"81 01 04 47 02 00 00 00 ff"}},
        {"#AXF555", "axf2000", {"81 01 04 48 02 00 00 00 ff"}},
        {"#AXZ", "axzaaa", {}},
        {"#AXF", "axfaaa", {}},
        {"#PTV", "pTV12345678aaa2000fff", {}},  // zoom converted on the way out, focus not
        {"LZS:5", "LZS:5", {}},
        {"hzt", "hzt", {"81 01 04 07 25 ff"}},
        {"LZS:9", "LZS:9", {}},  // clamped to 7
        {"HZW", "HZW", {"81 01 04 07 37 ff"}},
    };
    for (const auto& [command, reply, packets] : rows) {
        camera.log.clear();
        const std::string arg = std::string("cmd=") + command;
        EXPECT_EQ(command[0] == '#' ? ptz(arg.c_str()) : cam(arg.c_str()), text(std::string(reply) + "\r\n"));
        EXPECT_EQ(camera.sent(), packets) << command;
    }
}
