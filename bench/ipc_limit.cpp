// The physical limit of the camera channel: a bare System V message
// ping-pong between two processes, records of the camera channel's size, no
// work on either side. Run it pinned where the responder and the camera's
// process run (taskset), as the benchmark does.
// Usage: ipc_limit [ROUND_TRIPS, default 20000]
// Prints the round trip in microseconds.
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "records/records.h"

namespace {

double now_us() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

}  // namespace

int main(int argc, char** argv) {
    const long rounds = argc > 1 ? std::atol(argv[1]) : 20000;
    if (rounds <= 0) return 2;
    const int qid = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
    if (qid < 0) {
        std::perror("msgget");
        return 1;
    }
    const pid_t echo = fork();
    if (echo == 0) {  // the camera's side: every record back with type 2
        CamMsg m{};
        for (long i = 0; i < rounds; ++i) {
            if (msgrcv(qid, &m, kCamMsgBody, 1, 0) < 0) _exit(1);
            m.type = 2;
            if (msgsnd(qid, &m, kCamMsgBody, 0) < 0) _exit(1);
        }
        _exit(0);
    }
    CamMsg m{};
    const double start = now_us();
    for (long i = 0; i < rounds; ++i) {
        m.type = 1;
        m.seq = static_cast<int32_t>(i);
        if (msgsnd(qid, &m, kCamMsgBody, 0) < 0 || msgrcv(qid, &m, kCamMsgBody, 2, 0) < 0) {
            std::perror("ping-pong");
            break;
        }
    }
    const double took = now_us() - start;
    int status = 0;
    waitpid(echo, &status, 0);
    msgctl(qid, IPC_RMID, nullptr);
    std::printf("%.2f\n", took / static_cast<double>(rounds));
    return 0;
}
