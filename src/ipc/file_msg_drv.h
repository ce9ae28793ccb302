// The system information store: the settings record and live state that the
// system server keeps in shared memory, and the store's own write path.
#pragma once

#include <cstdint>

#include "records/records.h"

int InitFileMsgDrv(int key, int client_id);
int CleanupFileMsgDrv();

SysInfo* GetSysInfo();
SysState* GetSysState(int wait);
int WaitSysReady(int poll_limit);
CamInfo* GetCamInfoParams();
CamInfo* WaitCamInfoParams(int poll_limit);
AiInfo* GetAiInfoParams();
void* GetExtInfoParams();
MotorInfo* GetMotorInfoParams();

int SetSysInfo(int section);
int fResetSysInfo();
int fSaveSysDefInfo();
int SendFileMsgStop();

int fSetIpAddr(uint32_t ip);
int fSetMAC(const char* mac_text);
int fSetNetMask(uint32_t mask);
int fSetGateway(uint32_t gateway);
int fSetDns(uint32_t dns);
int fSetDhcpEnable(uint8_t enable);
int fSetRtspPort(uint16_t port);
int fSetRtspEncrypt(uint16_t enable);
int fSetWebPort(uint16_t port);
int fSetRtmpPort(uint16_t port);
int fSetHttpPort(uint16_t port);
int fSetViscaPort(uint16_t port);
int fSetOnvifPort(uint16_t port);
int fSetControlHubPort(uint16_t port);
int fSetSsdpEnable(uint8_t enable);
int fSetStreamParams(const StreamParams* params, int index);
int fSetAudioParams(const AudioParams* params);

int ReplaceConfigLine(const char* path, const char* prefix, const char* new_line);
uint32_t XorChecksum(const uint8_t* data, int length);

// Polls of 10 ms the readers wait for the server (1000 by default; a
// negative value restores the default). Lets tests shorten the 10 s wait.
void SetFileMsgPollBudget(int polls);
