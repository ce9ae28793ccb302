// Request values that must not reach the camera or the system server as they
// are: bytes that would break a VISCA packet's framing, a digital zoom that
// overflows, and text echoed inside an answer's quotes.

#include <cstdlib>

#include "camera/image_ctrl.h"
#include "camera/visca_ops.h"
#include "cgi/output.h"
#include "fake_camera.h"
#include "fake_system.h"
#include "front/post_cmd.h"
#include "json/json_ctrl_func.h"

namespace {

class Hardening : public fake::FakeCameraTest {
protected:
    std::string capture(const std::function<void()>& request) {
        setenv("REQUEST_METHOD", "GET", 1);
        OutputCapture out;
        request();
        return out.text();
    }
    fake::FakeSystem sys;
    fake::SystemInstalled installed_system{sys};
};

struct Framing {
    const char* name;
    std::function<int()> send;
    int result;                     // what the operation answers
    std::vector<std::string> sent;  // packets that went out
};

TEST_F(Hardening, ValuesThatWouldBreakTheFramingSendNothing) {
    const std::vector<Framing> cases = {
        {"anti flicker 255", [] { return image_anti_flicker_set(255); }, -1, {}},
        {"nd filter 80", [] { return image_nd_filter_set(0x80); }, -1, {}},
        {"2D noise reduction -1", [] { return image_nr2d_set(-1); }, -1, {}},
        {"fpga mode 7F still fits", [] { return image_fpga_mode_set(0x7F); }, 0, {"81 01 06 34 7f ff"}},
        {"sendPTZ right at speed 255", [] { return json_ptz_ctrl(3, 255); }, 0, {}},  // answered all the same
        {"sendPTZ speed 300 keeps its low byte",
         [] { return json_ptz_ctrl(3, 300); },
         0,
         {"81 01 06 01 2c 2c 02 03 ff"}},
    };
    for (const Framing& c : cases) {
        SCOPED_TRACE(c.name);
        camera.log.clear();
        EXPECT_EQ(c.send(), c.result);
        EXPECT_EQ(camera.sent(), c.sent);
    }
}

TEST_F(Hardening, FramingOfAPacketFromOutside) {
    const uint8_t address_inside[] = {0x81, 0x01, 0x04, 0x88, 0xFF};
    const uint8_t terminator_inside[] = {0x81, 0x01, 0xFF, 0x02, 0xFF};
    EXPECT_FALSE(visca::framed(address_inside, sizeof address_inside));
    EXPECT_FALSE(visca::framed(terminator_inside, sizeof terminator_inside));
}

TEST_F(Hardening, RefusedValuesAnswerTheWayTheirSectionFails) {
    sys.store->ai.enable = 1;
    const std::string ai = capture([] { json_set_ctrl(R"({"ai":{"PTLimit":255}})"); });
    EXPECT_NE(ai.find("\"ai\":\tfalse"), std::string::npos) << ai;
    // sendPTZ answers whatever the camera did.
    const std::string ptz = capture([] { sendPTZ(R"({"type":3,"speed":255})"); });
    EXPECT_NE(ptz.find(R"({"status":1,"type":3,"speed":255})"), std::string::npos) << ptz;
    EXPECT_TRUE(camera.sent().empty());
}

TEST_F(Hardening, DigitalZoomOutsideItsRangeIsRefused) {
    for (const char* value : {"-2147483648", "-1", "1025", "2147483647"}) {
        const std::string out = capture(
            [value] { json_set_ctrl((std::string(R"({"image":{"digital_zoom":)") + value + "}}").c_str()); });
        EXPECT_NE(out.find("\"digital_zoom\":\tfalse"), std::string::npos) << value << out;
    }
    EXPECT_TRUE(sys.journal.empty());
    EXPECT_NE(
        capture([] { json_set_ctrl(R"({"image":{"digital_zoom":100}})"); }).find("\"digital_zoom\":\t100"),
        std::string::npos);
    ASSERT_EQ(sys.ids(), std::vector<uint32_t>{49});
    EXPECT_EQ(sys.journal[0].data, (std::vector<uint8_t>{0x9C, 0x03, 0x00, 0x00}));  // 924
}

TEST_F(Hardening, PresetAnswerEscapesItsControlWord) {
    const std::string out =
        capture([] { sendPreset(R"({"index":1,"control":"x\",\"status\":1,\"pwn\":\"1"})"); });
    const std::string body = out.substr(out.find("\r\n\r\n") + 4);
    EXPECT_EQ(body, R"({"status":0,"index":1,"speed":"x\",\"status\":1,\"pwn\":\"1"})");
    EXPECT_TRUE(camera.sent().empty());
}

}  // namespace
