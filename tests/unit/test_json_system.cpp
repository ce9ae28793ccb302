// The "system" section through the dispatchers against the fake system
// server and the fake shell: each case names its request, the reply, the
// commands with their payload bytes and the shell lines (glob patterns) that
// went out. The fake plays the server's part, so an answer read back after a
// command shows what the command carried.

#include "cgi/upload.h"
#include "json/json_system.h"
#include <sys/mount.h>

#include <fstream>

#include "scratch.h"
#include "section_cases.h"

namespace {

class JsonSystem : public fake::SectionTest {
protected:
    void SetUp() override {
        SysInfo& si = sys.info();
        std::strcpy(si.device_name, "cam-1");
        std::strcpy(si.serial_number, "SN1");
        std::strcpy(si.user, "admin");
        std::strcpy(si.password, "admin");
        std::strcpy(si.timezone, "UTC0");
        si.userWord = 0x04030201;
        si.workMode = 2;
        si.audio.ndiCap = 1;
        SysState& st = sys.state();
        st.user_info = 3;
        st.updateProgress = 40;
        st.mainLock = 1;
        st.controlHub = 1;
        st.power[1] = {1, 2, 3, 0, 2026, 5, 6, 0, 7, 8, 9};
        sys.on_command = [](const fake::Command& c, SysStore& store) {
            SysInfo& info = store.info;
            if (c.id == 63) {
                std::memcpy(info.user, c.data.data(), 16);
                std::memcpy(info.password, c.data.data() + 16, 16);
            }
            if (c.id == 69) {
                std::memset(info.timezone, 0, sizeof info.timezone);
                std::memcpy(info.timezone, c.data.data(), c.data.size());
            }
            if (c.id == 21) info.ndi_enable = c.data[0];
            if (c.id == 64) store.state.standby = c.data[0];
        };
        camera.answer = [](const fake::Bytes& packet) -> std::optional<fake::Bytes> {
            if (packet == fake::Bytes{0x81, 0x09, 0x00, 0x03, 0xFF})
                return fake::Bytes{0x90, 0x50, 'V', '2', '.', '1', 0xFF};
            return std::nullopt;
        };
    }
};

using Case = fake::SectionCase;

const std::string kTask1 =
    R"("task1":{"enable":1,"mode":2,"action":3,"year":2026,"month":5,"day":6,"wday":0,"hour":7,"min":8,"sec":9})";
const std::string kCredentials =
    "63 61 64 6d 69 6e 00 00 00 00 00 00 00 00 00 00 00 73 65 63 72 65 74 00 00 00 00 00 "
    "00 00 00 00 00 01 02 03 04";

// clang-format off
const std::vector<Case> kCases = {
    {"an empty object answers an empty object", false, R"({"system":{}})", R"({"system":{},"status":true})", {}, {}},
    {"identity and fixed texts", false,
     R"({"system":{"Device_Name":true,"serial_number":true,"bootloader_version":true,"hardware_version":true,)"
     R"("app_version":true,"web_preview":true,"workMode":"any","language":true,"TZ":true,"mcu_version":true}})",
     R"({"system":{"Device_Name":"cam-1","serial_number":"SN1","bootloader_version":"V1.0.0","hardware_version":"V1.0",)"
     R"("app_version":"V650_2025-03-20","web_preview":"webRTC","workMode":2,"language":false,"TZ":"UTC0",)"
     R"("mcu_version":"V2.1"},"status":true})", {}, {}},
    {"state numbers", false,
     R"({"system":{"user_info":true,"update":true,"ndi_enable":true,"dante_enable":true,"suspend":true,"mainLock":true}})",
     R"({"system":{"user_info":3,"update":40,"ndi_enable":0,"dante_enable":0,"suspend":0,"mainLock":1},"status":true})",
     {}, {}},
    {"an empty model answers false", false, R"({"system":{"model":true}})",
     R"({"system":{"model":false},"status":false})", {}, {}},
    {"a member not true fails", false, R"({"system":{"device_name":1,"nonsense":true}})",
     R"({"system":{"device_name":false,"nonsense":false},"status":false})", {}, {}},
    {"whole feature list", false, R"({"system":{"support":true}})",
     R"({"system":{"support":{"audio":1,"rtmp":1,"rtp_multicast":0,"ndi":1,"hx3":1,"srt":1,"gb28181":0,"FreeD":0,)"
     R"("Auto_tracking":0,"digital_zoom":1,"control_hub":1,"dante":0,"iris":0}},"status":true})", {}, {}},
    {"keyed feature list has no control hub", false, R"({"system":{"support":{"NDI":true,"control_hub":true}}})",
     R"({"system":{"support":{"NDI":1,"control_hub":false}},"status":false})", {}, {}},
    {"keyed schedule", false, R"({"system":{"power_ctrl":{"TASK1":true,"task8":true}}})",
     R"({"system":{"power_ctrl":{"TASK1":)" + kTask1.substr(8) + R"(,"task8":false}},"status":true})", {}, {}},
    {"login right answers the key", false, R"({"system":{"login":"admin:admin"}})",
     R"({"system":{"login":{KEY}},"status":true})", {}, {}},
    {"login wrong", false, R"({"system":{"login":"admin:x"}})", R"({"system":{"login":false},"status":false})", {}, {}},
    {"log of another kind", false, R"({"system":{"log":"boot"}})", "", {}, {"ln -s /tmp /opt/ipnc/www/tmp"}},

    {"number commands answer the record", true, R"({"system":{"ndi_enable":1,"suspend":1,"language":2,"workMode":0}})",
     R"({"system":{"ndi_enable":1,"suspend":1,"language":true,"workMode":true},"status":true})",
     {"21 01 00 00 00", "64 01", "33 02", "34 00"}, {}},
    {"time zone text without its zero", true, R"({"system":{"TZ":"CET-1"}})",
     R"({"system":{"TZ":"CET-1"},"status":true})", {"69 43 45 54 2d 31"}, {}},
    {"name commands carry the key text", true, R"({"system":{"device_name":"other","serial_number":"X"}})",
     R"({"system":{"device_name":true,"serial_number":true},"status":true})",
     {"18 64 65 76 69 63 65 5f 6e 61 6d 65", "17 73 65 72 69 61 6c 5f 6e 75 6d 62 65 72"}, {}},
    {"login change sends the credentials and the user word", true, R"({"system":{"login":"admin:secret"}})",
     R"({"system":{"login":{KEY}},"status":true})", {kCredentials}, {}},
    {"login with an empty user", true, R"({"system":{"login":":secret"}})",
     R"({"system":{"login":false},"status":false})", {}, {}},
    {"login with an empty password", true, R"({"system":{"login":"admin:"}})",
     R"({"system":{"login":false},"status":false})", {}, {}},
    {"login with a part of 16", true, R"({"system":{"login":"admin:0123456789abcdef"}})",
     R"({"system":{"login":false},"status":false})", {}, {}},
    {"login without a colon", true, R"({"system":{"login":"admin"}})",
     R"({"system":{"login":false},"status":false})", {}, {}},
    {"schedule overwrites the numbers given", true,
     R"({"system":{"power_ctrl":{"task1":{"hour":23,"min":"x"},"task9":{"enable":1}}}})", "",
     {"66 00 00 00 00 00 00 00 00 00 00 00 00 01 02 03 00 ea 07 05 06 00 17 08 09 00"}, {}},
    {"schedule with a member not a task", true, R"({"system":{"power_ctrl":{"x":{}}}})",
     R"({"system":{"power_ctrl":false},"status":false})", {}, {}},
    {"post_update start", true, R"({"system":{"post_update":"start"}})",
     R"({"system":{"post_update":true},"status":true})", {}, {"rm /tmp/update.bin"}},
    {"post_update end", true, R"({"system":{"post_update":"End"}})", R"({"system":{"post_update":true},"status":true})",
     {}, {"/opt/ipnc/sys_update 1>/dev/console 2>/dev/console &"}},
    {"post_update other text", true, R"({"system":{"post_update":"stop"}})",
     R"({"system":{"post_update":false},"status":false})", {}, {}},
    {"date and time read from the clock", false, R"({"system":{"date":true,"time":true}})",
     R"({"system":{"date":"2025-11-25","time":"12:00:00"},"status":true})", {}, {}},
    {"date keeps the time of day", true, R"({"system":{"date":"2026-1-2"}})",
     R"({"system":{"date":"2025-11-25"},"status":true})", {"68 01"}, {"date -s \"2026-1-2 12:0:0\";hwclock -w &"}},
    {"time keeps the date", true, R"({"system":{"time":"7:5:3"}})", R"({"system":{"time":"12:0:0"},"status":true})",
     {"68 01"}, {"date -s \"2025-11-25 7:5:3\";hwclock -w &"}},
    {"update companion", true, R"({"system":{"update":3}})", "", {},
     {"killall websocketserver", "/opt/ipnc/websocketserver -p * -s 3 1>/dev/console 2>/dev/console &"}},
    {"sd delete outside the folder", true, R"({"system":{"sd":{"delete":["../x","a/b",""],"other":1}}})",
     R"({"system":{"sd":{"delete":false,"other":false}},"status":false})", {}, {}},
    {"a time zone of any length goes whole", true, R"({"system":{"TZ":")" + std::string(300, 'Z') + R"("}})", "",
     {"69 " + fake::hex_of(fake::Bytes(300, 'Z'))}, {}},
    {"sd format without a card", true, R"({"system":{"sd":{"format":"fat32"}}})",
     R"({"system":{"sd":{"format":false}},"status":false})", {}, {}},
    {"wrong types", true, R"({"system":{"TZ":1,"update":"x","sd":true}})",
     R"({"system":{"TZ":false,"update":false,"sd":false},"status":false})", {}, {}},
};
// clang-format on

TEST_F(JsonSystem, Cases) {
    upload_set_armed(false);
    fake::run_section_cases(sys, shell, kCases);
}

// Every maintenance action is one byte to its command.
TEST_F(JsonSystem, ActionsTable) {
    const struct {
        const char* action;
        std::string sent;
    } rows[] = {{"image_reset", "61 00"},   {"factory_reset", "61 01"}, {"system_reset", "61 02"},
                {"system_reboot", "65 01"}, {"system_resume", "64 00"}, {"system_suspend", "64 01"},
                {"default_save", "62 01"},  {"default_clear", "62 00"}, {"network_test", "67 00"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.action);
        sys.journal.clear();
        json_reply(json_set_ctrl, std::string(R"({"system":{"system_control":")") + row.action + "\"}}");
        ASSERT_EQ(sys.journal.size(), 1u);
        EXPECT_EQ(fake::command_text(sys.journal[0]), row.sent);
    }
    sys.journal.clear();
    EXPECT_EQ(json_reply(json_set_ctrl, R"({"system":{"system_control":"explode"}})"),
              R"({"system":{"system_control":false},"status":false})");
    EXPECT_TRUE(sys.journal.empty());
}

// An image that lost a piece is never handed to the update program.
TEST_F(JsonSystem, IncompleteImageNotInstalled) {
    json_reply(json_set_ctrl, R"({"system":{"post_update":"start"}})");
    upload_mark_incomplete();
    EXPECT_EQ(json_reply(json_set_ctrl, R"({"system":{"post_update":"end"}})"),
              R"({"system":{"post_update":false},"status":false})");
    EXPECT_EQ(shell.lines, std::vector<std::string>{"rm /tmp/update.bin"});
    EXPECT_FALSE(upload_is_armed());
}

TEST_F(JsonSystem, UpdateKeepsTheFirstPort) {
    sys.state().updatePort = 5123;
    json_reply(json_set_ctrl, R"({"system":{"update":1}})");
    EXPECT_EQ(sys.state().updateProgress, 1u);
    EXPECT_EQ(sys.state().updatePort, 5123u);
}

// The members that read and write the camera's files, below a root of the
// test's own: log links, the SD card's state, recordings and format.
TEST_F(JsonSystem, FilesBelowTheRoot) {
    const Scratch dir("system_files");
    const fake::RootInstalled root(dir.path());
    std::filesystem::create_directories(dir.path("opt/ipnc/www"));
    std::filesystem::create_directory_symlink("/tmp", dir.path("opt/ipnc/www/tmp"));
    sys.info().httpPort = 8080;
    sys.state().sdPresent = 1;
    std::ofstream(root.make("/tmp/sd.status")) << "1\n";
    std::ofstream(root.make("/tmp/sddev")) << "mmcblk0p1\n";
    std::ofstream(root.make("/mnt/sd/DCIM/REC_0001.mp4")) << "x";
    std::ofstream(root.make("/tmp/sd.keep")) << "x";
    std::string links = "\"http://0.0.0.0:8080/tmp/system.log\"";
    for (int n = 0; n < 3; ++n) {
        std::ofstream(root.make("/tmp/system.log." + std::to_string(n))) << "line\n";
        links += ",\"http://0.0.0.0:8080/tmp/system.log." + std::to_string(n) + "\"";
    }
    // clang-format off
    const std::vector<Case> cases = {
        {"the rotated logs one link each", false, R"({"system":{"log":"app"}})",
         R"({"system":{"log":[)" + links + R"(]},"status":true})", {}, {}},
        {"the kernel's log written first", false, R"({"system":{"log":"kernel"}})",
         R"({"system":{"log":"http://0.0.0.0:8080/tmp/kernel.log"},"status":true})", {}, {"dmesg > /tmp/kernel.log"}},
        {"state and recordings", false, R"({"system":{"sd":{"state":true,"filelist":true}}})",
         R"({"system":{"sd":{"state":1,"filelist":["REC_0001.mp4"]}},"status":true})", {}, {}},
        {"format runs the card's three lines", true, R"({"system":{"sd":{"format":"fat32"}}})",
         R"({"system":{"sd":{"format":true}},"status":true})", {},
         {"umount -fl /mnt/sd", "mkfs.vfat /dev/mmcblk0p1", "sd-automount mmcblk0p1"}},
        {"one answer for every name; the good one still goes", true,
         R"({"system":{"sd":{"delete":["REC_0001.mp4","../../tmp/sd.keep"]}}})",
         R"({"system":{"sd":{"delete":false}},"status":false})", {}, {}},
        {"gone from the list", false, R"({"system":{"sd":{"filelist":true}}})",
         R"({"system":{"sd":{"filelist":[]}},"status":true})", {}, {}},
    };
    // clang-format on
    fake::run_section_cases(sys, shell, cases);
    EXPECT_TRUE(std::filesystem::exists(dir.path("tmp/sd.keep")));

    // A card of 8 MiB with 1 MiB used; the export of an archive that is empty.
    ASSERT_EQ(::mount("tmpfs", dir.path("mnt/sd").c_str(), "tmpfs", 0, "size=8m"), 0);
    std::ofstream(root.make("/mnt/sd/a.bin")) << std::string(1 << 20, 'a');
    std::ofstream(root.make("/tmp/params.tar.gz")).flush();
    fake::run_section_cases(sys, shell,
                            {{"the card's sizes",
                              false,
                              R"({"system":{"sd":{"storage size":true,"avail size":true}}})",
                              R"({"system":{"sd":{"storage size":8,"avail size":7}},"status":true})",
                              {},
                              {}},
                             {"an empty archive is exported as the header alone",
                              false,
                              R"({"system":{"params":true}})",
                              R"({"system":{"params":"http://0.0.0.0/fw_params.bin"},"status":true})",
                              {},
                              {"tar -zcvf /tmp/params.tar.gz /opt/params"}}});
    ::umount(dir.path("mnt/sd").c_str());
    EXPECT_EQ(std::filesystem::file_size(dir.path("opt/ipnc/www/fw_params.bin")), 344u);
}

TEST(ParamsHeader, Fields) {
    uint8_t h[kParamsHeaderSize];
    json_params_header(h, 0x01020304);
    auto u32 = [&](size_t at) {
        return h[at] | h[at + 1] << 8 | h[at + 2] << 16 | uint32_t{h[at + 3]} << 24;
    };
    EXPECT_EQ(u32(0), 0u);
    EXPECT_EQ(u32(4), 0x01020304u + 344);
    EXPECT_STREQ(reinterpret_cast<const char*>(h + 8), "4K Conference Camera");
    EXPECT_EQ(u32(128), 0u);
    EXPECT_EQ(u32(132), 208u);
    EXPECT_EQ(u32(136), 1u);
    EXPECT_EQ(u32(208), 344u);
    EXPECT_STREQ(reinterpret_cast<const char*>(h + 212), "/tmp/params.tar.gz");
    EXPECT_EQ(u32(340), 0x01020304u);
}

}  // namespace
