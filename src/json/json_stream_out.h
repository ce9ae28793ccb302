// The stream output sections of the JSON control API: "rtmp" (push to an
// RTMP server) and "rtp multicast".
#pragma once

struct cJSON;

int json_rtmp_get_ctrl(cJSON* member, cJSON* reply);
int json_rtmp_set_ctrl(cJSON* member, cJSON* reply);
int json_multicast_get_ctrl(cJSON* member, cJSON* reply);
int json_multicast_set_ctrl(cJSON* member, cJSON* reply);
