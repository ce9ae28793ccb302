// The image section without a camera: format lists, motor degrees and the
// members that are refused before anything is sent.

#include <map>

#include "camera/image_ctrl.h"
#include "fake_camera.h"
#include "fake_files.h"
#include "json_reply.h"
#include "scratch.h"
#include "fake_shell.h"
#include "cgi/output.h"
#include "json/json_ctrl_func.h"
#include "json/json_image.h"
#include "support/owners.h"

namespace {

std::vector<std::string> names(const cJSON* list) {
    std::vector<std::string> out;
    for (const cJSON* item = list != nullptr ? list->child : nullptr; item; item = item->next)
        out.emplace_back(item->valuestring);
    return out;
}

std::vector<std::string> list_of(uint64_t mask, int short_list = 0) {
    const JsonTree list(json_format_list(mask, short_list));
    return names(list.get());
}

// The reply of a set or get of the image section made with GET (no key
// needed), as compact text.
std::string image_request(int (*request)(const char*), const char* members) {
    return json_reply(request, std::string("{\"image\":{") + members + "}}");
}
std::string set_image(const char* members) { return image_request(json_set_ctrl, members); }
std::string get_image(const char* members) { return image_request(json_get_ctrl, members); }

}  // namespace

TEST(JsonImageFormats, FullMaskInListOrder) {
    const std::vector<std::string> list = list_of(0xc000001f9ff3fULL);
    const std::vector<std::string> expected{
        "3840X2160P@60Hz",    "3840X2160P@59.94Hz", "3840X2160P@50Hz",    "3840X2160P@30Hz",
        "3840X2160P@29.97Hz", "3840X2160P@25Hz",    "1920X1080P@60Hz",    "1920X1080P@59.94Hz",
        "1920X1080P@50Hz",    "1920X1080P@30Hz",    "1920X1080P@29.97Hz", "1920X1080P@25Hz",
        "1920X1080P@24Hz",    "1920X1080P@23.98Hz", "1920X1080I@60Hz",    "1920X1080I@59.94Hz",
        "1920X1080I@50Hz",    "1280X720P@60Hz",     "1280X720P@59.94Hz",  "1280X720P@50Hz",
        "1280X720P@30Hz",     "1280X720P@29.97Hz",  "1280X720P@25Hz"};
    EXPECT_EQ(list, expected);
    // Work mode 2 drops exactly the six 2160-line formats.
    const std::vector<std::string> no2160 = list_of(0xc00000001ff3fULL);
    EXPECT_EQ(no2160, std::vector<std::string>(expected.begin() + 6, expected.end()));
}

TEST(JsonImageFormats, HighRatesAndLowerFormatsKeepTheirPlace) {
    EXPECT_EQ(list_of((1ULL << 0) | (1ULL << 7) | (1ULL << 18)),
              (std::vector<std::string>{"1920X1080P@120Hz", "1920X1080P@25Hz", "1280X720P@120Hz"}));
    EXPECT_EQ(list_of((1ULL << 25) | (1ULL << 30) | (1ULL << 43) | (1ULL << 44) | (1ULL << 32)),
              (std::vector<std::string>{"1024X576P@60Hz", "1024X576P@25Hz", "720X480P@60Hz", "640X480P@25Hz",
                                        "640X360P@25Hz"}));
}

TEST(JsonImageFormats, ShortListAndEmptyMasks) {
    EXPECT_EQ(list_of(0xc000001f9ff3fULL, 1),
              (std::vector<std::string>{"1920X1080P@60Hz", "1920X1080P@50Hz"}));
    EXPECT_EQ(json_format_list(0, 0), nullptr);
    EXPECT_EQ(json_format_list(1ULL << 24, 1), nullptr);  // short list without 60/50
    EXPECT_EQ(json_format_list(1ULL << 63, 0), nullptr);  // no format on that bit
}

// 2276 steps are one degree: 2275 is 0.9998 of one, and -2276 is -1.0002.
TEST(JsonImageDegrees, TruncatesTowardZero) {
    for (const auto& [steps, degrees] : std::vector<std::pair<int, int>>{
             {32768, 14}, {-32768, -14}, {0, 0}, {2275, 0}, {-2276, -1}, {-2275, 0}, {227600, 100}})
        EXPECT_EQ(json_image_degrees(steps), degrees) << steps;
}

// Each row: the members written and the reply's image object; without a
// camera attached, nothing of these may need one.
TEST(JsonImageWrite, RefusedAndQuietMembers) {
    const std::pair<const char*, const char*> rows[] = {
        {R"("zoom":[1,2,3],"focus":["1","2"],"focus_mode":1,"iris":"10")",
         R"({"zoom":false,"focus":false,"focus_mode":false,"iris":false},"status":false)"},
        {R"("no_such_key":1)", R"({"no_such_key":false},"status":false)"},
        {R"("preset":{"del":300})", R"({"preset":false},"status":false)"},
        {R"("preset":{"move":3})", R"({"preset":false},"status":false)"},
        {R"("abs ctrl":{"zoom":"x"})", R"({"abs ctrl":false},"status":false)"},
        {R"("snap":true)", R"({"snap":false},"status":false)"},
        // a non-object "abs ctrl" is skipped; zero resets and saves send nothing
        {R"("abs ctrl":1,"image_reset":0,"IMAGE_SAVE":0,"preset":{})",
         R"({"image_reset":true,"IMAGE_SAVE":true,"preset":true},"status":true)"},
        {"", R"({},"status":true)"},
    };
    for (const auto& [members, reply] : rows)
        EXPECT_EQ(set_image(members), std::string("{\"image\":") + reply + "}") << members;
}

// ---- the section over a scripted camera ------------------------------------------------

namespace {

// Answers each inquiry by its fourth byte (81 09 04 xx ...): a script gives
// the reply for the n-th inquiry of that code; an empty reply fails the channel.
// Commands are accepted.
struct InquiryScript {
    std::function<std::vector<uint8_t>(uint8_t code, int n)> answer;
    std::map<uint8_t, int> inquiries;
};

class JsonImageCamera : public fake::FakeCameraTest {
protected:
    void SetUp() override {
        camera.answer = [this](const fake::Bytes& packet) -> std::optional<fake::Bytes> {
            if (packet.size() < 4 || packet[1] != 0x09) return fake::Bytes{};
            const uint8_t code = packet[3];
            fake::Bytes reply = script.answer(code, script.inquiries[code]++);
            if (reply.empty()) return std::nullopt;
            return reply;
        };
    }
    InquiryScript script;
    fake::FakeClock clock;
    fake::ClockInstalled installed_clock{clock};
};

}  // namespace

TEST_F(JsonImageCamera, DecodingTablesAnswerWordsOrFalse) {
    // WB 3 (one push) and 5 both read "manual"; 7 has no word. Sensitivity
    // starts at 1; exposure 4 is the last mode.
    const std::map<uint8_t, uint8_t> readings{{0x35, 3}, {0x58, 0}, {0x39, 4}, {0x28, 4}, {0x38, 2}};
    script.answer = [&](uint8_t code, int) {
        const auto at = readings.find(code);
        return at != readings.end() ? std::vector<uint8_t>{at->second, 0xFF} : std::vector<uint8_t>{};
    };
    EXPECT_EQ(get_image("\"WB_mode\":true,\"focus_sensitivity\":true,\"exposure_mode\":true,"
                        "\"focus_distance\":true,\"focus_mode\":true"),
              "{\"image\":{\"WB_mode\":\"manual\",\"focus_sensitivity\":false,"
              "\"exposure_mode\":\"brightness priority\",\"focus_distance\":\"10m\","
              "\"focus_mode\":false},\"status\":false}");
    script.answer = [](uint8_t code, int) {
        return std::vector<uint8_t>{static_cast<uint8_t>(code == 0x35 ? 5 : 7), 0xFF};
    };
    EXPECT_EQ(get_image("\"WB_mode\":true"), "{\"image\":{\"WB_mode\":\"manual\"},\"status\":true}");
    EXPECT_EQ(get_image("\"wb_MODE\":true,\"exposure_mode\":true"),
              "{\"image\":{\"wb_MODE\":\"manual\",\"exposure_mode\":false},\"status\":false}");
}

TEST_F(JsonImageCamera, PresetStatesAndTheirSectionResult) {
    // Preset queries (81 09 04 3F ..): preset 1 stored, 2 not, 3 answers junk.
    int asked = 0;
    script.answer = [&](uint8_t code, int) -> std::vector<uint8_t> {
        if (code != 0x3F) return {};
        static constexpr uint8_t kStates[] = {1, 0, 9};
        return {kStates[asked++ % 3], 0x90, 0x50, 0, 0, 0, 0xFF};
    };
    // A stored preset answered last sets the section result back to success,
    // although the focus-mode reading before it failed.
    EXPECT_EQ(get_image("\"focus_mode\":true,\"preset\":1"),
              "{\"image\":{\"focus_mode\":false,\"preset\":1},\"status\":true}");
    asked = 1;
    EXPECT_EQ(get_image("\"preset\":2"), "{\"image\":{\"preset\":0},\"status\":true}");
    EXPECT_EQ(get_image("\"preset\":3"), "{\"image\":{\"preset\":false},\"status\":false}");
    asked = 0;
    script.inquiries.clear();
    EXPECT_EQ(get_image("\"preset\":[1,2,3,\"1\",300],\"preset\":\"1\",\"preset\":true"),
              "{\"image\":{\"preset\":[1,0,0,0,0],\"preset\":false},\"status\":false}");
    EXPECT_EQ(script.inquiries[0x3F], 3);  // neither the text nor 300 reached the camera
}

TEST_F(JsonImageCamera, OnePushWhiteBalanceWaitsAtMost101Polls) {
    // The camera never leaves one-push: 101 polls, then the read-back.
    script.answer = [](uint8_t code, int) {
        return code == 0x35 ? std::vector<uint8_t>{3, 0xFF} : std::vector<uint8_t>{};
    };
    EXPECT_EQ(set_image("\"WB_mode\":\"one push\""), "{\"image\":{\"WB_mode\":\"manual\"},\"status\":true}");
    EXPECT_EQ(script.inquiries[0x35], 102);
    EXPECT_EQ(clock.slept_ms, 100);  // a millisecond between polls
    // Finished after the third poll: the mode then reads back as it now is.
    script.inquiries.clear();
    script.answer = [](uint8_t code, int n) {
        return code == 0x35 ? std::vector<uint8_t>{static_cast<uint8_t>(n < 2 ? 3 : 0), 0xFF}
                            : std::vector<uint8_t>{};
    };
    EXPECT_EQ(set_image("\"WB_mode\":\"ONE PUSH\""), "{\"image\":{\"WB_mode\":\"auto\"},\"status\":true}");
    EXPECT_EQ(script.inquiries[0x35], 4);
    // Other modes are read back once without polling.
    script.inquiries.clear();
    script.answer = [](uint8_t code, int) {
        return code == 0x35 ? std::vector<uint8_t>{2, 0xFF} : std::vector<uint8_t>{};
    };
    EXPECT_EQ(set_image("\"WB_mode\":\"outdoor\""), "{\"image\":{\"WB_mode\":\"outdoor\"},\"status\":true}");
    EXPECT_EQ(script.inquiries[0x35], 1);
}

// Once the camera let one reply time out, the rest of the request fails at
// once; the next request asks it again.
TEST_F(JsonImageCamera, SilentCameraCostsARequestOneTimeOut) {
    script.answer = [](uint8_t, int) { return std::vector<uint8_t>{}; };
    camera.timed_out = true;
    const std::string request = R"({"image":{"zoom":true,"focus":true,"mirror":true,"gain":true}})";
    EXPECT_EQ(json_reply(json_get_ctrl, request),
              R"({"image":{"zoom":false,"focus":false,"mirror":false,"gain":false},"status":false})");
    EXPECT_EQ(camera.sends().size(), 1u);
    camera.timed_out = false;
    script.answer = [](uint8_t, int) { return std::vector<uint8_t>{0x02, 0xFF}; };
    image_ctrl_request_begin();
    EXPECT_EQ(json_reply(json_get_ctrl, R"({"image":{"mirror":true}})"),
              R"({"image":{"mirror":2},"status":true})");
}

// Feature slots: a preset each, their values in the camera's feature file
// below the root; a slot the camera has not stored answers false.
TEST_F(JsonImageCamera, FeatureSlotsStoreAndReadBack) {
    const Scratch dir("feature");
    const fake::RootInstalled root(dir.path());
    fake::FakeShell shell;
    const fake::ShellInstalled installed_shell(shell);
    root.make("/opt/params/feature.ini");  // the camera's folder is there
    script.answer = [](uint8_t code, int) {
        return code == 0x3F ? std::vector<uint8_t>{0x01, 0x50, 0xFF} : std::vector<uint8_t>{};
    };
    EXPECT_EQ(json_reply(json_set_ctrl, R"({"image":{"feature":{"2":{"size":3,"x":100,"y":-20},"9":{}}}})"),
              R"({"image":{"feature":{"2":{"size":3,"x":100,"y":-20},"9":false}},"status":false})");
    EXPECT_EQ(camera.sent().front(), "81 01 04 3f 00 0e 08 ff");  // stored as preset 232
    EXPECT_EQ(json_reply(json_get_ctrl, R"({"image":{"feature":{"2":true,"3":1}}})"),
              R"({"image":{"feature":{"2":{"size":3,"x":100,"y":-20},"3":false}},"status":true})");
    EXPECT_EQ(shell.lines,
              std::vector<std::string>{"ln -s /opt/params/feature /opt/ipnc/www/images/feature"});
}

// The feature position is two 16-bit values in one number (a first of 0 is
// a position like any other), and a stored preset answers true.
TEST_F(JsonImageCamera, FeaturePositionAndPresetStore) {
    script.answer = [](uint8_t code, int) {
        return code == 0x32 ? std::vector<uint8_t>{0x90, 0x50, 0, 0, 0, 0, 0, 1, 2, 3, 0xFF}
                            : std::vector<uint8_t>{};
    };
    EXPECT_EQ(get_image("\"feature_pos\":true"), "{\"image\":{\"feature_pos\":291},\"status\":true}");
    EXPECT_EQ(set_image("\"preset\":{\"add\":3}"), "{\"image\":{\"preset\":true},\"status\":true}");
    EXPECT_EQ(camera.sent().back(), "81 01 04 3f 00 00 03 ff");  // "add" is the camera's action 0
}
