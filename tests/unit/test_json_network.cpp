// The ethernet, video encoder and stream output sections against the fake
// system server, which plays the server's part for each command so that the
// answer after a write shows what the command carried. The unit tests run in
// a network of their own without "eth0": live addresses read 0.0.0.0.
#include <arpa/inet.h>

#include "json/json_venc.h"
#include "section_cases.h"

namespace {

uint32_t ip(const char* dotted) { return inet_addr(dotted); }

class JsonNetwork : public fake::SectionTest {
protected:
    void SetUp() override {
        SysInfo& si = sys.info();
        si.ip = ip("192.168.1.100");
        si.netmask = ip("255.255.255.0");
        si.gateway = ip("192.168.1.1");
        si.dns = ip("192.168.1.1");
        const uint8_t mac[6] = {0x02, 0, 0xc0, 0xa8, 1, 0x64};
        std::memcpy(si.mac, mac, 6);
        si.httpPort = 80, si.webPort = 8080, si.rtspPort = 554, si.rtmpPort = 1935;
        si.viscaPort = 1259, si.onvifPort = 2000, si.controlHubPort = 8000, si.ssdp = 1;
        const uint32_t main[13] = {0, 1, 1920, 1080, 30, 0, 1, 2, 85, 0, 0, 0, 0};  // mjpeg
        const uint32_t sub[13] = {1, 1, 640, 360, 30, 0, 2, 0, 30, 1024, 0, 0, 0};  // h265
        std::memcpy(si.stream[0].word, main, sizeof main);
        std::memcpy(si.stream[1].word, sub, sizeof sub);
        si.mcastMain = {1, ip("239.1.1.1"), 5000};
        sys.state().lastAnnouncedAddr = si.ip;
        sys.state().rtmp[0].enable = 1;
        std::strcpy(sys.state().rtmp[0].url, "rtmp://a/b");
        sys.state().previewSub = 7;
        sys.on_command = [](const fake::Command& c, SysStore& store) {
            auto* info = reinterpret_cast<uint8_t*>(&store.info);
            struct Landing {
                uint32_t id;
                size_t offset, width;
            };
            static constexpr Landing kLandings[] = {
                {0, offsetof(SysInfo, ip), 4},        {2, offsetof(SysInfo, gateway), 4},
                {3, offsetof(SysInfo, netmask), 4},   {4, offsetof(SysInfo, dns), 4},
                {5, offsetof(SysInfo, dhcp), 1},      {6, offsetof(SysInfo, rtspPort), 2},
                {8, offsetof(SysInfo, webPort), 2},   {9, offsetof(SysInfo, rtmpPort), 2},
                {10, offsetof(SysInfo, httpPort), 2}, {11, offsetof(SysInfo, viscaPort), 2},
                {14, offsetof(SysInfo, ssdp), 1},     {15, offsetof(SysInfo, mcastMain), 12},
            };
            for (const Landing& l : kLandings)
                if (l.id == c.id) std::memcpy(info + l.offset, c.data.data(), l.width);
            if (c.id == 35) std::memcpy(&store.info.stream[c.data[0]], c.data.data(), sizeof(StreamParams));
            if (c.id == 39) store.state.rtmp[0].enable = c.data[0];
        };
    }
};

const std::string kEth0Whole =
    R"({"ethernet":{"eth0":{"dhcp":0,"ip":"0.0.0.0","netmask":"0.0.0.0","gateway":"0.0.0.0","dns":"0.0.0.0",)"
    R"("mac":"02:00:c0:a8:01:64","httpPort":80,"webPort":8080,"rtspPort":554,"rtsp encrypt":0,"rtmpPort":1935,)"
    R"("viscaPort":1259,"onvifPort":2000,"controlHubPort":8000,"ssdp":1}},"status":true})";
const std::string kMainAfterSwitch =
    R"("enable":1,"format":"1920X1080P@30Hz","mode":"h264","col":1920,"line":1080,"profile":"MP","bitrate":5184,)"
    R"("frmrate":30,"rcmode":"cbr","interval":30,)";
const std::string kMainUrls =
    R"("rtspUrl":"rtsp://0.0.0.0:554/stream/main","rtmpUrl":"rtmp://0.0.0.0:1935/app/rtmpstream0",)"
    R"("httpFlvUrl":"http://0.0.0.0:8080/app/rtmpstream0.flv","webRtcUrl":"ws://0.0.0.0:9000/main","preview":"webRTC")";

// clang-format off
const std::vector<fake::SectionCase> kCases = {
    // ethernet
    {"eth0 whole, addresses read live", false, R"({"ethernet":{"eth0":true}})", kEth0Whole, {}, {}},
    {"eth0 keyed, a member not true answers false alone", false, R"({"ethernet":{"eth0":{"MAC":true,"ssdp":1}}})",
     R"({"ethernet":{"eth0":{"MAC":"02:00:c0:a8:01:64","ssdp":false}},"status":true})", {}, {}},
    {"another interface", false, R"({"ethernet":{"eth1":true}})", R"({"ethernet":{"eth1":false},"status":false})", {}, {}},
    {"unchanged values send nothing", true, R"({"ethernet":{"eth0":{"ip":"192.168.1.100","httpPort":80,"bogus":1}}})",
     R"({"ethernet":{"eth0":{"ip":"192.168.1.100","httpPort":80,"bogus":false}},"status":true})", {}, {}},
    {"static address, gateway and name server in order", true,
     R"({"ethernet":{"eth0":{"gateway":"192.168.1.254","ip":"192.168.1.50"}}})",
     R"({"ethernet":{"eth0":{"gateway":"192.168.1.254","ip":"192.168.1.50"}},"status":true})",
     {"0 c0 a8 01 32", "2 c0 a8 01 fe"}, {}},
    {"web port 80", true, R"({"ethernet":{"eth0":{"webPort":80}}})", R"({"ethernet":{"eth0":false},"status":false})", {}, {}},
    {"only the HTTP port may be 80", true, R"({"ethernet":{"eth0":{"httpPort":81,"rtspPort":80}}})",
     R"({"ethernet":{"eth0":false},"status":false})", {}, {}},
    {"two equal ports", true, R"({"ethernet":{"eth0":{"rtspPort":8080}}})",
     R"({"ethernet":{"eth0":false},"status":false})", {}, {}},
    {"dhcp sends no addressing", true, R"({"ethernet":{"eth0":{"dhcp":1,"ip":"10.0.0.0"}}})",
     R"({"ethernet":{"eth0":{"dhcp":1,"ip":"192.168.1.100"}},"status":true})", {"5 01 00 00 00"}, {}},
    {"class A host part zero", true, R"({"ethernet":{"eth0":{"ip":"10.0.0.0","gateway":"10.0.0.1"}}})",
     R"({"ethernet":{"eth0":false},"status":false})", {}, {}},
    {"class B gateway host part all ones", true, R"({"ethernet":{"eth0":{"ip":"172.16.0.5","gateway":"172.16.255.255"}}})",
     R"({"ethernet":{"eth0":false},"status":false})", {}, {}},
    {"class C gateway ending 0", true, R"({"ethernet":{"eth0":{"gateway":"192.168.1.0"}}})",
     R"({"ethernet":{"eth0":false},"status":false})", {}, {}},
    {"mac text of 21 characters", true, R"({"ethernet":{"eth0":{"mac":"02:00:c0:a8:01:64:000"}}})",
     R"({"ethernet":{"eth0":{"mac":false}},"status":true})", {}, {}},
    {"mac sent as text", true, R"({"ethernet":{"eth0":{"mac":"02:00:00:00:00:01"}}})", "",
     {"1 30 32 3a 30 30 3a 30 30 3a 30 30 3a 30 30 3a 30 31 00"}, {}},
    {"ports and switches in their order", true, R"({"ethernet":{"eth0":{"ssdp":0,"viscaPort":1260,"httpPort":81}}})",
     R"({"ethernet":{"eth0":{"ssdp":0,"viscaPort":1260,"httpPort":81}},"status":true})",
     {"10 51 00", "11 ec 04", "14 00 00 00 00"}, {}},
    {"only eth0 is written", true, R"({"ethernet":{"wlan0":{}}})", R"({"ethernet":{"wlan0":false},"status":false})", {}, {}},

    // venc
    {"h265 reports MP, interval from its word", false,
     R"({"venc":{"sub":{"profile":true,"interval":true,"bitrate":true,"min_qp":true,"preview":true}}})",
     R"({"venc":{"sub":{"profile":"MP","interval":30,"bitrate":1024,"min_qp":false,"preview":"httpflv"}},"status":true})", {}, {}},
    {"mjpeg has no profile and interval 0", false, R"({"venc":{"main":{"profile":true,"interval":true,"rcmode":true}}})",
     R"({"venc":{"main":{"profile":false,"interval":0,"rcmode":false}},"status":true})", {}, {}},
    {"the encoders' abilities", false,
     R"({"VencAbility":{"main":{"resolution":true,"bitrate":true,"frmrate":true,"interval":true},"sub":{"resolution":true,"bitrate":true}}})",
     R"({"VencAbility":{"main":{"resolution":[3840,2160,1920,1080,1280,720,1024,576],"bitrate":[512,32768],"frmrate":[15,60],)"
     R"("interval":[1,120]},"sub":{"resolution":[720,480,640,480,640,360],"bitrate":[512,5120]}},"status":true})", {}, {}},
    {"unknown stream", false, R"({"venc":{"third":true}})", R"({"venc":{"third":false},"status":false})", {}, {}},
    {"mjpeg to h264", true, R"({"venc":{"main":{"mode":"h264"}}})",
     R"({"venc":{"main":{)" + kMainAfterSwitch + kMainUrls + R"(}},"status":true})",
     {"35 00 00 00 00 01 00 00 00 80 07 00 00 38 04 00 00 1e 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 "
      "1e 00 00 00 40 14 00 00"}, {}},
    {"h264 going variable gets its quantiser range", true, R"({"venc":{"main":{"mode":"h264","rcmode":"vbr"}}})",
     "", {"35 00 00 00 00 01 00 00 00 80 07 00 00 38 04 00 00 1e 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 01 00 00 00 "
      "1e 00 00 00 40 14 00 00 08 00 00 00 2d 00 00 00"}, {}},
    {"a format by name, key frames", true, R"({"venc":{"main":{"format":"1280X720P@59.94Hz","Iframe":2,"x":1}}})", "",
     {"35 00 00 00 00 01 00 00 00 00 05 00 00 d0 02 00 00 3c 00 00 00 01", "36 00 00 00 00", "36 00 00 00 00"}, {}},
    {"a format without a name", true, R"({"venc":{"main":{"format":"1280X720P@24Hz"}}})", "",
     {"35 00 00 00 00 01 00 00 00 80 07 00 00 38 04 00 00 1e 00 00 00 00"}, {}},
    {"a bit rate beyond 2^31 goes as it is", true, R"({"venc":{"sub":{"bitrate":3000000000}}})", "",
     {"35 01 00 00 00 01 00 00 00 80 02 00 00 68 01 00 00 1e 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 1e 00 00 00 "
      "00 5e d0 b2"}, {}},
    {"a bit rate beyond 32 bits is refused", true, R"({"venc":{"sub":{"bitrate":4294967296}}})", "",
     {"35 01 00 00 00 01 00 00 00 80 02 00 00 68 01 00 00 1e 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 1e 00 00 00 "
      "00 04 00 00"}, {}},
    {"a large picture's bit rate is computed whole", true,
     R"({"venc":{"main":{"col":65536,"line":65536,"mode":"h264"}}})", "",
     {"35 00 00 00 00 01 00 00 00 00 00 01 00 00 00 01 00 1e 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 "
      "1e 00 00 00 0a d7 a3 00"}, {}},
    {"a switch whose bit rate would not fit is refused", true,
     R"({"venc":{"main":{"col":4294967295,"line":65536,"Mode":"h264"}}})",
     R"({"venc":{"main":{"enable":1,"format":"Unknow Format","mode":"mjpeg","col":4294967295,"line":65536,"bitrate":0,)"
     R"("frmrate":30,"interval":0,)" + kMainUrls + R"(,"Mode":false}},"status":true})",
     {"35 00 00 00 00 01 00 00 00 ff ff ff ff 00 00 01 00 1e 00 00 00 00 00 00 00 01 00 00 00 02 00 00 00 55 00 00 00 "
      "00 00 00 00"}, {}},
    {"venc write of a stream not an object", true, R"({"venc":{"main":true}})",
     R"({"venc":{"main":false},"status":false})", {}, {}},

    // rtmp
    {"rtmp first member refused: sent, but false", true, R"({"rtmp":{"main":{"x":1,"enable":0}}})",
     R"({"rtmp":{"main":false},"status":false})", {"39 00 00 00 00"}, {}},
    {"rtmp first member taken: the whole stream", true, R"({"rtmp":{"main":{"enable":0,"x":1}}})",
     R"({"rtmp":{"main":{"enable":0,"url":"rtmp://a/b","status":0}},"status":true})", {"39 00 00 00 00"}, {}},
    {"rtmp url text without its zero", true, R"({"rtmp":{"sub":{"url":"rtmp://c"}}})", "",
     {"38 72 74 6d 70 3a 2f 2f 63"}, {}},
    {"rtmp keyed read skips other keys, status last", false, R"({"rtmp":{"main":{"url":true,"other":true,"enable":2}}})",
     R"({"rtmp":{"main":{"url":"rtmp://a/b","enable":false,"status":0}},"status":true})", {}, {}},
    {"rtmp answers under the request's spelling", false, R"({"RTMP":{"SUB":{"URL":true},"Main":true}})",
     R"({"RTMP":{"SUB":{"URL":"","status":0},"Main":{"enable":1,"url":"rtmp://a/b","status":0}},"status":true})", {}, {}},
    {"rtmp write answers under the request's spelling", true, R"({"rtmp":{"MAIN":{"enable":1}}})",
     R"({"rtmp":{"MAIN":{"enable":1,"url":"rtmp://a/b","status":0}},"status":true})", {"39 01 00 00 00"}, {}},

    // rtp multicast
    {"multicast whole: rtsp through the relay port", false, R"({"rtp multicast":{"main":true}})",
     R"({"rtp multicast":{"main":{"enable":1,"ip":"239.1.1.1","port":5000,"rtsp":"rtsp://0.0.0.0:8554/multicast/main",)"
     R"("rtp":"rtp://239.1.1.1:5000"}},"status":true})", {}, {}},
    {"multicast keyed: rtsp on its own port", false, R"({"rtp multicast":{"sub":{"rtsp":true}}})",
     R"({"rtp multicast":{"sub":{"rtsp":"rtsp://0.0.0.0:554/multicast/sub"}},"status":true})", {}, {}},
    {"multicast: a key inside a stream it does not know answers false alone", false,
     R"({"rtp multicast":{"main":{"port":true,"colour":true,"ip":1}}})",
     R"({"rtp multicast":{"main":{"port":5000,"colour":false,"ip":false}},"status":true})", {}, {}},
    {"multicast port as text sends nothing", true, R"({"rtp multicast":{"main":{"enable":0,"port":"x"}}})",
     R"({"rtp multicast":{"main":false},"status":false})", {}, {}},
    {"multicast block", true, R"({"rtp multicast":{"main":{"ip":"239.2.2.2","port":6000}}})", "",
     {"15 01 00 00 00 ef 02 02 02 70 17 00 00"}, {}},
};
// clang-format on

TEST_F(JsonNetwork, Cases) { fake::run_section_cases(sys, shell, kCases); }

// The camera module hears of a new static address once, and never of the
// unspecified or the broadcast address.
TEST_F(JsonNetwork, AddressAnnouncement) {
    json_reply(json_set_ctrl, R"({"ethernet":{"eth0":{"ip":"192.168.1.50"}}})");
    json_reply(json_set_ctrl, R"({"ethernet":{"eth0":{"ip":"192.168.1.50"}}})");
    json_reply(json_set_ctrl, R"({"ethernet":{"eth0":{"ip":"255.255.255.255"}}})");
    EXPECT_EQ(camera.sent(), std::vector<std::string>{"81 01 08 ab 0c 00 0a 08 00 01 03 02 ff"});
}

// The first failing step stops the rest.
TEST_F(JsonNetwork, FirstFailureStops) {
    sys.refuse.insert(0);
    EXPECT_EQ(json_reply(json_set_ctrl, R"({"ethernet":{"eth0":{"ip":"192.168.1.50","httpPort":81}}})"),
              R"({"ethernet":{"eth0":false},"status":false})");
    EXPECT_EQ(sys.ids(), std::vector<uint32_t>{0});
}

// An NDI camera's main stream gets a bit rate for its codec, size and rate.
TEST_F(JsonNetwork, NdiMainBitrateClamped) {
    sys.info().ndiFlag518 = 1;
    sys.info().ndi_enable = 1;
    const std::string reply = json_reply(json_set_ctrl, R"({"venc":{"main":{"mode":"h264","frmrate":60}}})");
    EXPECT_NE(reply.find("\"bitrate\":122800"), std::string::npos) << reply;
}

// A codec switch takes back what the system server saved for that codec
// (H.264 in the first slot, H.265 in the second), from rate control to the
// quantisers; a slot never saved leaves the defaults.
TEST_F(JsonNetwork, CodecSwitchRestoresItsSavedSlot) {
    auto& saved = *reinterpret_cast<SavedCodecs*>(sys.store->ext);
    saved.magic = kInfoMagic;
    const uint32_t h264[13] = {1, 1, 640, 360, 30, 0, 0, 1, 2, 3, 4, 5, 6};
    const uint32_t h265[13] = {1, 1, 640, 360, 30, 0, 2, 0, 7, 8, 9, 10, 11};
    std::memcpy(saved.stream[1][0].word, h264, sizeof h264);
    std::memcpy(saved.stream[1][1].word, h265, sizeof h265);
    const auto sent_words = [this](const char* mode) {
        sys.journal.clear();
        json_reply(json_set_ctrl, std::string(R"({"venc":{"sub":{"mode":")") + mode + "\"}}}");
        std::vector<uint32_t> words(6);
        if (sys.journal.size() == 1 && sys.journal[0].data.size() == sizeof(StreamParams))
            std::memcpy(words.data(), sys.journal[0].data.data() + 7 * 4, 6 * 4);
        return words;
    };
    EXPECT_EQ(sent_words("h264"), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(sent_words("h265"), (std::vector<uint32_t>{0, 7, 8, 9, 10, 11}));
    saved.stream[1][0].word[2] = 0;  // never saved: no picture width
    EXPECT_NE(sent_words("h264"), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
}

TEST_F(JsonNetwork, SubAbilityUnderNdi) {
    sys.info().ndiFlag516 = 1;
    sys.info().ndi_enable = 1;
    EXPECT_EQ(json_reply(json_get_ctrl, R"({"VencAbility":{"sub":{"resolution":true,"interval":true}}})"),
              R"({"VencAbility":{"sub":{"resolution":[640,360],"interval":[5,120]}},"status":true})");
}

TEST(VencFormatName, Rows) {
    const struct {
        uint32_t col, line, rate, frac;
        const char* name;
    } rows[] = {
        {1920, 1080, 30, 1, "1920X1080P@29.97Hz"}, {3840, 2160, 24, 1, "3840X2160P@23.97Hz"},
        {1920, 1080, 24, 1, "1920X1080P@23.98Hz"}, {640, 360, 24, 1, "640X360P@23.97Hz"},
        {1280, 720, 24, 0, "Unknow Format"},       {1280, 720, 120, 0, "1280X720P@120Hz"},
        {3840, 2160, 120, 0, "Unknow Format"},     {1920, 1080, 25, 1, "Unknow Format"},
    };
    for (const auto& r : rows) {
        char name[64];
        json_venc_format_name(r.col, r.line, r.rate, r.frac, name, sizeof name);
        EXPECT_STREQ(name, r.name) << r.col << "x" << r.line << "@" << r.rate << "/" << r.frac;
    }
}

}  // namespace
