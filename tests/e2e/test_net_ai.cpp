// The auto-tracking ("ai") section and the network identity behind the access
// key, against the simulated camera: the packets each write sends, the exact
// replies, the camera's silence, the get dispatcher's refusal of "ai" and the
// tracking lock on manual pan-tilt.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

namespace {

using namespace e2e;
using Lines = std::vector<std::string>;
using AiValues = std::array<int, 11>;

std::string json_set(const std::string& json) { return compact("func=set" + json); }

// The whole answer of a successful "ai" write: the area's values in answer
// order, then the pan-tilt limit.
std::string ai_reply(const AiValues& v) {
    static constexpr const char* kKeys[] = {"enable",    "mode",       "peoplePos",     "peopleRation",
                                            "bodyRatio", "switchTime", "boardDetectEn", "highLightTarget",
                                            "zoomLock",  "tiltLock",   "PTLimit"};
    std::string body = "{\"ai\":{";
    for (size_t i = 0; i < v.size(); ++i)
        body += (i ? ",\"" : "\"") + std::string(kKeys[i]) + "\":" + std::to_string(v[i]);
    return body + "},\"status\":true}";
}
const std::string kAiFailed = "{\"ai\":false,\"status\":false}";

// A known state of the area and the limit; every test starts from it.
const AiValues kBaseline{0, 2, 1, 0x25, 0x18, 5, 1, 0, 1, 0, 3};
std::string set_baseline() {
    return json_set(
        R"({"ai":{"enable":0,"mode":2,"peoplePos":1,"peopleRation":37,"bodyRatio":24,)"
        R"("switchTime":5,"boardDetectEn":1,"highLightTarget":0,"zoomLock":1,"tiltLock":0,"PTLimit":3}})");
}
AiValues with(AiValues v, std::initializer_list<std::pair<size_t, int>> changes) {
    for (auto [i, value] : changes) v[i] = value;
    return v;
}

// The packets sent since the mark, once a request that sends exactly one
// inquiry has been answered (everything sent before it is then journalled).
Lines packets_before_fence(Journal& journal) {
    get(R"(func=get{"image":{"mirror":true}})");
    Lines lines = journal.since();
    journal.mark();
    EXPECT_FALSE(lines.empty());
    if (lines.empty()) return lines;
    EXPECT_EQ(lines.back().rfind("81 09 04 ", 0), 0u) << lines.back();
    lines.pop_back();
    return lines;
}

// One write: the request, the packets it sends (in order) and its reply.
struct AiCase {
    const char* request;
    Lines packets;
    std::string reply;
};

}  // namespace

TEST(AiSection, WritesSendTheirPacketsAndAnswerTheArea) {
    const AiCase cases[] = {
        {R"({"enable":1,"peopleChange":"left"})",
         {"81 01 04 c8 01 ff", "81 01 04 ca 03 ff", "81 09 04 d7 ff"},
         ai_reply(with(kBaseline, {{0, 1}}))},
        // values split into two nibbles; the other side of the people change
        {R"({"switchTime":37,"bodyRatio":171,"peopleChange":"right","enable":0})",
         {"81 01 04 cd 02 05 ff", "81 01 04 cc 01 0a 0b ff", "81 01 04 ca 02 ff", "81 01 04 c8 00 ff",
          "81 09 04 d7 ff"},
         ai_reply(with(kBaseline, {{5, 37}, {4, 171}}))},
        {R"({"framingOnePush":true,"PTLimit":6})",
         {"81 01 04 c8 02 01 ff", "81 01 04 d7 06 ff", "81 09 04 d7 ff"},
         ai_reply(with(kBaseline, {{5, 37}, {4, 171}, {10, 6}}))},
        {"{}", {"81 09 04 d7 ff"}, ai_reply(with(kBaseline, {{5, 37}, {4, 171}, {10, 6}}))},
        // a bad member fails the section after the others were sent, with no
        // inquiry for an answer
        {R"({"zoomLock":0,"peopleChange":"up","highLightTarget":1})",
         {"81 01 04 d6 00 00 ff", "81 01 04 cf 01 ff"},
         kAiFailed},
        // wrong types and unknown keys are not sent at all
        {R"({"enable":"1","framingOnePush":1,"peopleChange":3,"zoom":1})", {}, kAiFailed},
        {"true", {}, kAiFailed},
        // what was sent stays applied
        {"{}", {"81 09 04 d7 ff"}, ai_reply(with(kBaseline, {{5, 37}, {4, 171}, {10, 6}, {8, 0}, {7, 1}}))},
    };
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
    Journal visca("visca.log");
    for (const AiCase& c : cases) {
        SCOPED_TRACE(c.request);
        EXPECT_EQ(json_set(std::string("{\"ai\":") + c.request + "}"), c.reply);
        EXPECT_EQ(packets_before_fence(visca), c.packets);
    }
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
}

TEST(AiSection, SilentCameraAnswersThePanTiltLimitMinusOne) {
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
    fault_set("camsim.ctl", "silent");
    // The limit goes out without waiting; its inquiry then times out.
    EXPECT_EQ(json_set(R"({"ai":{"PTLimit":9}})"), ai_reply(with(kBaseline, {{10, -1}})));
    fault_set("camsim.ctl", "");
    EXPECT_EQ(json_set(R"({"ai":{}})"), ai_reply(kBaseline));  // the silent camera acted on nothing
}

TEST(AiSection, GetIsNotServed) {
    Journal visca("visca.log");
    EXPECT_EQ(body_of(get(R"(func=get{"ai":true})")), "{\n\t\"status\":\tfalse\n}\n");
    EXPECT_EQ(compact(R"(func=get{"AI":{"enable":true},"image":{"DC_iris_support":true}})"),
              R"({"image":{"DC_iris_support":1},"status":false})");
    EXPECT_TRUE(packets_before_fence(visca).empty());
}

TEST(AiSection, TrackingLocksManualPanTilt) {
    struct Step {
        const char* tracking;  // the "ai" write before, or nullptr
        const char* request;
        const char* answers;  // the "ptz" answers, comma separated
        Lines packets;
    };
    const Step steps[] = {
        {R"({"enable":1,"tiltLock":0})", R"("ptz":[3,5],"ptz":[1,5],"ptz":[0,5])", "-1,-1,-1", {}},
        {R"({"tiltLock":1})",
         R"("ptz":[3,5],"ptz":[1,5],"ptz":[0,5],"ptz":"up")",
         "-1,true,true,-1",
         {"81 01 06 01 05 05 03 01 ff", "81 01 06 01 05 05 03 03 ff"}},
        {R"({"enable":0,"tiltLock":0})",
         R"("ptz":[3,5],"ptz":[0,5])",
         "true,true",
         {"81 01 06 01 05 05 01 03 ff", "81 01 06 01 05 05 03 03 ff"}},
    };
    Journal visca("visca.log");
    for (const Step& s : steps) {
        SCOPED_TRACE(s.request);
        ASSERT_NE(json_set(std::string("{\"ai\":") + s.tracking + "}").find("\"status\":true"),
                  std::string::npos);
        visca.mark();
        std::string want = "{\"image\":{";
        for (std::string_view a = s.answers; !a.empty();) {
            const size_t comma = a.find(',');
            want += "\"ptz\":" + std::string(a.substr(0, comma)) + (comma == a.npos ? "" : ",");
            a = comma == a.npos ? std::string_view() : a.substr(comma + 1);
        }
        EXPECT_EQ(json_set(std::string("{\"image\":{") + s.request + "}}"), want + "},\"status\":true}");
        EXPECT_EQ(packets_before_fence(visca), s.packets);
    }
    EXPECT_EQ(json_set(R"({"image":{"ptz":[0]}})"), R"({"image":{"ptz":false},"status":false})");
}

// The access key of a user, password, dotted address and MAC: the bytes of
// the three texts summed into four bytes by position, the MAC added on top.
int32_t access_key(const std::string& dotted, const std::array<uint8_t, 6>& mac) {
    std::array<uint8_t, 4> k{};
    const std::string text = "adminadmin" + dotted;
    for (size_t i = 0; i < text.size(); ++i) k[i % 4] = static_cast<uint8_t>(k[i % 4] + text[i]);
    for (size_t i = 0; i < 6; ++i) k[i % 4] = static_cast<uint8_t>(k[i % 4] + mac[i]);
    return static_cast<int32_t>(k[0] | (uint32_t{k[1]} << 8) | (uint32_t{k[2]} << 16) |
                                (uint32_t{k[3]} << 24));
}

TEST(NetIdentity, AccessKeyFollowsTheStoredAddressAndMac) {
    const auto accepted = [](int32_t key) {
        return body_of(post("path=get",
                            "{\"key\":" + std::to_string(key) + ",\"image\":{\"DC_iris_support\":true}}"))
                   .find("\"DC_iris_support\":\t1") != std::string::npos;
    };
    // DHCP is off in the factory record: the stored static address counts,
    // not the interface's own MAC, nor another address.
    EXPECT_TRUE(accepted(access_key("192.168.1.100", {0x00, 0x1e, 0xc0, 0x12, 0x34, 0x56})));
    EXPECT_FALSE(accepted(access_key("192.168.1.100", {0x02, 0x00, 0xc0, 0xa8, 0x01, 0x64})));
    EXPECT_FALSE(accepted(access_key("192.168.1.101", {0x00, 0x1e, 0xc0, 0x12, 0x34, 0x56})));
}
