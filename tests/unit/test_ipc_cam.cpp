#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include <unistd.h>

#include "ipc/CamMsgDrv.h"
#include "records/records.h"
#include "test_ipc_peer.h"

namespace {

constexpr int kOwnId = 3;

CamMsg reply_to(const CamMsg& request, std::vector<uint8_t> bytes, int seq_shift = 0) {
    CamMsg r{};
    r.type = request.src;
    r.src = 1;
    r.seq = request.seq + seq_shift;
    r.length = static_cast<int32_t>(bytes.size());
    std::memcpy(r.packet, bytes.data(), bytes.size());
    return r;
}

class IpcCamChannel : public ::testing::Test {
protected:
    void SetUp() override {
        remove_queue(kCamMsgKey);
        ASSERT_EQ(CamMsgCltInit(kOwnId), 0);
        qid_ = msgget(kCamMsgKey, 0);
        ASSERT_GE(qid_, 0);
    }
    void TearDown() override {
        CamMsgCltExit();
        remove_queue(kCamMsgKey);
    }
    int qid_ = -1;
};

}  // namespace

TEST(IpcCamTimeout, ChosenFromThePacketHead) {
    struct Row {
        std::vector<uint8_t> packet;
        int ms;
    };
    const Row rows[] = {
        {{0x81, 0x01, 0x06, 0x01, 0x05, 0x05, 0x03, 0x03, 0xFF}, 40000},  // pan-tilt drive
        {{0x81, 0x01, 0x04, 0x3F, 0x02, 0x01, 0xFF}, 40000},
        {{0x81, 0x01, 0x04, 0x24, 0x00, 0xFF}, 40000},
        {{0x81, 0x09, 0x04, 0x47, 0xFF}, 5000},  // inquiry
        {{0x81, 0x09, 0x06, 0x12, 0xFF}, 5000},
        {{0x81, 0x01, 0x04, 0x38, 0x02, 0xFF}, 10000},  // focus mode
        {{0x81, 0x01, 0x04, 0x07, 0x02, 0xFF}, 10000},
        {{0x81, 0x01, 0x04}, 10000},  // too short to name the item
        {{0x81}, 10000},
    };
    for (const Row& row : rows)
        EXPECT_EQ(CamMsgTimeout(row.packet.data(), static_cast<int>(row.packet.size())), row.ms)
            << std::hex << int(row.packet.size() > 2 ? row.packet[2] : 0);
    EXPECT_EQ(CamMsgTimeout(nullptr, 5), 10000);
}

TEST(IpcCamUninitialised, EverySendAndReceiveFails) {
    CamMsgCltExit();
    uint8_t packet[] = {0x81, 0x09, 0x04, 0x00, 0xFF};
    int capacity = sizeof packet;
    int seq = -1;
    EXPECT_EQ(TramsMsg2Cam(packet, sizeof packet, &capacity), -1);
    EXPECT_EQ(TramsMsg2CamNowait(packet, sizeof packet), -1);
    EXPECT_EQ(TramsMsg2CamNowait1(packet, sizeof packet, &seq), -1);
    EXPECT_EQ(RecvMsgFromCam(packet, &capacity, 10), -1);
    EXPECT_EQ(RecvMsgFromCam1(packet, &capacity, 10, &seq), -1);
    EXPECT_EQ(CamMsgCltInit(0), -1);
    EXPECT_EQ(CamMsgCltInit(27), -1);
}

TEST_F(IpcCamChannel, RequestRecordAndReplyPairing) {
    // A reply left by an earlier responder with the same id (its own run of
    // sequence numbers) and one to another request of ours are passed over.
    CamMsg stale{};
    stale.type = kOwnId;
    stale.seq = 0;
    stale.length = 3;
    std::memcpy(stale.packet, "\x90\x60\xFF", 3);
    ASSERT_TRUE(send_record(qid_, stale));

    CamMsg seen{};
    std::thread server = fake_peer<CamMsg>(qid_, 1, [&](int q, const CamMsg& req) {
        seen = req;
        send_record(q, reply_to(req, {0x90, 0x50, 0x77, 0xFF}, +7));  // wrong sequence
        send_record(q, reply_to(req, {0x90, 0x50, 0x02, 0xFF}));
    });
    uint8_t packet[16] = {0x81, 0x09, 0x04, 0x38, 0xFF};
    int capacity = sizeof packet;
    EXPECT_EQ(TramsMsg2Cam(packet, 5, &capacity), 4);
    server.join();

    EXPECT_EQ(capacity, 4);
    EXPECT_EQ(std::memcmp(packet, "\x90\x50\x02\xFF", 4), 0);
    EXPECT_EQ(seen.src, kOwnId);
    EXPECT_EQ(seen.seq, static_cast<int32_t>(static_cast<uint32_t>(getpid()) << 16));
    EXPECT_EQ(seen.length, 5);
    EXPECT_EQ(std::memcmp(seen.packet, "\x81\x09\x04\x38\xFF", 5), 0);
    EXPECT_EQ(seen.packet[5], 0);
}

TEST_F(IpcCamChannel, ReplyClippedToCapacityOrSizedWithoutIt) {
    std::thread server = fake_peer<CamMsg>(qid_, 2, [](int q, const CamMsg& req) {
        send_record(q, reply_to(req, {0x90, 0x50, 0x01, 0x02, 0xFF}));
    });
    uint8_t packet[8] = {0x81, 0x09, 0x04, 0x47, 0xFF, 0xEE, 0xEE, 0xEE};
    int capacity = 3;
    EXPECT_EQ(TramsMsg2Cam(packet, 5, &capacity), 3);
    EXPECT_EQ(capacity, 3);
    EXPECT_EQ(std::memcmp(packet, "\x90\x50\x01\x47", 4), 0);  // fourth byte untouched

    uint8_t again[5] = {0x81, 0x09, 0x04, 0x47, 0xFF};
    EXPECT_EQ(TramsMsg2Cam(again, 5, nullptr), kCamMsgBody);
    server.join();
}

TEST_F(IpcCamChannel, OverlongPacketIsNotSent) {
    uint8_t packet[80] = {0x81, 0x01};
    int capacity = sizeof packet;
    EXPECT_EQ(TramsMsg2Cam(packet, 65, &capacity), -1);
    EXPECT_EQ(queued_messages(qid_), 0);
}

TEST_F(IpcCamChannel, InquiryGivesUpAfterFiveSeconds) {
    uint8_t packet[5] = {0x81, 0x09, 0x04, 0x47, 0xFF};
    int capacity = sizeof packet;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TramsMsg2Cam(packet, 5, &capacity), -1);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(5000));
    EXPECT_LT(waited, std::chrono::milliseconds(9000));  // not the 10 s class
    EXPECT_EQ(queued_messages(qid_), 1);                 // the request went out
    EXPECT_EQ(capacity, 5);
}

TEST_F(IpcCamChannel, NowaitSendsAndReceivesLater) {
    CamMsg stale{};
    stale.type = kOwnId;
    ASSERT_TRUE(send_record(qid_, stale));
    const uint8_t packet[] = {0x81, 0x01, 0x04, 0x07, 0x00, 0xFF};
    EXPECT_EQ(TramsMsg2CamNowait(packet, sizeof packet), 0);
    EXPECT_EQ(queued_messages(qid_), 1);  // the stale reply went, the request is there

    int seq = -1;
    EXPECT_EQ(TramsMsg2CamNowait1(packet, sizeof packet, &seq), 0);
    EXPECT_EQ(seq, static_cast<int32_t>((static_cast<uint32_t>(getpid()) << 16) + 1));
    EXPECT_EQ(queued_messages(qid_), 2);

    uint8_t buffer[8] = {};
    int capacity = sizeof buffer;
    EXPECT_EQ(RecvMsgFromCam(buffer, &capacity, 20), -2);

    CamMsg request{};
    request.src = kOwnId;
    request.seq = seq;
    ASSERT_TRUE(send_record(qid_, reply_to(request, {0x90, 0x41, 0xFF})));
    int got_seq = -1;
    capacity = 2;
    EXPECT_EQ(RecvMsgFromCam1(buffer, &capacity, 100, &got_seq), 2);
    EXPECT_EQ(capacity, 2);
    EXPECT_EQ(got_seq, seq);
    EXPECT_EQ(buffer[1], 0x41);
}

TEST_F(IpcCamChannel, ServerSideAddressesRepliesByType) {
    CamMsgCltExit();
    ASSERT_EQ(CamMsgSvrInit(), 0);  // same queue, now as the server (id 1)

    CamMsg request{};
    request.type = 1;
    request.src = kOwnId;
    request.seq = 41;
    request.length = 5;
    std::memcpy(request.packet, "\x81\x09\x04\x47\xFF", 5);
    ASSERT_TRUE(send_record(qid_, request));
    uint8_t buffer[64] = {};
    int length = 0, seq = 0;
    EXPECT_EQ(RecvMsgFromCamClt(buffer, &length, &seq), kOwnId);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(seq, 41);
    EXPECT_EQ(buffer[3], 0x47);

    const uint8_t answer[] = {0x90, 0x50, 0x02, 0xFF};
    EXPECT_EQ(SendMsg2CamClt(kOwnId, answer, sizeof answer, seq), 0);
    EXPECT_EQ(SendMsg2CamClt(kOwnId, buffer, 65, seq), -1);
    CamMsg reply{};
    ASSERT_TRUE(recv_within(qid_, kOwnId, reply, std::chrono::milliseconds(100)));
    EXPECT_EQ(reply.src, 1);
    EXPECT_EQ(reply.seq, 41);
    EXPECT_EQ(reply.length, 4);
    EXPECT_EQ(queued_messages(qid_), 0);
    // The server's exit removes by key, not by queue id: the fixture's
    // tear-down removes the queue instead.
}
