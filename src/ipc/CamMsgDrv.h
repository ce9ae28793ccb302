// The camera command channel: VISCA packets to the camera-control process on
// queue 217701, each reply paired with its request by sequence number.
#pragma once

#include <cstdint>

int CamMsgCltInit(int id);
void CamMsgCltExit();
int CamMsgSvrInit();
void CamMsgSvrExit();

// The reply overwrites `packet`; `capacity` (in: room, out: length) may be null.
int TramsMsg2Cam(uint8_t* packet, int length, int* capacity);
int TramsMsg2CamNowait(const uint8_t* packet, int length);
int TramsMsg2CamNowait1(const uint8_t* packet, int length, int* seq);
int RecvMsgFromCam(uint8_t* buffer, int* capacity, int timeout_ms);
int RecvMsgFromCam1(uint8_t* buffer, int* capacity, int timeout_ms, int* seq);
void FlushMsgFromCam();

int SendMsg2CamClt(long type, const uint8_t* data, int length, int seq);
int RecvMsgFromCamClt(uint8_t* buffer, int* length, int* seq);

// Reply time-out in milliseconds chosen from the packet's first bytes.
int CamMsgTimeout(const uint8_t* packet, int length);

// 1 when the last TramsMsg2Cam ended because its reply did not come in time.
int CamMsgLastTimedOut();
