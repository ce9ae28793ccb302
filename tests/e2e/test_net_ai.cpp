// The auto-tracking ("ai") section and the network identity behind the access
// key, against the simulated camera: a write's round trip through the
// tracking area, and the key from the stored address and MAC.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

namespace {

using namespace e2e;
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

}  // namespace

// One round trip through the camera's tracking process: the written values
// come back from the area it keeps, the limit from the camera.
TEST(AiSection, RoundTripThroughTheTrackingArea) {
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
    EXPECT_EQ(json_set(R"({"ai":{"switchTime":37,"bodyRatio":171,"PTLimit":6}})"),
              ai_reply(with(kBaseline, {{5, 37}, {4, 171}, {10, 6}})));
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
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
