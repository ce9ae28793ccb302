// The "full ndi" section against a configuration file in the tests' own
// /mnt (a private tmpfs), the fake shell (mount lines are journalled, not
// run) and the fake camera (the board's address and the reload packet).
#include <arpa/inet.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <fstream>
#include <sstream>

#include "json/json_full_ndi.h"
#include "section_cases.h"

namespace {

constexpr const char* kFile = "/mnt/fpga/ndi_config.json";
constexpr const char* kBoardFile =
    R"({"ndi":{"enable":1,"format":"1920X1080P@60Hz","machinename":"cam","groups":{"send":"public"},)"
    R"("codec":{"shq":{"quality":100}},"multicast":{"send":{"enable":false,"netprefix":"239.255.0.0","ttl":1}}}})";
const std::string kMount =
    "mount -t nfs -o nolock -o tcp -o rsize=32768,wsize=32768 192.168.1.101:/opt/ndi /mnt/fpga";

class FullNdi : public fake::SectionTest {
protected:
    void SetUp() override {
        struct statfs fs {};
        if (statfs("/mnt", &fs) != 0 || fs.f_type != TMPFS_MAGIC) GTEST_SKIP() << "needs the tests' own /mnt";
        mkdir("/mnt/fpga", 0755);
        std::ofstream(kFile) << kBoardFile;
        sys.state().encoderBoardAddr = 0xFFFFFFFFu;
        camera.answer = [](const fake::Bytes& packet) -> std::optional<fake::Bytes> {
            if (packet == fake::Bytes{0x81, 0x09, 0x08, 0xAB, 0xFF})
                return fake::Bytes{0x90, 0x50, 0x0c, 0x00, 0x0a, 0x08, 0x00, 0x01, 0x06, 0x05, 0xFF};
            return std::nullopt;
        };
    }
    void TearDown() override { std::remove(kFile); }
    static std::string file() {
        std::ifstream in(kFile);
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }
};

// clang-format off
const std::vector<fake::SectionCase> kCases = {
    {"whole read in the table's order", false, R"({"full ndi":true})",
     R"({"full ndi":{"enable":1,"format":"1920X1080P@60Hz","device name":"cam","groups":"public","quality":100,)"
     R"("multicast":{"enable":0,"IP":"239.255.0.0","TTL":1},"discovery server":""},"status":true})", {}, {}},
    {"keyed read", false, R"({"full ndi":{"Device Name":true,"discovery server":true,"channel name":true,"x":true}})",
     R"({"full ndi":{"Device Name":"cam","discovery server":"","x":false},"status":true})", {}, {}},
    {"a value that asks nothing", false, R"({"full ndi":3})", R"({"full ndi":{},"status":true})", {}, {}},
    {"write answers the whole file tree", true,
     R"({"full ndi":{"device name":"new","quality":80,"discovery server":"10.0.0.2","multicast":{"enable":1,"Mask":"255.0.0.0"}}})",
     R"({"full ndi":{"ndi":{"enable":1,"format":"1920X1080P@60Hz","machinename":"new","groups":{"send":"public"},)"
     R"("codec":{"shq":{"quality":80}},"multicast":{"send":{"enable":true,"netprefix":"239.255.0.0","ttl":1,)"
     R"("netmask":"255.0.0.0"}},"networks":{"discovery":"10.0.0.2"}}},"status":true})", {}, {}},
    {"write of a wrong type", true, R"({"full ndi":{"quality":"high"}})", R"({"full ndi":false,"status":false})", {}, {}},
    {"write of an unknown key", true, R"({"full ndi":{"colour":1}})", R"({"full ndi":false,"status":false})", {}, {}},
};
// clang-format on

TEST_F(FullNdi, Cases) { fake::run_section_cases(sys, shell, kCases); }

TEST_F(FullNdi, WriteSavesAndReloads) {
    json_reply(json_set_ctrl, R"({"full ndi":{"groups":"studio","format":"3840X2160P@30Hz"}})");
    const std::string saved = file();
    EXPECT_NE(saved.find("\"send\":\t\"studio\""), std::string::npos) << saved;
    EXPECT_NE(saved.find("\"format\":\t\"3840X2160P@30Hz\""), std::string::npos) << saved;
    EXPECT_EQ(camera.sent(), std::vector<std::string>{"81 01 08 a0 ff"});
}

// Without the file in place the board's export is mounted for the call and
// unmounted after; the address is looked up once and then kept.
TEST_F(FullNdi, MountsTheBoardWhenTheFileIsAbsent) {
    std::remove(kFile);
    EXPECT_EQ(json_reply(json_get_ctrl, R"({"full ndi":true})"), R"({"full ndi":false,"status":false})");
    json_reply(json_get_ctrl, R"({"full ndi":true})");
    EXPECT_EQ(shell.lines,
              (std::vector<std::string>{kMount, "umount -fl /mnt/fpga", kMount, "umount -fl /mnt/fpga"}));
    EXPECT_EQ(camera.sent(), std::vector<std::string>{"81 09 08 ab ff"});
    EXPECT_EQ(sys.state().encoderBoardAddr, inet_addr("192.168.1.101"));
}

// A failed lookup is reported under the loader's or the saver's name.
TEST_F(FullNdi, FailedLookupIsTriedAgain) {
    std::remove(kFile);
    camera.answer = nullptr;
    testing::internal::CaptureStderr();
    json_reply(json_get_ctrl, R"({"full ndi":true})");
    json_reply(json_get_ctrl, R"({"full ndi":true})");
    fullndi_config_save("{}", 2);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("[fullndi_config_load]-"), std::string::npos) << log;
    EXPECT_NE(log.find("[fullndi_config_save]-"), std::string::npos) << log;
    EXPECT_TRUE(shell.lines.empty());
    EXPECT_EQ(camera.sent().size(), 3u);
    EXPECT_EQ(sys.state().encoderBoardAddr, 0xFFFFFFFFu);
}

// A write whose file the next read could not take whole is refused: the
// board's file stays as it was and no reload is sent.
TEST_F(FullNdi, WriteTooLongToReadBackSavesNothing) {
    const std::string before = file();
    EXPECT_EQ(
        json_reply(json_set_ctrl, R"({"full ndi":{"channel name":")" + std::string(900, 'c') + R"("}})"),
        R"({"full ndi":false,"status":false})");
    EXPECT_EQ(file(), before);
    EXPECT_TRUE(camera.sent().empty());
}

// A file longer than the 1024 bytes read does not parse and answers false.
TEST_F(FullNdi, LongFileAnswersFalse) {
    std::ofstream(kFile) << R"({"ndi":{"machinename":")" << std::string(2000, 'a') << R"("}})";
    EXPECT_EQ(json_reply(json_get_ctrl, R"({"full ndi":true})"), R"({"full ndi":false,"status":false})");
}

}  // namespace
