// The settings sections (audio, record, gb28181, FreeD, NTP) through the
// dispatchers against the fake system server: each case names its request,
// the whole reply, and the commands that went out. The fake plays the
// server's part for the block commands, so an answer read back after a write
// shows what the command carried.

#include <arpa/inet.h>

#include <fstream>

#include "scratch.h"
#include "section_cases.h"

namespace {

// The server's part: where each block command lands in the store.
struct Landing {
    uint32_t id;
    size_t offset;
    size_t size;
};
constexpr size_t kAudio = offsetof(SysInfo, audio);
constexpr Landing kLandings[] = {
    {57, kAudio, sizeof(AudioParams)},
    {58, kAudio + offsetof(AudioParams, volume), 2},
    {59, kAudio + offsetof(AudioParams, hdmiAudEn), 1},
    {60, kAudio + offsetof(AudioParams, ndiAudEn), 1},
    {30, offsetof(SysInfo, gb28181), sizeof(Gb28181Params)},
    {31, offsetof(SysInfo, freed), sizeof(FreedParams)},
    {32, offsetof(SysInfo, record), sizeof(RecordParams)},
    {70, offsetof(SysInfo, ntp), sizeof(NtpParams)},
};

class JsonSettings : public fake::SectionTest {
protected:
    void SetUp() override {
        SysInfo& si = sys.info();
        si.audio = {1, 1, 48000, 16, 1, 5, 96000, 50, 1, 0, 1, 0, {0, 0}};
        si.gb28181.enable = 1;
        si.gb28181.sipPort = 5060;
        std::strcpy(si.gb28181.sipId, "3402");
        si.gb28181.serverSipAddr = htonl(0xC0A8010A);  // 192.168.1.10
        si.gb28181.registerState = 2;
        si.gb28181.maxHeartbeatTimeout = 3;
        si.freed.id = 1;
        si.freed.interval = 20;
        si.freed.frequency = 50;
        for (int c = 0; c < kFreedClients; ++c) {
            si.freed.clientIp[c] = htonl(0xC0A801C8 + static_cast<uint32_t>(c));  // 192.168.1.200 + c
            si.freed.clientPort[c] = static_cast<uint16_t>(40000 + c);
        }
        si.record.state = 1;
        si.record.keepTime = 7;
        std::strcpy(si.record.filename, "a.mp4");
        si.ntp = {0, "pool.ntp.org", 123, 3600};
        sys.on_command = [](const fake::Command& c, SysStore& store) {
            for (const Landing& l : kLandings)
                if (l.id == c.id) fake::store_block(l.offset, l.size)(c, store);
        };
    }
};

const std::string kAudioAfter = R"("enable":1,"samplerate":48000,"bitwidth":16,"soundMode":"Stereo",)";

// clang-format off
const std::vector<fake::SectionCase> kCases = {
    // audio
    {"audio whole read", false, R"({"audio":true})",
     R"({"audio":{"inputSel":"Mic","enable":1,"samplerate":48000,"bitwidth":16,"soundMode":"Stereo","encMode":"AAC","bitrate":96000,"volume":50,"hdmiAudEn":1,"ndiAudEn":0},"status":true})", {}, {}},
    {"audio keyed inputSel follows the sound mode", false, R"({"audio":{"INPUTSEL":true,"volume":true}})",
     R"({"audio":{"INPUTSEL":"LineIn","volume":50},"status":true})", {}, {}},
    {"audio keyed member not true", false, R"({"audio":{"volume":1}})",
     R"({"audio":{"volume":false},"status":false})", {}, {}},
    {"audio other type", false, R"({"audio":3})", R"({"audio":false,"status":false})", {}, {}},
    {"audio codec word sets its rate", true, R"({"audio":{"encMode":"G711A"}})",
     R"({"audio":{)" + kAudioAfter + R"("encMode":"G711A","volume":50,"hdmiAudEn":1,"ndiAudEn":0},"status":true})", {"57"}, {}},
    {"audio OPUS brings the compressed rate", true, R"({"audio":{"encMode":"opus"}})",
     R"({"audio":{)" + kAudioAfter + R"("encMode":"OPUS","bitrate":96000,"volume":50,"hdmiAudEn":1,"ndiAudEn":0},"status":true})", {"57"}, {}},
    {"audio volume alone", true, R"({"audio":{"volume":10}})",
     R"({"audio":{)" + kAudioAfter + R"("encMode":"AAC","bitrate":96000,"volume":10,"hdmiAudEn":1,"ndiAudEn":0},"status":true})", {"58"}, {}},
    {"audio unknown sound mode word ignored", true, R"({"audio":{"soundMode":"Quad"}})",
     R"({"audio":{)" + kAudioAfter + R"("encMode":"AAC","bitrate":96000,"volume":50,"hdmiAudEn":1,"ndiAudEn":0},"status":true})", {}, {}},
    {"audio wrong type fails, the rest still sent", true, R"({"audio":{"enable":"on","ndiAudEn":1}})",
     R"({"audio":false,"status":false})", {"60"}, {}},
    // record
    {"record whole read", false, R"({"record":true})",
     R"({"record":{"enable":0,"sel":0,"timeCnt":0,"mode":0,"loopRec":0,"format":0,)"
     R"("task0":{"enable":0,"start":0,"stop":0},"task1":{"enable":0,"start":0,"stop":0},)"
     R"("task2":{"enable":0,"start":0,"stop":0},"task3":{"enable":0,"start":0,"stop":0},)"
     R"("manual":0,"state":1,"keepTime":7,"filename":"a.mp4"},"status":true})", {}, {}},
    {"record keyed task beyond the four", false, R"({"record":{"Task5":true,"state":true}})",
     R"({"record":{"Task5":false,"state":1},"status":true})", {}, {}},
    {"record keyed unknown key", false, R"({"record":{"tasks":true}})",
     R"({"record":{"tasks":false},"status":false})", {}, {}},
    {"record touching tasks", true,
     R"({"record":{"task0":{"enable":1,"start":100,"stop":200},"task1":{"enable":1,"start":200,"stop":300},"sel":2}})",
     R"({"record":{"enable":0,"sel":2,"timeCnt":0,"mode":0,"loopRec":0,"format":0,)"
     R"("task0":{"enable":1,"start":100,"stop":200},"task1":{"enable":1,"start":200,"stop":300},)"
     R"("task2":{"enable":0,"start":0,"stop":0},"task3":{"enable":0,"start":0,"stop":0},)"
     R"("manual":0,"state":1,"keepTime":7,"filename":"a.mp4"},"status":true})", {"32"}, {}},
    {"record overlapping tasks", true,
     R"({"record":{"task0":{"enable":1,"start":100,"stop":200},"task1":{"enable":1,"start":150,"stop":300}}})",
     R"({"record":false,"status":false})", {}, {}},
    {"record overlap of a disabled task", true,
     R"({"record":{"task0":{"enable":1,"start":100,"stop":200},"task1":{"enable":0,"start":150,"stop":300}}})",
     "", {"32"}, {}},
    {"record empty span", true, R"({"record":{"task2":{"enable":1,"start":5,"stop":5}}})",
     R"({"record":false,"status":false})", {}, {}},
    {"record task beyond the four", true, R"({"record":{"task7":{"enable":0}}})",
     R"({"record":false,"status":false})", {}, {}},
    {"record state is the recorder's", true, R"({"record":{"state":0}})",
     R"({"record":false,"status":false})", {}, {}},
    // gb28181
    {"gb28181 keyed spelling", false,
     R"({"gb28181":{"SIP ID":true,"MAX HEARTBEAT TIMEOUT":true,"server sip addr":true}})",
     R"({"gb28181":{"SIP ID":"3402","max heartbeat timeout":3,"server sip addr":"192.168.1.10"},"status":true})", {}, {}},
    {"gb28181 other type", false, R"({"gb28181":1})", R"({"gb28181":{},"status":true})", {}, {}},
    {"gb28181 register state is read only", true, R"({"gb28181":{"enable":0,"register state":1}})",
     R"({"gb28181":false,"status":false})", {}, {}},
    {"gb28181 id longer than its field", true, R"({"gb28181":{"sip id":"123456789012345678901234"}})",
     R"({"gb28181":false,"status":false})", {}, {}},
    {"gb28181 address that does not parse", true, R"({"gb28181":{"server sip addr":"10.0.0.x"}})",
     R"({"gb28181":false,"status":false})", {}, {}},
    {"gb28181 write", true,
     R"({"gb28181":{"server sip addr":"10.0.0.9","Sip Port":5070,"sip id":"12345678901234567890123"}})",
     R"({"gb28181":{"enable":1,"sip port":5070,"server sip id":"","server sip addr":"10.0.0.9",)"
     R"("server sip port":0,"sip id":"12345678901234567890123","sip password":"","register valid time":0,)"
     R"("register state":2,"heartbeat cycle":0,"stream sel":0,"max heartbeat timeout":3},"status":true})", {"30"}, {}},
    // FreeD
    {"freed whole read", false, R"({"FreeD":true})",
     R"({"FreeD":{"enable":0,"ID":1,"mode":"always",)"
     R"("client0":{"enable":0,"ip":"192.168.1.200","port":40000},"client1":{"enable":0,"ip":"192.168.1.201","port":40001},)"
     R"("client2":{"enable":0,"ip":"192.168.1.202","port":40002},"client3":{"enable":0,"ip":"192.168.1.203","port":40003},)"
     R"("ip":"192.168.1.200","port":40000,"interval":20},"status":true})", {}, {}},
    {"freed keyed client beyond the four", false, R"({"FreeD":{"client1":true,"client4":true}})",
     R"({"FreeD":{"client1":{"enable":0,"ip":"192.168.1.201","port":40001},"client4":false},"status":false})", {}, {}},
    {"freed ip switches receiver 0 on", true, R"({"FreeD":{"ip":"192.168.1.20","mode":"sometimes","frequency":30}})",
     R"({"FreeD":{"enable":0,"ID":1,"mode":"always",)"
     R"("client0":{"enable":1,"ip":"192.168.1.20","port":40000},"client1":{"enable":0,"ip":"192.168.1.201","port":40001},)"
     R"("client2":{"enable":0,"ip":"192.168.1.202","port":40002},"client3":{"enable":0,"ip":"192.168.1.203","port":40003},)"
     R"("ip":"192.168.1.20","port":40000,"frequency":30},"status":true})", {"31"}, {}},
    {"freed client beyond the four", true, R"({"FreeD":{"client4":{"port":40000}}})",
     R"({"client4":false,"FreeD":false,"status":false})", {}, {}},
    {"freed unknown key", true, R"({"FreeD":{"mode":"genlock","rate":1}})", R"({"FreeD":false,"status":false})", {}, {}},
    // NTP
    {"ntp whole read", false, R"({"NTP":true})",
     R"({"NTP":{"enable":0,"server address":"pool.ntp.org","port":123,"update interval":3600},"status":true})", {}, {}},
    {"ntp keyed member of another type", false, R"({"NTP":{"port":"yes","Update Interval":true}})",
     R"({"NTP":{"port":false,"Update Interval":3600},"status":true})", {}, {}},
    {"ntp keyed unknown key", false, R"({"NTP":{"server":true}})", R"({"NTP":{"server":false},"status":false})", {}, {}},
    {"ntp other type", false, R"({"NTP":"x"})", R"({"NTP":false,"status":false})", {}, {}},
    {"ntp write", true, R"({"NTP":{"Port":124,"enable":1}})", R"({"NTP":{"Port":124,"enable":1},"status":true})", {"70"}, {}},
    {"ntp server address longer than its field", true,
     R"({"NTP":{"server address":")" + std::string(128, 'a') + R"("}})",
     R"({"NTP":false,"status":false})", {}, {}},
};
// clang-format on

TEST_F(JsonSettings, Cases) { fake::run_section_cases(sys, shell, kCases); }

// The bytes that went out, where the answer cannot show them.
TEST_F(JsonSettings, PayloadBytes) {
    json_reply(json_set_ctrl, R"({"audio":{"bitrate":64000,"encMode":"G711U"}})");
    ASSERT_EQ(sys.ids(), std::vector<uint32_t>{57});
    ASSERT_EQ(sys.journal[0].data.size(), sizeof(AudioParams));
    AudioParams sent;
    std::memcpy(&sent, sys.journal[0].data.data(), sizeof sent);
    EXPECT_EQ(sent.bitrate, 0u);  // the codec word zeroes a rate given before it
    EXPECT_EQ(sent.encMode, 1u);

    sys.journal.clear();
    json_reply(json_set_ctrl, R"({"audio":{"volume":10,"hdmiAudEn":0,"ndiAudEn":1}})");
    ASSERT_EQ(sys.ids(), (std::vector<uint32_t>{58, 59, 60}));
    for (const fake::Command& c : sys.journal) EXPECT_EQ(c.data.size(), 4u) << c.id;
    EXPECT_EQ(sys.journal[0].data[0], 10);

    // A refused NTP member leaves what was written before it in the record.
    sys.journal.clear();
    EXPECT_EQ(json_reply(json_set_ctrl, R"({"NTP":{"port":99,"enable":"yes"}})"),
              R"({"NTP":false,"status":false})");
    EXPECT_TRUE(sys.journal.empty());
    EXPECT_EQ(sys.info().ntp.port, 99u);
}

// A stored code no word stands for (its high bytes count) is left out.
TEST_F(JsonSettings, CodeBeyondTheWordsIsLeftOut) {
    sys.info().audio.encMode = 0x105;
    EXPECT_EQ(json_reply(json_get_ctrl, R"({"audio":{"encMode":true}})"), R"({"audio":{},"status":true})");
}

// The time service's state is its ready file below the camera's /tmp.
TEST_F(JsonSettings, NtpStateFollowsTheReadyFile) {
    const Scratch dir("ntp_ready");
    const fake::RootInstalled root(dir.path());
    const std::string ready = root.make("/tmp/ntpready");
    EXPECT_EQ(json_reply(json_get_ctrl, R"({"NTP":{"state":true}})"), R"({"NTP":{"state":0},"status":true})");
    std::ofstream(ready).put('\n');
    EXPECT_EQ(json_reply(json_get_ctrl, R"({"NTP":{"state":true}})"), R"({"NTP":{"state":1},"status":true})");
}

TEST_F(JsonSettings, RefusedOrUnansweredCommandAnswersFalse) {
    for (std::set<uint32_t>* fault : {&sys.refuse, &sys.silent}) {
        *fault = {30, 31, 32, 57, 70};
        for (const char* request :
             {R"({"gb28181":{"enable":0}})", R"({"FreeD":{"enable":1}})", R"({"record":{"sel":1}})",
              R"({"audio":{"enable":0}})", R"({"NTP":{"port":1}})"}) {
            const std::string reply = json_reply(json_set_ctrl, request);
            EXPECT_NE(reply.find(":false,\"status\":false}"), std::string::npos) << request << " → " << reply;
        }
        fault->clear();
    }
}

TEST_F(JsonSettings, MissingRecordAnswersFalse) {
    sys.present = false;
    for (const char* section : {"audio", "record", "gb28181", "FreeD", "NTP"}) {
        const std::string name = std::string("\"") + section + "\"";
        EXPECT_EQ(json_reply(json_get_ctrl, "{" + name + ":true}"), "{" + name + ":false,\"status\":false}");
        EXPECT_EQ(json_reply(json_set_ctrl, "{" + name + ":{}}"), "{" + name + ":false,\"status\":false}");
    }
    EXPECT_TRUE(sys.journal.empty());
}

}  // namespace
