// The "system" section on the simulated camera: the firmware-update flow a
// web page performs, a login change, maintenance actions, the parameter
// export, the kernel's log and the SD card's sizes.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

using namespace e2e;

const std::string kErrorParams = "{\"status\":-1,\"message\":Error params.\n}";

TEST(JsonSystemE2E, FirmwareUpdateFlow) {
    Journal shell("shell.log");
    ASSERT_EQ(compact(R"(func=set{"system":{"post_update":"start"}})"),
              R"({"system":{"post_update":true},"status":true})");
    const std::string first(3000, 'a'), second = std::string(1500, 'b') + std::string(1, '\0') + "tail";
    EXPECT_EQ(body_of(post("path=update", first)), "{\"status\":1,\"size\":3000}");
    EXPECT_EQ(body_of(post("path=update", second)),
              "{\"status\":1,\"size\":" + std::to_string(second.size()) + "}");
    const std::string image = run_path("root/tmp/update.bin");
    EXPECT_EQ(read_file(image), first + second);
    ASSERT_EQ(compact(R"(func=set{"system":{"post_update":"end"}})"),
              R"({"system":{"post_update":true},"status":true})");
    EXPECT_TRUE(has_line(shell.wait_lines(1), "/opt/ipnc/sys_update"));
    EXPECT_EQ(body_of(post("path=update", "more")), kErrorParams);
    EXPECT_EQ(read_file(image), first + second);
}

TEST(JsonSystemE2E, LoginChangeOpensPosts) {
    const std::string answer = compact(R"(func=set{"system":{"login":"admin:secret"}})");
    const size_t at = answer.find("\"login\":");
    ASSERT_NE(at, std::string::npos) << answer;
    // The key goes back as the 32-bit integer of its bits: one with the top
    // bit set is sent negative.
    const std::string number = answer.substr(at + 8, answer.find('}', at) - at - 8);
    ASSERT_NE(number, "false");
    const std::string key = std::to_string(static_cast<int32_t>(std::stoul(number)));
    const std::string opened = body_of(post("path=set", R"({"key":)" + key + R"(,"system":{"TZ":"UTC0"}})"));
    const std::string shut = body_of(post("path=set", R"({"key":1,"system":{"TZ":"UTC0"}})"));
    // the old credentials no longer prove a request; the new ones do
    const std::string old_login = body_of(post("path=set", R"({"system":{"login":"admin:admin"}})"));
    EXPECT_EQ(compact(R"(func=set{"system":{"login":"admin:admin"}})").find("false"), std::string::npos);
    EXPECT_NE(opened.find("\"status\":\ttrue"), std::string::npos) << opened;
    EXPECT_NE(shut.find("\"status\":\tfalse"), std::string::npos) << shut;
    EXPECT_NE(old_login.find("\"status\":\tfalse"), std::string::npos) << old_login;
}

TEST(JsonSystemE2E, ActionsReachTheServer) {
    Journal syscmd("syscmd.log");
    EXPECT_EQ(compact(R"(func=set{"system":{"system_control":"system_reboot"}})"),
              R"({"system":{"system_control":true},"status":true})");
    EXPECT_EQ(compact(R"(func=set{"system":{"system_control":"network_test"}})"),
              R"({"system":{"system_control":true},"status":true})");
    EXPECT_EQ(syscmd.since(), (std::vector<std::string>{"65 01", "67 00"}));
}

TEST(JsonSystemE2E, ParameterExport) {
    EXPECT_EQ(compact(R"(func=get{"system":{"params":true}})"),
              R"({"system":{"params":"http://192.168.1.100/fw_params.bin"},"status":true})");
    const std::string file = read_file(run_path("root/opt/ipnc/www/fw_params.bin"));
    ASSERT_GT(file.size(), 344u);
    auto u32 = [&](size_t at) {
        return static_cast<uint32_t>(static_cast<uint8_t>(file[at]) |
                                     static_cast<uint8_t>(file[at + 1]) << 8 |
                                     static_cast<uint8_t>(file[at + 2]) << 16 |
                                     static_cast<uint32_t>(static_cast<uint8_t>(file[at + 3])) << 24);
    };
    EXPECT_EQ(u32(4), file.size());
    EXPECT_EQ(u32(340), file.size() - 344);
    EXPECT_EQ(file.substr(8, 21), std::string("4K Conference Camera") + '\0');
    const std::string archive = run_path("params.tar.gz");
    std::ofstream(archive, std::ios::binary) << file.substr(344);
    FILE* list = popen(("tar -tzf " + archive).c_str(), "r");
    ASSERT_NE(list, nullptr);
    std::string names;
    for (int c; (c = std::fgetc(list)) != EOF;) names += static_cast<char>(c);
    EXPECT_EQ(pclose(list), 0);
    std::remove(archive.c_str());
    EXPECT_NE(names.find("opt/params/print.conf"), std::string::npos) << names;
}

// The kernel's log is written by the camera's own dmesg where the link points.
TEST(JsonSystemE2E, KernelLogLink) {
    EXPECT_EQ(compact(R"(func=get{"system":{"log":"kernel"}})"),
              R"({"system":{"log":"http://192.168.1.100:80/tmp/kernel.log"},"status":true})");
    EXPECT_NE(read_file(run_path("root/tmp/kernel.log")).find("simulated camera"), std::string::npos);
}

// The sizes of the camera's mounted card.
TEST(JsonSystemE2E, SdCard) {
    EXPECT_EQ(compact(R"(func=get{"system":{"sd":true}})"),
              R"({"system":{"sd":{"state":1,"storage size":8,"avail size":7}},"status":true})");
}

}  // namespace
