#include <gtest/gtest.h>

#include <cstring>

#include "records/records.h"
#include "ipc/msg_util.h"
#include "ipc/sys_msg_drv.h"
#include "ipc/sys_port.h"
#include "test_ipc_peer.h"

namespace {

constexpr int kLinkId = 14;
constexpr int kSlice = (kLinkId - 2) * PROC_MEM_SIZE;  // 122880
constexpr int kReplyAt = 200000;                       // where the fake server answers

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
    EXPECT_EQ(sys_send_text(SysCmd::device_name, nullptr), -1);
    EXPECT_EQ(sys_send_text(SysCmd::standby, "x"), -1);  // a command of another kind
    EXPECT_EQ(queued_messages(qid_), 0);
    EXPECT_EQ(InitSysMsgDrv(0), -1);
    EXPECT_EQ(InitSysMsgDrv(27), -1);
}

// Each exchange: the command, the bytes sent, the capacity given (-1: none)
// and the reply length; then the result, the capacity after and the buffer.
TEST_F(IpcSysChannel, ExchangesThroughTheOwnSlice) {
    struct Row {
        uint32_t id;
        int sent, capacity, reply_len, result, capacity_after;
        const char* buffer_after;
    };
    const Row rows[] = {
        {18, 7, 8, 3, 3, 3, "012defg"},
        {41, 4, 4, 10, 10, 4, "0123efg"},  // a reply larger than the capacity
        {65, 1, -1, 6, 6, -1, "abcdefg"},  // no capacity: nothing copied
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.id);
        // A stale reply of an earlier exchange must not be taken for this one.
        SysMsg stale{};
        stale.type = kLinkId;
        stale.length = 99;
        ASSERT_TRUE(send_record(qid_, stale));
        std::thread server = answer(r.reply_len);
        char data[8] = "abcdefg";
        int capacity = r.capacity;
        EXPECT_EQ(TransmitMsg2Sys(r.id, data, r.sent, r.capacity < 0 ? nullptr : &capacity), r.result);
        server.join();
        EXPECT_EQ(seen_.cmd, r.id);
        EXPECT_EQ(seen_.src, kLinkId);
        EXPECT_EQ(seen_.length, r.sent);
        EXPECT_EQ(seen_.offset, kSlice);
        EXPECT_EQ(std::string(slice_seen_, r.sent), std::string("abcdefg", r.sent));
        EXPECT_EQ(capacity, r.capacity_after);
        EXPECT_STREQ(data, r.buffer_after);
    }
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
