// Helpers of the IPC tests: clean-up of queues and segments, and fake peers
// that answer on a queue from a thread of the test. Every unit test runs in
// an IPC namespace of its own (scripts/private-ipc.sh), so the camera's fixed
// keys are the test's alone.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <unistd.h>

#include <chrono>
#include <thread>

inline void remove_queue(int key) {
    const int qid = msgget(key, 0);
    if (qid >= 0) msgctl(qid, IPC_RMID, nullptr);
}

inline void remove_segment(int key) {
    const int id = shmget(key, 0, 0);
    if (id >= 0) shmctl(id, IPC_RMID, nullptr);
}

inline long queued_messages(int qid) {
    msqid_ds ds{};
    if (msgctl(qid, IPC_STAT, &ds) < 0) return -1;
    return static_cast<long>(ds.msg_qnum);
}

// Receives one record of `type` into `msg`, giving up after `limit`.
template <class Msg>
bool recv_within(int qid, long type, Msg& msg, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (msgrcv(qid, &msg, sizeof(Msg) - sizeof(long), type, IPC_NOWAIT) >= 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

template <class Msg>
bool send_record(int qid, const Msg& msg) {
    return msgsnd(qid, &msg, sizeof(Msg) - sizeof(long), 0) == 0;
}

// A server thread: takes `count` requests (type 1) and lets `answer` reply.
template <class Msg, class Answer>
std::thread fake_peer(int qid, int count, Answer answer) {
    return std::thread([=] {
        for (int i = 0; i < count; ++i) {
            Msg request{};
            if (!recv_within(qid, 1, request)) return;
            answer(qid, request);
        }
    });
}
