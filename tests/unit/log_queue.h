// The logger on a message queue of the test's own (never the collector's),
// at `level`, with the lines it queued read back by drain().
#pragma once

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "records/records.h"
#include "support/elog.h"

class LogQueueTest : public ::testing::Test {
protected:
    void start(int level) {
        saved_level_ = g_print_level;
        key_ = 0x6E000000 | (::getpid() & 0xFFFFFF);
        if (const int stale = ::msgget(key_, 0); stale >= 0) ::msgctl(stale, IPC_RMID, nullptr);
        qid_ = ::msgget(key_, IPC_CREAT | IPC_EXCL | 0600);
        ASSERT_GE(qid_, 0);
        elog_port_set_queue(true, key_);
        g_print_level = level;
        elog_init(g_print_level);
    }
    void TearDown() override {
        elog_deinit();
        ::msgctl(qid_, IPC_RMID, nullptr);
        elog_port_set_queue(true, kLogMsgKey);
        elog_assert_set_hook(nullptr);
        g_print_level = saved_level_;
    }
    std::vector<std::string> drain() {
        std::vector<std::string> lines;
        LogMsg msg{};
        while (::msgrcv(qid_, &msg, sizeof(msg) - sizeof(long), 0, IPC_NOWAIT) > 0) {
            EXPECT_EQ(msg.type, 1);
            const size_t length = msg.length;  // packed field: copy before use
            lines.emplace_back(msg.text, length);
        }
        return lines;
    }
    int saved_level_ = 3;
    int key_ = 0;
    int qid_ = -1;
};
