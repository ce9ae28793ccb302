#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <vector>

#include "ipc/msg_util.h"
#include "records/records.h"
#include "ipc/sem_util.h"
#include "ipc/share_mem.h"
#include "test_ipc_peer.h"

namespace {

constexpr int kTestQueueKey = 0x7E570001;
constexpr int kTestShmKey = 0x7E570002;

class IpcPrimitives : public ::testing::Test {
protected:
    void SetUp() override {
        remove_queue(kTestQueueKey);
        remove_segment(kTestShmKey);
    }
    void TearDown() override {
        remove_queue(kTestQueueKey);
        remove_segment(kTestShmKey);
    }
};

int queue_mode(int qid) {
    msqid_ds ds{};
    msgctl(qid, IPC_STAT, &ds);
    return ds.msg_perm.mode & 0777;
}

}  // namespace

TEST_F(IpcPrimitives, MsgInitCreatesOrReusesQueue) {
    const int created = Msg_Init(kTestQueueKey);
    ASSERT_GE(created, 0);
    EXPECT_EQ(queue_mode(created), 0666);

    // An existing queue is returned as it is, its permissions untouched.
    msqid_ds ds{};
    msgctl(created, IPC_STAT, &ds);
    ds.msg_perm.mode = 0600;
    ASSERT_EQ(msgctl(created, IPC_SET, &ds), 0);
    EXPECT_EQ(Msg_Init(kTestQueueKey), created);
    EXPECT_EQ(queue_mode(created), 0600);

    EXPECT_EQ(Msg_Kill(created), 0);
    EXPECT_LT(msgget(kTestQueueKey, 0), 0);
    EXPECT_EQ(Msg_Kill(created), 0);  // a vanished queue is no error
}

TEST_F(IpcPrimitives, SendAndReceiveCountWholeSizes) {
    const int qid = Msg_Init(kTestQueueKey);
    ASSERT_GE(qid, 0);
    CamMsg out{};
    out.type = 5;
    out.seq = 42;
    out.packet[67] = 0xAB;  // the last body byte must travel
    errno = EINTR;          // left over from an earlier call: the message still goes once
    ASSERT_EQ(Msg_Send(qid, &out, sizeof out), 0);

    CamMsg in{};
    EXPECT_EQ(Msg_Rcv(qid, 5, &in, sizeof in), kCamMsgBody);
    EXPECT_EQ(in.seq, 42);
    EXPECT_EQ(in.packet[67], 0xAB);
    msqid_ds ds{};
    EXPECT_EQ(msgctl(qid, IPC_STAT, &ds), 0);
    EXPECT_EQ(ds.msg_qnum, 0u);

    EXPECT_LT(Msg_Send(qid, &out, 4), 0);  // smaller than the type word
    EXPECT_LT(Msg_Send(-1, &out, sizeof out), 0);
    EXPECT_LT(Msg_Send_Rcv(-1, 5, &out, sizeof out), 0);
}

TEST_F(IpcPrimitives, ShareMemCopiesOnlyWithinBounds) {
    ASSERT_GE(ShareMemInit(kTestShmKey), 0);
    const int id = shmget(kTestShmKey, 0, 0);
    auto* seg = static_cast<uint8_t*>(shmat(id, nullptr, 0));
    ASSERT_NE(seg, reinterpret_cast<uint8_t*>(-1));

    std::vector<uint8_t> block(PROC_MEM_SIZE + 1, 0x5A);
    // The last slice exactly: 266240 + 10240 = 276480.
    ShareMemWrite(kShmSize - PROC_MEM_SIZE, block.data(), PROC_MEM_SIZE);
    EXPECT_EQ(seg[kShmSize - PROC_MEM_SIZE], 0x5A);
    EXPECT_EQ(seg[kShmSize - 1], 0x5A);

    std::memset(seg, 0, kShmSize);
    ShareMemWrite(0, block.data(), PROC_MEM_SIZE + 1);                         // longer than a slice
    ShareMemWrite(kShmSize - PROC_MEM_SIZE + 1, block.data(), PROC_MEM_SIZE);  // past the end
    ShareMemWrite(-PROC_MEM_SIZE, block.data(), 16);                           // before the start
    ShareMemWrite(0, block.data(), -1);
    for (int i = 0; i < kShmSize; ++i) ASSERT_EQ(seg[i], 0) << "byte " << i;

    std::array<uint8_t, 8> got{};
    std::memcpy(seg + 1000, "abcdefgh", 8);
    ShareMemRead(1000, got.data(), 8);
    EXPECT_EQ(std::memcmp(got.data(), "abcdefgh", 8), 0);
    got.fill(0);
    ShareMemRead(kShmSize - 4, got.data(), 8);  // refused: nothing lands
    EXPECT_EQ(got, (std::array<uint8_t, 8>{}));
    shmdt(seg);
}

TEST_F(IpcPrimitives, SemaphoreNullHandlesAreRefused) {
    EXPECT_EQ(SemWait(nullptr), -1);
    EXPECT_EQ(SemRelease(nullptr), -1);
    EXPECT_EQ(DestroySem(nullptr), -1);
}

TEST_F(IpcPrimitives, DestroySemWaitsForTheHolder) {
    SemHandl_t sem = MakeSem();
    ASSERT_NE(sem, nullptr);
    std::atomic<bool> holding{false}, released{false};
    std::thread holder([&] {
        SemWait(sem);
        holding = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        released = true;
        SemRelease(sem);
    });
    while (!holding) std::this_thread::yield();
    EXPECT_EQ(DestroySem(sem), 0);
    EXPECT_TRUE(released);
    holder.join();
}
