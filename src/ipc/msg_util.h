// System V message queues. Sizes are whole message sizes: the 8-byte type
// word is not counted in what goes over the queue.
#pragma once

int Msg_Init(int key);
int Msg_Kill(int qid);
int Msg_Send(int qid, void* msg, int size);
int Msg_Rcv(int qid, int type, void* msg, int size);
int Msg_Send_Rcv(int qid, int type, void* msg, int size);
// Receives without waiting and throws away every message of `type` until the
// queue holds none: stale replies of an exchange that was given up.
void Msg_Drain(int qid, long type);
