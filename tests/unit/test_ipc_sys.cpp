#include <gtest/gtest.h>

#include <cstring>

#include "records/records.h"
#include "ipc/msg_util.h"
#include "ipc/sys_msg_drv.h"
#include "test_ipc_peer.h"

namespace {

constexpr int kLinkId = 14;
constexpr int kSlice = (kLinkId - 2) * PROC_MEM_SIZE;  // 122880
constexpr int kReplyAt = 200000;                        // where the fake server answers

class IpcSysChannel : public ::testing::Test {
protected:
    void SetUp() override {
        remove_queue(kSysMsgKey);
        remove_segment(kSysMsgKey);
        ASSERT_EQ(InitSysMsgDrv(kLinkId), 0);
        qid_ = msgget(kSysMsgKey, 0);
        ASSERT_GE(qid_, 0);
        seg_ = static_cast<uint8_t*>(shmat(shmget(kSysMsgKey, 0, 0), nullptr, 0));
        ASSERT_NE(seg_, reinterpret_cast<uint8_t*>(-1));
    }
    void TearDown() override {
        if (seg_ != reinterpret_cast<uint8_t*>(-1)) shmdt(seg_);
        CleanupSysMsgDrv();
        remove_queue(kSysMsgKey);
        remove_segment(kSysMsgKey);
    }

    // A server that records the request and the data it found in the slice,
    // then answers `reply_len` bytes of "0123456789" at kReplyAt.
    std::thread answer(int reply_len) {
        std::memcpy(seg_ + kReplyAt, "0123456789", 10);
        return fake_peer<SysMsg>(qid_, 1, [this, reply_len](int q, const SysMsg& req) {
            seen_ = req;
            std::memcpy(slice_seen_, seg_ + req.offset, sizeof slice_seen_);
            SysMsg r = req;
            r.type = req.src;
            r.length = reply_len;
            r.offset = kReplyAt;
            send_record(q, r);
        });
    }

    int qid_ = -1;
    uint8_t* seg_ = reinterpret_cast<uint8_t*>(-1);
    SysMsg seen_{};
    char slice_seen_[8]{};
};

}  // namespace

TEST_F(IpcSysChannel, RefusesUnknownIdAndNullBuffer) {
    char data[4] = {};
    EXPECT_EQ(TransmitMsg2Sys(71, data, 4, nullptr), -1);
    EXPECT_EQ(TransmitMsg2Sys(0xFFFFFFFF, data, 4, nullptr), -1);
    EXPECT_EQ(TransmitMsg2Sys(5, nullptr, 4, nullptr), -1);
    EXPECT_EQ(queued_messages(qid_), 0);
    EXPECT_EQ(InitSysMsgDrv(0), -1);
    EXPECT_EQ(InitSysMsgDrv(27), -1);
}

TEST_F(IpcSysChannel, RequestGoesThroughOwnSlice) {
    // A stale reply of an earlier exchange must not be taken for this one.
    SysMsg stale{};
    stale.type = kLinkId;
    stale.length = 99;
    ASSERT_TRUE(send_record(qid_, stale));

    std::thread server = answer(3);
    char data[8] = "abcdefg";
    int capacity = sizeof data;
    EXPECT_EQ(TransmitMsg2Sys(18, data, 7, &capacity), 3);
    server.join();

    EXPECT_EQ(seen_.cmd, 18);
    EXPECT_EQ(seen_.src, kLinkId);
    EXPECT_EQ(seen_.length, 7);
    EXPECT_EQ(seen_.offset, kSlice);
    EXPECT_EQ(std::memcmp(slice_seen_, "abcdefg", 7), 0);
    EXPECT_EQ(capacity, 3);
    EXPECT_EQ(std::memcmp(data, "012defg", 7), 0);
}

TEST_F(IpcSysChannel, ReplyLargerThanCapacity) {
    std::thread server = answer(10);
    char data[8] = "abcdefg";
    int capacity = 4;
    EXPECT_EQ(TransmitMsg2Sys(41, data, 4, &capacity), 10);
    server.join();
    EXPECT_EQ(capacity, 4);
    EXPECT_EQ(std::memcmp(data, "0123efg", 7), 0);
}

TEST_F(IpcSysChannel, NoCapacityCopiesNothing) {
    std::thread server = answer(6);
    char data[8] = "abcdefg";
    EXPECT_EQ(TransmitMsg2Sys(65, data, 1, nullptr), 6);
    server.join();
    EXPECT_EQ(std::memcmp(data, "abcdefg", 7), 0);
}

// A server that never answers costs one deadline, and its late reply is
// drained before the next command rather than taken as that command's.
TEST_F(IpcSysChannel, SilentServerCostsOneDeadline) {
    SetSysMsgDeadline(200);
    char data[4] = {1, 2, 3, 4};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TransmitMsg2Sys(57, data, 4, nullptr), -2);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(190));
    EXPECT_LT(took, std::chrono::milliseconds(2000));
    SetSysMsgDeadline(0);  // the answering server below gets the full deadline
    Msg_Drain(qid_, 1);    // the request the silent server never took
    SysMsg late{};
    late.type = kLinkId;
    late.length = 9;
    send_record(qid_, late);
    std::thread server = answer(3);
    EXPECT_EQ(TransmitMsg2Sys(58, data, 4, nullptr), 3);
    server.join();
}
