// The "ai" section against the fake camera and store: the packets each write
// sends in order, the answer read from the tracking area with the pan-tilt
// limit from the camera, a silent camera, and the tracking lock on manual
// pan-tilt.

#include "section_cases.h"

namespace {

using fake::Bytes;

class JsonAi : public fake::SectionTest {
protected:
    void SetUp() override {
        AiInfo& ai = sys.store->ai;
        ai = AiInfo{};
        ai.mode = 2;
        ai.peoplePos = 1;
        ai.peopleRation = 0x25;
        ai.bodyRatio = 0x18;
        ai.switchTime = 5;
        ai.boardDetectEn = 1;
        ai.zoomLock = 1;
        camera.answer = [](const Bytes& packet) -> std::optional<Bytes> {
            if (packet == Bytes{0x81, 0x09, 0x04, 0xD7, 0xFF}) return Bytes{0x90, 0x50, 0x03, 0xFF};
            return Bytes{0x90, 0x51, 0xFF};
        };
    }
    // The request's reply and the packets it sent.
    std::pair<std::string, std::vector<std::string>> run(const std::string& request) {
        camera.log.clear();
        std::string reply = json_reply(json_set_ctrl, request);
        return {reply, camera.sent()};
    }
};

const std::string kArea =
    R"("enable":0,"mode":2,"peoplePos":1,"peopleRation":37,"bodyRatio":24,"switchTime":5,"boardDetectEn":1,)"
    R"("highLightTarget":0,"zoomLock":1,"tiltLock":0,"PTLimit":)";
const std::string kFailed = R"({"ai":false,"status":false})";

struct AiCase {
    const char* name;
    const char* request;
    std::vector<std::string> packets;
    std::string reply;
};

// clang-format off
const AiCase kCases[] = {
    {"a switch and a people change, then the limit's inquiry", R"({"enable":1,"peopleChange":"left"})",
     {"81 01 04 c8 01 ff", "81 01 04 ca 03 ff", "81 09 04 d7 ff"}, R"({"ai":{)" + kArea + R"(3},"status":true})"},
    {"values of two nibbles; the other side", R"({"switchTime":37,"bodyRatio":171,"peopleChange":"right","enable":0})",
     {"81 01 04 cd 02 05 ff", "81 01 04 cc 01 0a 0b ff", "81 01 04 ca 02 ff", "81 01 04 c8 00 ff", "81 09 04 d7 ff"}, ""},
    {"one push framing and the limit", R"({"framingOnePush":true,"PTLimit":6,"mode":1,"peoplePos":2})",
     {"81 01 04 c8 02 01 ff", "81 01 04 d7 06 ff", "81 01 04 c8 01 01 ff", "81 01 04 cb 02 ff", "81 09 04 d7 ff"}, ""},
    {"the rest of the switches", R"({"peopleRation":18,"boardDetectEn":0,"highLightTarget":1,"tiltLock":1})",
     {"81 01 04 cc 01 02 ff", "81 01 04 ce 00 ff", "81 01 04 cf 01 ff", "81 01 04 d6 01 01 ff", "81 09 04 d7 ff"}, ""},
    {"an empty write answers the area", "{}", {"81 09 04 d7 ff"}, R"({"ai":{)" + kArea + R"(3},"status":true})"},
    {"a bad member fails after the others went, no inquiry", R"({"zoomLock":0,"peopleChange":"up","highLightTarget":1})",
     {"81 01 04 d6 00 00 ff", "81 01 04 cf 01 ff"}, kFailed},
    {"wrong types and unknown keys send nothing", R"({"enable":"1","framingOnePush":1,"peopleChange":3,"zoom":1})", {}, kFailed},
    {"not an object", "true", {}, kFailed},
    {"a value past a byte sends nothing", R"({"PTLimit":256})", {}, kFailed},
};
// clang-format on

TEST_F(JsonAi, WritesSendTheirPacketsAndAnswerTheArea) {
    for (const AiCase& c : kCases) {
        SCOPED_TRACE(c.name);
        const auto [reply, packets] = run(std::string(R"({"ai":)") + c.request + "}");
        if (!c.reply.empty()) {
            EXPECT_EQ(reply, c.reply);
        }
        EXPECT_EQ(packets, c.packets);
    }
}

// The limit goes out without waiting; its inquiry then times out and the
// answer says -1, the area's values all the same.
TEST_F(JsonAi, SilentCameraAnswersTheLimitMinusOne) {
    camera.answer = [](const Bytes&) -> std::optional<Bytes> { return std::nullopt; };
    camera.timed_out = true;
    const auto [reply, packets] = run(R"({"ai":{"PTLimit":9}})");
    EXPECT_EQ(reply, R"({"ai":{)" + kArea + R"(-1},"status":true})");
    EXPECT_EQ(packets, (std::vector<std::string>{"81 01 04 d7 09 ff", "81 09 04 d7 ff"}));
}

// While tracking is on, manual pan-tilt is refused unless tilt is locked,
// and then only the pan moves.
TEST_F(JsonAi, TrackingLocksManualPanTilt) {
    struct Step {
        uint8_t enable, tilt_lock;
        const char* request;
        const char* reply;
        std::vector<std::string> packets;
    };
    // clang-format off
    const Step steps[] = {
        {1, 0, R"("ptz":[3,5],"ptz":[1,5],"ptz":[0,5])", R"("ptz":-1,"ptz":-1,"ptz":-1)", {}},
        {1, 1, R"("ptz":[3,5],"ptz":[1,5],"ptz":[0,5],"ptz":"up")", R"("ptz":-1,"ptz":true,"ptz":true,"ptz":-1)",
         {"81 01 06 01 05 05 03 01 ff", "81 01 06 01 05 05 03 03 ff"}},
        {0, 0, R"("ptz":[3,5],"ptz":[0,5])", R"("ptz":true,"ptz":true)",
         {"81 01 06 01 05 05 01 03 ff", "81 01 06 01 05 05 03 03 ff"}},
    };
    // clang-format on
    for (const Step& s : steps) {
        SCOPED_TRACE(s.request);
        sys.store->ai.enable = s.enable;
        sys.store->ai.tiltLock = s.tilt_lock;
        const auto [reply, packets] = run(std::string(R"({"image":{)") + s.request + "}}");
        EXPECT_EQ(reply, std::string(R"({"image":{)") + s.reply + R"(},"status":true})");
        EXPECT_EQ(packets, s.packets);
    }
}

}  // namespace
