// The ethernet, video encoder and stream output sections on the simulated
// camera: a new static address is read back live from eth0, the encoder's
// codec switches round trip, the pushes and multicast blocks are stored.
#include "e2e/harness.h"

#include <gtest/gtest.h>

namespace {

using namespace e2e;

// The camera's address is put back whatever the test did: the other tests
// read links built from it.
class EthernetE2E : public ::testing::Test {
protected:
    void TearDown() override {
        compact(R"(func=set{"ethernet":{"eth0":{"ip":"192.168.1.100","gateway":"192.168.1.1"}}})");
    }
};

TEST_F(EthernetE2E, StaticAddressReadBackLive) {
    Journal visca("visca.log");
    Journal syscmd("syscmd.log");
    EXPECT_EQ(compact(R"(func=set{"ethernet":{"eth0":{"ip":"192.168.1.50","gateway":"192.168.1.254"}}})"),
              R"({"ethernet":{"eth0":{"ip":"192.168.1.50","gateway":"192.168.1.254"}},"status":true})");
    EXPECT_TRUE(has_line(visca.wait_lines(1), "81 01 08 ab 0c 00 0a 08 00 01 03 02 ff"));
    EXPECT_EQ(syscmd.since(), (std::vector<std::string>{"0 c0 a8 01 32", "2 c0 a8 01 fe"}));
    EXPECT_EQ(
        compact(R"(func=get{"ethernet":{"eth0":{"ip":true,"gateway":true,"netmask":true}}})"),
        R"({"ethernet":{"eth0":{"ip":"192.168.1.50","gateway":"192.168.1.254","netmask":"255.255.255.0"}},"status":true})");
}

TEST_F(EthernetE2E, PortClashRefused) {
    Journal syscmd("syscmd.log");
    EXPECT_EQ(compact(R"(func=set{"ethernet":{"eth0":{"webPort":554}}})"),
              R"({"ethernet":{"eth0":false},"status":false})");
    EXPECT_EQ(compact(R"(func=set{"ethernet":{"eth0":{"onvifPort":80}}})"),
              R"({"ethernet":{"eth0":{"onvifPort":80}},"status":true})");
    compact(R"(func=set{"ethernet":{"eth0":{"onvifPort":2000}}})");
    EXPECT_EQ(syscmd.since(), (std::vector<std::string>{"12 50 00", "12 d0 07"}));
}

TEST(StreamsE2E, CodecSwitchRoundTrip) {
    const std::string before =
        compact(R"(func=get{"venc":{"main":{"mode":true,"bitrate":true,"interval":true}}})");
    EXPECT_EQ(before, R"({"venc":{"main":{"mode":"h264","bitrate":16384,"interval":30}},"status":true})");
    const std::string h265 = compact(R"(func=set{"venc":{"main":{"mode":"h265","bitrate":12000}}})");
    EXPECT_NE(h265.find(R"("mode":"h265","col":3840,"line":2160,"profile":"MP","bitrate":12000)"),
              std::string::npos)
        << h265;
    compact(R"(func=set{"venc":{"main":{"mode":"h264"}}})");
    EXPECT_EQ(compact(R"(func=get{"venc":{"main":{"mode":true,"bitrate":true,"interval":true}}})"), before);
    EXPECT_EQ(compact(R"(func=get{"venc":{"main":{"mode":"h265"}}})"),
              R"({"venc":{"main":{"mode":false}},"status":true})");
}

TEST(StreamsE2E, PushAndMulticastRoundTrips) {
    EXPECT_EQ(compact(R"(func=set{"rtmp":{"sub":{"url":"rtmp://10.0.0.9/live/s","enable":1}}})"),
              R"({"rtmp":{"sub":{"enable":1,"url":"rtmp://10.0.0.9/live/s","status":1}},"status":true})");
    compact(R"(func=set{"rtmp":{"sub":{"enable":0}}})");
    EXPECT_EQ(compact(R"(func=get{"rtmp":{"sub":true}})"),
              R"({"rtmp":{"sub":{"enable":0,"url":"rtmp://10.0.0.9/live/s","status":0}},"status":true})");
    EXPECT_EQ(
        compact(R"(func=set{"rtp multicast":{"sub":{"ip":"239.9.9.9","port":6000}}})"),
        R"({"rtp multicast":{"sub":{"enable":0,"ip":"239.9.9.9","port":6000,)"
        R"("rtsp":"rtsp://192.168.1.100:8554/multicast/sub","rtp":"rtp://239.9.9.9:6000"}},"status":true})");
}

}  // namespace
