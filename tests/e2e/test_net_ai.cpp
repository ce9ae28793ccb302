// The auto-tracking ("ai") section and the network identity behind the access
// key, against the simulated camera: the packets each write sends (run/
// visca.log), the exact replies, the camera's silence, the get dispatcher's
// refusal of "ai", the tracking lock on manual pan-tilt, and the network
// facts the interface library reads inside the sandbox.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace e2e;

constexpr std::string_view kJsonHeader = "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n";

std::string json_set(const std::string& json) { return body_of(get("func=set" + json)); }
std::string json_get(const std::string& json) { return body_of(get("func=get" + json)); }

// The area's values in answer order, then the pan-tilt limit.
struct AiValues {
    int enable, mode, peoplePos, peopleRation, bodyRatio, switchTime, boardDetectEn,
        highLightTarget, zoomLock, tiltLock, PTLimit;
};

// The whole body of a successful "ai" write, as the dispatcher prints it.
std::string ai_reply(const AiValues& v) {
    const std::array<std::pair<const char*, int>, 11> members{{
        {"enable", v.enable},
        {"mode", v.mode},
        {"peoplePos", v.peoplePos},
        {"peopleRation", v.peopleRation},
        {"bodyRatio", v.bodyRatio},
        {"switchTime", v.switchTime},
        {"boardDetectEn", v.boardDetectEn},
        {"highLightTarget", v.highLightTarget},
        {"zoomLock", v.zoomLock},
        {"tiltLock", v.tiltLock},
        {"PTLimit", v.PTLimit},
    }};
    std::string body = "{\n\t\"ai\":\t{\n";
    for (size_t i = 0; i < members.size(); ++i) {
        body += std::string("\t\t\"") + members[i].first + "\":\t" + std::to_string(members[i].second);
        body += i + 1 < members.size() ? ",\n" : "\n";
    }
    return body + "\t},\n\t\"status\":\ttrue\n}\n";
}

const std::string kAiFailed = "{\n\t\"ai\":\tfalse,\n\t\"status\":\tfalse\n}\n";

// A known state of the tracking area and the pan-tilt limit, written as one
// request; the tests below start from it.
const AiValues kBaseline{0, 2, 1, 0x25, 0x18, 5, 1, 0, 1, 0, 3};
std::string set_baseline() {
    return json_set("{\"ai\":{\"enable\":0,\"mode\":2,\"peoplePos\":1,\"peopleRation\":37,"
                    "\"bodyRatio\":24,\"switchTime\":5,\"boardDetectEn\":1,\"highLightTarget\":0,"
                    "\"zoomLock\":1,\"tiltLock\":0,\"PTLimit\":3}}");
}

// The packets journalled since `journal` was marked, once a request that
// sends exactly one inquiry has been answered: every packet sent before it
// is then in the journal. The fence's own line is checked and removed.
std::vector<std::string> packets_before_fence(const Journal& journal) {
    json_get("{\"image\":{\"mirror\":true}}");
    std::vector<std::string> lines = journal.since();
    EXPECT_FALSE(lines.empty());
    if (lines.empty()) return lines;
    EXPECT_EQ(lines.back().rfind("81 09 04 ", 0), 0u) << lines.back();
    lines.pop_back();
    return lines;
}

// Clears the camera's fault switches when the test ends, however it ends.
struct CameraFaults {
    explicit CameraFaults(const char* text) { fault_set("camsim.ctl", text); }
    ~CameraFaults() { fault_set("camsim.ctl", ""); }
    CameraFaults(const CameraFaults&) = delete;
    CameraFaults& operator=(const CameraFaults&) = delete;
};

// Tracking on for the length of a test; off again afterwards, since all
// tests share the one camera.
struct TrackingOn {
    explicit TrackingOn(int tilt_lock) {
        ok = json_set("{\"ai\":{\"enable\":1,\"tiltLock\":" + std::to_string(tilt_lock) + "}}")
                 .find("\"status\":\ttrue") != std::string::npos;
    }
    ~TrackingOn() { json_set("{\"ai\":{\"enable\":0,\"tiltLock\":0}}"); }
    TrackingOn(const TrackingOn&) = delete;
    TrackingOn& operator=(const TrackingOn&) = delete;
    bool ok = false;
};

}  // namespace

TEST(AiSection, WriteSendsEachMemberAndAnswersTheArea) {
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));

    Journal visca("visca.log");
    visca.mark();
    const std::string reply = get("func=set{\"ai\":{\"enable\":1,\"peopleChange\":\"left\"}}");
    const auto lines = visca.wait_lines(3);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "81 01 04 c8 01 ff");
    EXPECT_EQ(lines[1], "81 01 04 ca 03 ff");
    EXPECT_EQ(lines[2], "81 09 04 d7 ff");  // the pan-tilt limit for the answer
    AiValues now = kBaseline;
    now.enable = 1;
    EXPECT_EQ(reply, std::string(kJsonHeader) + ai_reply(now));

    // Values split into two nibbles; the other side of the people change.
    visca.mark();
    std::string body = json_set("{\"ai\":{\"switchTime\":37,\"bodyRatio\":171,\"peopleChange\":\"right\","
                                "\"enable\":0}}");
    auto sent = packets_before_fence(visca);
    ASSERT_EQ(sent.size(), 5u);
    EXPECT_EQ(sent[0], "81 01 04 cd 02 05 ff");
    EXPECT_EQ(sent[1], "81 01 04 cc 01 0a 0b ff");
    EXPECT_EQ(sent[2], "81 01 04 ca 02 ff");
    EXPECT_EQ(sent[3], "81 01 04 c8 00 ff");
    EXPECT_EQ(sent[4], "81 09 04 d7 ff");
    now = kBaseline;
    now.switchTime = 37;
    now.bodyRatio = 171;
    EXPECT_EQ(body, ai_reply(now));

    // Framing one push and the limit itself; an empty object only answers.
    visca.mark();
    body = json_set("{\"ai\":{\"framingOnePush\":true,\"PTLimit\":6}}");
    sent = packets_before_fence(visca);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0], "81 01 04 c8 02 01 ff");
    EXPECT_EQ(sent[1], "81 01 04 d7 06 ff");
    now.PTLimit = 6;
    EXPECT_EQ(body, ai_reply(now));
    EXPECT_EQ(json_set("{\"ai\":{}}"), ai_reply(now));
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
}

TEST(AiSection, BadMemberFailsTheSectionAfterTheOthersAreSent) {
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
    Journal visca("visca.log");
    visca.mark();
    EXPECT_EQ(json_set("{\"ai\":{\"zoomLock\":0,\"peopleChange\":\"up\",\"highLightTarget\":1}}"), kAiFailed);
    auto sent = packets_before_fence(visca);
    ASSERT_EQ(sent.size(), 2u);  // no people change, and no inquiry for an answer
    EXPECT_EQ(sent[0], "81 01 04 d6 00 00 ff");
    EXPECT_EQ(sent[1], "81 01 04 cf 01 ff");

    // Wrong types and unknown keys are not sent at all.
    visca.mark();
    EXPECT_EQ(json_set("{\"ai\":{\"enable\":\"1\",\"framingOnePush\":1,\"peopleChange\":3,\"zoom\":1}}"),
              kAiFailed);
    EXPECT_TRUE(packets_before_fence(visca).empty());
    // The section must be an object.
    EXPECT_EQ(json_set("{\"ai\":true}"), kAiFailed);

    // What was sent stays applied.
    AiValues now = kBaseline;
    now.zoomLock = 0;
    now.highLightTarget = 1;
    EXPECT_EQ(json_set("{\"ai\":{}}"), ai_reply(now));
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
}

TEST(AiSection, SilentCameraAnswersThePanTiltLimitMinusOne) {
    ASSERT_EQ(set_baseline(), ai_reply(kBaseline));
    {
        CameraFaults silent("silent");
        // The limit goes out without waiting; its inquiry then times out.
        AiValues now = kBaseline;
        now.PTLimit = -1;
        EXPECT_EQ(json_set("{\"ai\":{\"PTLimit\":9}}"), ai_reply(now));
    }
    // The silent camera acted on nothing.
    EXPECT_EQ(json_set("{\"ai\":{}}"), ai_reply(kBaseline));
}

TEST(AiSection, GetIsNotServed) {
    Journal visca("visca.log");
    visca.mark();
    EXPECT_EQ(get("func=get{\"ai\":true}"), std::string(kJsonHeader) + "{\n\t\"status\":\tfalse\n}\n");
    EXPECT_EQ(json_get("{\"AI\":{\"enable\":true},\"image\":{\"DC_iris_support\":true}}"),
              "{\n\t\"image\":\t{\n\t\t\"DC_iris_support\":\t1\n\t},\n\t\"status\":\tfalse\n}\n");
    EXPECT_TRUE(packets_before_fence(visca).empty());
}

TEST(AiSection, TrackingLocksManualPanTilt) {
    const std::string locked = "{\n\t\"image\":\t{\n\t\t\"ptz\":\t-1\n\t},\n\t\"status\":\ttrue\n}\n";
    const std::string done = "{\n\t\"image\":\t{\n\t\t\"ptz\":\ttrue\n\t},\n\t\"status\":\ttrue\n}\n";
    Journal visca("visca.log");
    {
        TrackingOn tracking(0);
        ASSERT_TRUE(tracking.ok);
        visca.mark();
        EXPECT_EQ(json_set("{\"image\":{\"ptz\":[3,5]}}"), locked);
        EXPECT_EQ(json_set("{\"image\":{\"ptz\":[1,5]}}"), locked);  // no tilt without the lock
        EXPECT_TRUE(packets_before_fence(visca).empty());
    }
    {
        TrackingOn tracking(1);
        ASSERT_TRUE(tracking.ok);
        visca.mark();
        EXPECT_EQ(json_set("{\"image\":{\"ptz\":[3,5]}}"), locked);
        EXPECT_EQ(json_set("{\"image\":{\"ptz\":[1,5]}}"), done);
        EXPECT_EQ(json_set("{\"image\":{\"ptz\":[0,5]}}"), done);
        const auto sent = packets_before_fence(visca);
        ASSERT_EQ(sent.size(), 2u);
        EXPECT_EQ(sent[0], "81 01 06 01 05 05 03 01 ff");
        EXPECT_EQ(sent[1], "81 01 06 01 05 05 03 03 ff");
    }
    // Tracking off again: any action is carried out.
    visca.mark();
    EXPECT_EQ(json_set("{\"image\":{\"ptz\":[3,5],\"ptz\":[0,5]}}"),
              "{\n\t\"image\":\t{\n\t\t\"ptz\":\ttrue,\n\t\t\"ptz\":\ttrue\n\t},\n\t\"status\":\ttrue\n}\n");
    const auto sent = packets_before_fence(visca);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0], "81 01 06 01 05 05 01 03 ff");
    EXPECT_EQ(sent[1], "81 01 06 01 05 05 03 03 ff");
}

// ---- network identity --------------------------------------------------------

namespace {

// The sandbox's first process: it lives in the camera's network and mount
// namespaces, so /proc/<pid>/net and /proc/<pid>/root show the camera's view.
std::string camera_proc() {
    const std::string pid = read_file(run_path("sandbox.pid"));
    return "/proc/" + pid.substr(0, pid.find_first_of(" \n")) + "/";
}

// The access key of a user, password, dotted address and MAC: the bytes of
// the three texts summed into four bytes by position, the MAC added on top.
int32_t access_key(const std::string& user, const std::string& password, const std::string& dotted,
                   const std::array<uint8_t, 6>& mac) {
    std::array<uint8_t, 4> k{};
    const std::string text = user + password + dotted;
    for (size_t i = 0; i < text.size(); ++i) k[i % 4] = static_cast<uint8_t>(k[i % 4] + text[i]);
    k[0] = static_cast<uint8_t>(k[0] + mac[0] + mac[4]);
    k[1] = static_cast<uint8_t>(k[1] + mac[1] + mac[5]);
    k[2] = static_cast<uint8_t>(k[2] + mac[2]);
    k[3] = static_cast<uint8_t>(k[3] + mac[3]);
    return static_cast<int32_t>(k[0] | (uint32_t{k[1]} << 8) | (uint32_t{k[2]} << 16) | (uint32_t{k[3]} << 24));
}

bool key_accepted(int32_t key) {
    const std::string body =
        body_of(post("path=get", "{\"key\":" + std::to_string(key) + ",\"image\":{\"DC_iris_support\":true}}"));
    return body.find("\"DC_iris_support\":\t1") != std::string::npos;
}

}  // namespace

TEST(NetIdentity, AccessKeyFollowsTheStoredAddressAndMac) {
    // DHCP is off in the factory record: the stored static address counts.
    EXPECT_TRUE(key_accepted(access_key("admin", "admin", "192.168.1.100", {0x00, 0x1e, 0xc0, 0x12, 0x34, 0x56})));
    // Not the interface's own MAC, nor another address.
    EXPECT_FALSE(key_accepted(access_key("admin", "admin", "192.168.1.100", {0x02, 0x00, 0xc0, 0xa8, 0x01, 0x64})));
    EXPECT_FALSE(key_accepted(access_key("admin", "admin", "192.168.1.101", {0x00, 0x1e, 0xc0, 0x12, 0x34, 0x56})));
}

TEST(NetIdentity, CameraNetworkAsTheInterfaceLibraryReadsIt) {
    const std::string proc = camera_proc();
    // Default gateway: the first route line with the up and gateway flags,
    // fields separated by tabs.
    std::istringstream routes(read_file(proc + "net/route"));
    std::string line;
    ASSERT_TRUE(std::getline(routes, line));  // header
    unsigned long gateway = 0;
    while (std::getline(routes, line)) {
        char iface[64];
        unsigned long dest = 0, gw = 0;
        unsigned int flags = 0;
        if (std::sscanf(line.c_str(), "%63s\t%08lX\t%08lX\t%8X\t", iface, &dest, &gw, &flags) == 4 &&
            (flags & 3) == 3) {
            gateway = gw;
            break;
        }
    }
    EXPECT_EQ(gateway, 0x0101A8C0ul);  // 192.168.1.1 in network byte order

    // First name server of the camera's resolv.conf.
    const std::string resolv = read_file(proc + "root/etc/resolv.conf");
    const size_t at = resolv.find("nameserver ");
    ASSERT_NE(at, std::string::npos) << resolv;
    EXPECT_EQ(resolv.substr(at + 11, resolv.find('\n', at) - at - 11), "192.168.1.1");

    // Link state: eth0 is listed in the device table and its carrier is up.
    EXPECT_NE(read_file(proc + "net/dev").find("eth0:"), std::string::npos);
    EXPECT_EQ(read_file(proc + "root/sys/class/net/eth0/carrier"), "1\n");
    EXPECT_EQ(read_file(proc + "root/sys/class/net/eth0/address"), "02:00:c0:a8:01:64\n");
}
