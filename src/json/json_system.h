// The "system" section of the JSON control API: identity, clock, features,
// storage, logs, schedules and the maintenance actions.
#pragma once

#include <cstddef>
#include <cstdint>

struct cJSON;

int json_system_get_ctrl(cJSON* member, cJSON* reply);
int json_system_set_ctrl(cJSON* member, cJSON* reply);

// The parameter export's header for an archive of `archive_length` bytes.
inline constexpr size_t kParamsHeaderSize = 344;
void json_params_header(uint8_t (&header)[kParamsHeaderSize], uint32_t archive_length);
