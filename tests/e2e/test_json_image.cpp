// The JSON control API's image section against the simulated camera: reading
// every key, writing each family and reading it back, the mode gates, access
// by key and by login.
#include "e2e/harness.h"

#include <gtest/gtest.h>

namespace {

using namespace e2e;

// The factory access key (admin/admin, 192.168.1.100, 00:1e:c0:12:34:56) is
// 0x85543307: its top bit is set, so only the negative number matches.
constexpr const char* kFactoryKey = "-2058079481";

std::string json_get(const std::string& json) { return body_of(get("func=get" + json)); }
std::string json_set(const std::string& json) { return body_of(get("func=set" + json)); }

// The text after "key":<tab> on the line of a member at `depth` tabs, without
// a trailing comma; "<absent>" when there is no such member.
std::string member(const std::string& body, const std::string& key, int depth = 2) {
    const std::string tag = "\n" + std::string(static_cast<size_t>(depth), '\t') + "\"" + key + "\":\t";
    const size_t at = body.find(tag);
    if (at == std::string::npos) return "<absent>";
    const size_t start = at + tag.size();
    std::string value = body.substr(start, body.find('\n', start) - start);
    if (!value.empty() && value.back() == ',') value.pop_back();
    return value;
}

std::string status(const std::string& body) { return member(body, "status", 1); }

struct Expected {
    const char* key;
    const char* value;
};

}  // namespace

TEST(JsonImageRead, EveryKeyOfTheFactoryCamera) {
    json_set("{\"image\":{\"image_reset\":1}}");
    // Keys whose factory value is known, then keys that only must not fail.
    // clang-format off
    const std::vector<Expected> known{
        {"focus_mode", "\"auto\""}, {"exposure_mode", "\"auto\""}, {"shutter", "11"}, {"iris", "5"},
        {"WB_mode", "\"auto\""}, {"color_temperature", "5000"}, {"digital_zoom_limit", "896"},
        {"DC_iris_support", "1"}, {"ircut", "2"}, {"noise_reduction_2D", "2"}, {"noise_reduction_3D", "2"},
        {"vo_resolution", "\"3840X2160P@30Hz\""}, {"sdi1_resolution", "\"1920X1080P@30Hz\""},
        {"sdi2_resolution", "\"1920X1080P@30Hz\""}, {"sdi1_support", "false"}, {"sdi2_support", "false"},
        {"frame_rate", "30"},
    };
    // clang-format on
    // clang-format off
    const std::vector<std::string> live{
        "focus_area", "focus_distance", "focus_sensitivity", "abs focus", "anti_flicker",
        "exposure_brightness", "gain", "gain_limit", "R_gain", "B_gain", "mirror", "flip", "freeze",
        "backlight_compensation", "gamma", "digital_zoom_enable", "WDR_enable", "WDR_level",
        "brightness", "sharpness", "contrast", "saturation", "DC_iris", "nd_filter",
        "phantom_power_enable", "genlock_status", "genlock_phase", "genlock_phase_step",
        "genlock_vertical", "tally_bright", "fpga_mode", "feature_size", "feature_set",
        "feature_pos", "feature", "digital_zoom", "zoom", "focus", "pan", "tilt",
        "preset zoom speed", "preset move speed", "vo_support",
    };
    // clang-format on
    std::string request = "{\"image\":{";
    for (const Expected& k : known) request += std::string("\"") + k.key + "\":true,";
    for (const std::string& k : live) request += "\"" + k + "\":true,";
    request.back() = '}';
    request += "}";
    const std::string body = json_get(request);
    EXPECT_EQ(status(body), "true") << body;
    for (const Expected& k : known) EXPECT_EQ(member(body, k.key), k.value) << k.key;
    for (const std::string& k : live) {
        EXPECT_NE(member(body, k), "<absent>") << k;
        EXPECT_NE(member(body, k), "false") << k;
    }
}

// A request, the members its answer must hold (key at depth 2, printed
// value), and the overall status. Rows run in order against one camera.
struct Exchange {
    const char* name;
    bool set;
    std::string request;
    std::vector<Expected> members;
    const char* status;
};
const std::vector<Exchange> kExchanges = {
    {"record values and constants",
     false,
     R"({"image":{"digital_zoom":true,"Digital_Zoom_Limit":true,"sdi1_support":true}})",
     {{"digital_zoom", "128"}, {"Digital_Zoom_Limit", "896"}},
     "true"},  // 1024 - the state's 896
    {"an unknown key as an object only answers false",
     false,
     R"({"image":{"bogus":{},"mirror":1}})",
     {{"bogus", "false"}, {"mirror", "false"}},
     "false"},
    {"an unknown object alone", false, R"({"image":{"bogus":{}}})", {}, "true"},
    {"an unknown key with true", false, R"({"image":{"bogus":true}})", {}, "false"},
    {"auto exposure", true, R"({"image":{"exposure_mode":"auto"}})", {{"exposure_mode", "\"auto\""}}, "true"},
    {"gates follow the request's order",
     true,
     R"({"image":{"iris":10,"exposure_mode":"manual"}})",
     {{"iris", "false"}, {"exposure_mode", "\"manual\""}},
     "false"},
    {"manual exposure lets iris and gain through, not the gain limit",
     true,
     R"({"image":{"exposure_mode":"manual","iris":10,"gain":4,"gain_limit":3}})",
     {{"iris", "10"}, {"gain", "4"}, {"gain_limit", "false"}},
     "false"},
    {"shutter and brightness priorities",
     true,
     R"({"image":{"exposure_mode":"shutter priority","shutter":7,"exposure_mode":"brightness priority","exposure_brightness":9}})",
     {{"shutter", "7"}, {"exposure_brightness", "9"}},
     "true"},
    {"manual white balance: gains, no temperature",
     true,
     R"({"image":{"WB_mode":"manual","R_gain":100,"B_gain":90,"color_temperature":6500}})",
     {{"R_gain", "100"}, {"B_gain", "90"}, {"color_temperature", "false"}},
     "false"},
    {"temperature white balance",
     true,
     R"({"image":{"WB_mode":"temperature","color_temperature":6500}})",
     {{"WB_mode", "\"temperature\""}, {"color_temperature", "6500"}},
     "true"},
    {"settings answer what the camera reads back",
     true,
     R"({"image":{"focus_mode":"MANUAL","focus_distance":"3m","focus_sensitivity":"low","mirror":5,"flip":0,)"
     R"("noise_reduction_3D":5,"ircut":1,"WDR_level":3,"vo_resolution":"1920x1080p@60hz",)"
     R"("sdi1_resolution":"3840X2160P@24Hz","preset zoom speed":5,"FRAME_RATE":25,"focus_mode":"shaky"}})",
     {{"focus_distance", "\"3m\""},
      {"focus_sensitivity", "\"low\""},
      {"mirror", "1"},
      {"flip", "0"},
      {"noise_reduction_3D", "5"},
      {"ircut", "1"},
      {"WDR_level", "3"},
      {"vo_resolution", "\"1920X1080P@60Hz\""},
      {"sdi1_resolution", "false"},  // readable, not settable
      {"preset zoom speed", "5"},
      {"FRAME_RATE", "25"}},
     "false"},
    {"one push white balance is reported as manual",
     true,
     R"({"image":{"WB_mode":"one push"}})",
     {{"WB_mode", "\"manual\""}},
     "true"},
};

TEST(JsonImage, Exchanges) {
    for (const Exchange& x : kExchanges) {
        SCOPED_TRACE(x.name);
        const std::string body = x.set ? json_set(x.request) : json_get(x.request);
        for (const Expected& m : x.members) EXPECT_EQ(member(body, m.key), m.value) << m.key;
        EXPECT_EQ(status(body), x.status) << body;
        // The first "focus_mode" takes effect before the refused one.
        if (x.request.find("shaky") != std::string::npos) {
            EXPECT_NE(body.find("\"focus_mode\":\t\"manual\""), std::string::npos) << body;
        }
    }
    json_set("{\"image\":{\"image_reset\":1}}");
}

TEST(JsonImageWrite, SystemServerSettings) {
    Journal syscmd("syscmd.log");
    std::string body = json_set("{\"image\":{\"digital_zoom\":100,\"vo_en\":0}}");
    EXPECT_EQ(member(body, "digital_zoom"), "100");
    EXPECT_EQ(member(body, "vo_en"), "0");
    const std::vector<std::string> lines = syscmd.since();
    EXPECT_EQ(lines, (std::vector<std::string>{"49 9c 03 00 00", "47 00 00 00 00"}));
    EXPECT_EQ(member(json_get("{\"image\":{\"digital_zoom\":true}}"), "digital_zoom"), "100");
    body = json_set("{\"image\":{\"digital_zoom\":128,\"vo_en\":1}}");
    EXPECT_EQ(member(body, "vo_en"), "1");
    EXPECT_EQ(status(body), "true");
}

TEST(JsonImageWrite, ActionsAndPresets) {
    Journal visca("visca.log");
    EXPECT_EQ(member(json_set("{\"image\":{\"zoom\":[0,0]}}"), "zoom"), "true");

    json_set("{\"image\":{\"preset\":{\"del\":3}}}");
    std::string body = json_set("{\"image\":{\"preset\":{\"add\":3,\"del\":300}}}");
    EXPECT_EQ(member(body, "preset"), "false");
    body = json_get("{\"image\":{\"preset\":3}}");
    EXPECT_EQ(member(body, "preset"), "1");
    body = json_get("{\"image\":{\"preset\":[3,4,\"3\"]}}");
    EXPECT_EQ(member(body, "preset"), "[1, 0, 0]");
    body = json_set("{\"image\":{\"preset\":{\"del\":3}}}");
    EXPECT_EQ(member(body, "preset"), "true");
    body = json_get("{\"image\":{\"preset\":3}}");
    EXPECT_EQ(member(body, "preset"), "0");

    visca.mark();
    body = json_set("{\"image\":{\"abs ctrl\":{\"Pan\":4660},\"abs ctrl\":7}}");
    EXPECT_EQ(member(body, "abs ctrl"), "true");
    EXPECT_EQ(status(body), "true");
    bool moved = false;
    // The position inquiry, then the move, which is sent without waiting:
    // give the camera a moment to take it.
    for (const std::string& line : visca.wait_lines(2))
        if (line.rfind("81 01 06 02 18 18 01 02 03 04", 0) == 0) moved = true;
    EXPECT_TRUE(moved);
    body = json_set("{\"image\":{\"abs ctrl\":{\"roll\":1}}}");
    EXPECT_EQ(member(body, "abs ctrl"), "false");
}

TEST(JsonImageAccess, KeyAndLogin) {
    const std::string image = "\"image\":{\"DC_iris_support\":true}";
    std::string body = body_of(post("path=get", std::string("{\"key\":") + kFactoryKey + "," + image + "}"));
    EXPECT_EQ(member(body, "DC_iris_support"), "1");
    EXPECT_EQ(status(body), "true");
    body = body_of(post("path=get", "{\"key\":2236887815," + image + "}"));
    EXPECT_EQ(body, "{\n\t\"key\":\tfalse,\n\t\"image\":\tfalse,\n\t\"status\":\tfalse\n}\n");
    // A correct login grants access to the whole request.
    body = body_of(post("path=get", "{\"system\":{\"login\":\"admin:admin\"}," + image + "}"));
    EXPECT_EQ(member(body, "DC_iris_support"), "1");
    // The login is found like any section and member name, without regard to case.
    body = body_of(post("path=get", "{\"SYSTEM\":{\"Login\":\"admin:admin\"}," + image + "}"));
    EXPECT_EQ(member(body, "DC_iris_support"), "1");
    body = body_of(post("path=get", "{\"system\":{\"login\":\"admin:admin:\"}," + image + "}"));
    EXPECT_EQ(member(body, "image", 1), "false");
    // A set made by POST needs the key just the same.
    body = body_of(post("path=set", "{\"image\":{\"mirror\":0}}"));
    EXPECT_EQ(body, "{\n\t\"image\":\tfalse,\n\t\"status\":\tfalse\n}\n");
    body = body_of(post("path=set", std::string("{\"key\":") + kFactoryKey + ",\"image\":{\"mirror\":0}}"));
    EXPECT_EQ(member(body, "mirror"), "0");
}
