#include <gtest/gtest.h>

#include <cstring>

#include "ipc/file_msg_drv.h"
#include "records/records.h"
#include "scratch.h"
#include "test_ipc_peer.h"

namespace {

constexpr int kClientId = 13;
constexpr int kDone = static_cast<int>(sizeof(SysInfo));

FileMsg answer_with(const FileMsg& req, int result) {
    FileMsg r = req;
    r.type = req.src;
    r.result = result;
    return r;
}

class IpcStore : public ::testing::Test {
protected:
    void SetUp() override {
        remove_queue(kSysInfoKey);
        remove_segment(kSysInfoKey);
        ASSERT_EQ(InitFileMsgDrv(kSysInfoKey, kClientId), 0);
        qid_ = msgget(kSysInfoKey, 0);
        ASSERT_GE(qid_, 0);
        store_ = static_cast<SysStore*>(shmat(shmget(kSysInfoKey, 0, 0), nullptr, 0));
        ASSERT_NE(store_, reinterpret_cast<SysStore*>(-1));
    }
    void TearDown() override {
        SetFileMsgPollBudget(-1);
        if (store_ != reinterpret_cast<SysStore*>(-1)) shmdt(store_);
        CleanupFileMsgDrv();
        remove_queue(kSysInfoKey);
        remove_segment(kSysInfoKey);
    }

    // Answers `count` store requests with `result`, keeping the last one.
    std::thread serve(int qid, int count, int result) {
        return fake_peer<FileMsg>(qid, count, [this, result](int q, const FileMsg& req) {
            seen_ = req;
            send_record(q, answer_with(req, result));
        });
    }

    int qid_ = -1;
    SysStore* store_ = reinterpret_cast<SysStore*>(-1);
    FileMsg seen_{};
};

}  // namespace

TEST_F(IpcStore, ReadersWaitForTheMagic) {
    SetFileMsgPollBudget(3);
    EXPECT_EQ(GetSysInfo(), nullptr);
    EXPECT_EQ(GetSysState(1), nullptr);
    EXPECT_EQ(WaitSysReady(3), 0);
    ASSERT_NE(GetSysState(0), nullptr);  // no wait asked for

    store_->info.magic = kInfoMagic;
    std::strcpy(store_->info.model, "PTZ-4K");
    SysInfo* info = GetSysInfo();
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->model, "PTZ-4K");

    store_->state.magic = kInfoMagic;
    store_->state.ready = 7;
    EXPECT_EQ(WaitSysReady(3), 7);
    store_->state.digitalZoom = 24;
    EXPECT_EQ(GetSysState(1)->digitalZoom, 24u);

    store_->cam.word[28] = -1200;
    CamInfo* cam = WaitCamInfoParams(2);  // marker never set: still handed back
    ASSERT_NE(cam, nullptr);
    EXPECT_EQ(cam->tilt(), -1200);
    store_->ai.switchTime = 9;
    EXPECT_EQ(GetAiInfoParams()->switchTime, 9);
    EXPECT_EQ(static_cast<uint8_t*>(GetExtInfoParams()) - reinterpret_cast<uint8_t*>(info), 7492);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(GetMotorInfoParams()) - reinterpret_cast<uint8_t*>(info), 9864);
}

TEST_F(IpcStore, SettersWriteTheFieldAndAnnounceIt) {
    std::thread server = serve(qid_, 3, kDone);
    EXPECT_EQ(fSetIpAddr(0x0A01A8C0), 0);
    EXPECT_EQ(fSetMAC("00:1a:2B:3c:4d:ff"), 0);
    AudioParams audio = store_->info.audio;
    audio.volume = 77;
    EXPECT_EQ(fSetAudioParams(&audio), 0);
    server.join();

    EXPECT_EQ(store_->info.ip, 0x0A01A8C0u);
    const uint8_t mac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0xFF};
    EXPECT_EQ(std::memcmp(store_->info.mac, mac, 6), 0);
    EXPECT_EQ(store_->info.audio.volume, 77);
    EXPECT_EQ(seen_.cmd, 1);
    EXPECT_EQ(seen_.src, kClientId);
    EXPECT_EQ(seen_.shmid, shmget(kSysInfoKey, 0, 0));
    EXPECT_EQ(seen_.section, 4);

    EXPECT_EQ(fSetMAC("not a mac"), -1);
    EXPECT_EQ(queued_messages(qid_), 0);
}

TEST_F(IpcStore, StreamBlockIndexAndUnchangedContent) {
    StreamParams block{};
    block.word[0] = 3840;
    EXPECT_EQ(fSetStreamParams(&block, 4), -1);
    EXPECT_EQ(fSetStreamParams(&block, -1), -1);
    store_->info.stream[2] = block;
    EXPECT_EQ(fSetStreamParams(&block, 2), 0);  // same bytes: nothing to announce
    EXPECT_EQ(queued_messages(qid_), 0);

    std::thread server = serve(qid_, 1, kDone);
    block.word[12] = 1;
    EXPECT_EQ(fSetStreamParams(&block, 3), 0);
    server.join();
    EXPECT_EQ(seen_.section, 1);
    EXPECT_EQ(store_->info.stream[3].word[12], 1u);
    EXPECT_EQ(store_->info.stream[3].word[0], 3840u);
}

TEST_F(IpcStore, FailedWritesReopenTheQueueAfterThree) {
    // A stale answer waiting in the queue must be drained, not taken.
    FileMsg stale{};
    stale.type = kClientId;
    stale.result = kDone;
    ASSERT_TRUE(send_record(qid_, stale));

    std::thread refusing = serve(qid_, 3, 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(SetSysInfo(2), -1);
    refusing.join();

    // The server restarts with a new queue under the same key: only a client
    // that opens the queue again reaches it.
    remove_queue(kSysInfoKey);
    const int fresh = msgget(kSysInfoKey, IPC_CREAT | 0666);
    ASSERT_GE(fresh, 0);
    std::thread server = serve(fresh, 1, kDone);
    EXPECT_EQ(SetSysInfo(2), 0);
    server.join();
    EXPECT_EQ(seen_.section, 2);
}

TEST_F(IpcStore, ResetAndSaveDefaultsReportRefusals) {
    std::thread server = serve(qid_, 2, 1);
    EXPECT_EQ(fResetSysInfo(), -1);
    EXPECT_EQ(seen_.cmd, 2);
    EXPECT_EQ(fSaveSysDefInfo(), -1);
    server.join();
    EXPECT_EQ(seen_.cmd, 3);
}

TEST(IpcStoreFiles, ReplaceConfigLineOnlyAtLineStart) {
    const Scratch dir("ipc_conf");
    const std::string path = dir.path("rtmp.conf");
    const std::string long_line = std::string(600, 'x') + "listen tail\n";
    {
        std::ofstream out(path, std::ios::binary);
        out << "listen              1935;\n"
            << "    listen 80;\n"
            << long_line << "listen\t\t1;\n"
            << "max_connections 1000;";
    }
    ASSERT_EQ(ReplaceConfigLine(path.c_str(), "listen", "listen\t\t2000;\n"), 0);
    EXPECT_EQ(slurp(path),
              "listen\t\t2000;\n    listen 80;\n" + long_line + "listen\t\t2000;\nmax_connections 1000;");
    EXPECT_EQ(dir.entries(), 1);

    EXPECT_EQ(ReplaceConfigLine("/tmp/web_ipc_no_such_dir/x.conf", "a", "b\n"), -1);
}

TEST(IpcStoreFiles, XorChecksumOverUnalignedRanges) {
    alignas(4) uint8_t buf[16];
    for (int i = 0; i < 16; ++i) buf[i] = static_cast<uint8_t>(0x11 * (i + 1));
    auto word = [&](int i) {
        return static_cast<uint32_t>(buf[i]) | buf[i + 1] << 8 | buf[i + 2] << 16 |
               static_cast<uint32_t>(buf[i + 3]) << 24;
    };
    // Head bytes 1..3 alone, then the word 4..7, then tail bytes 8 and 9.
    EXPECT_EQ(XorChecksum(buf + 1, 9), buf[1] ^ buf[2] ^ buf[3] ^ word(4) ^ buf[8] ^ buf[9]);
    EXPECT_EQ(XorChecksum(buf, 8), word(0) ^ word(4));
    EXPECT_EQ(XorChecksum(buf + 3, 2), static_cast<uint32_t>(buf[3] ^ buf[4]));
    EXPECT_EQ(XorChecksum(buf + 2, 0), 0u);
    EXPECT_EQ(XorChecksum(nullptr, 8), 0u);
}
