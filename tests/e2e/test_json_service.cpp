// The encoder board's NDI configuration over its export and registers
// through the chip's debug device, on the simulated camera.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <fstream>

namespace {

using namespace e2e;

TEST(ServiceE2E, FullNdiOverTheBoardsExport) {
    Journal shell("shell.log");
    Journal visca("visca.log");
    EXPECT_EQ(
        compact(R"(func=get{"full ndi":{"device name":true,"multicast":true,"discovery server":true}})"),
        R"({"full ndi":{"device name":"PTZ-4K1","multicast":{"enable":0,"IP":"239.255.0.0","Mask":"255.255.0.0",)"
        R"("TTL":1},"discovery server":""},"status":true})");
    const std::vector<std::string> mounted = shell.take(2);
    EXPECT_TRUE(has_line(mounted, "192.168.1.101:/opt/ndi /mnt/fpga"));
    EXPECT_TRUE(has_line(mounted, "umount -fl /mnt/fpga"));

    visca.mark();
    const std::string saved = compact(R"(func=set{"full ndi":{"channel name":"studio","quality":90}})");
    EXPECT_NE(saved.find(R"("channel name":"studio","groups")"), std::string::npos) << saved;
    const std::string board = read_file(run_path("board/ndi/ndi_config.json"));
    EXPECT_NE(board.find("\"channel name\":\t\"studio\""), std::string::npos) << board;
    EXPECT_NE(board.find("\"quality\":\t90"), std::string::npos) << board;
    EXPECT_TRUE(has_line(visca.wait_lines(1), "81 01 08 a0 ff"));
    compact(R"(func=set{"full ndi":{"channel name":"main","quality":100}})");
}

TEST(ServiceE2E, RegisterWrittenReadBackAndInTheImage) {
    EXPECT_EQ(compact(R"(func=set{"reg":{"0x10000020":"0xcafe0001","268435492":"255"}})"),
              R"({"reg":{"0x10000020":"0xcafe0001","268435492":"0xff"},"status":true})");
    EXPECT_EQ(compact(R"(func=get{"reg":{"268435488":true,"0X10000024":true}})"),
              R"({"reg":{"268435488":"0xcafe0001","0X10000024":"0xff"},"status":true})");
    std::ifstream image(run_path("ambad.img"), std::ios::binary);
    image.seekg(0x10000020);
    uint8_t bytes[8] = {};
    image.read(reinterpret_cast<char*>(bytes), sizeof bytes);
    EXPECT_EQ(bytes[0] | bytes[1] << 8 | bytes[2] << 16 | uint32_t{bytes[3]} << 24, 0xcafe0001u);
    EXPECT_EQ(bytes[4], 0xff);
}

}  // namespace
