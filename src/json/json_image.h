// The "image" section of the JSON control API.
#pragma once

#include <cstdint>

struct cJSON;

int json_image_get_ctrl(cJSON* member, cJSON* reply);
int json_image_set_ctrl(cJSON* member, cJSON* reply);

// Reads one setting of the image key table (case-blind key) and answers it
// under `key` in `answer`: 0 when answered, -1 when it was answered false
// because the reading failed or the key is unknown. The write handler reads
// its settings back through this.
int json_image_read_key(const char* key, cJSON* answer);

// Array of the output format names whose bits are set in `mask`, in the
// camera's list order; null when none is set. A non-zero `short_list` offers
// only 1920X1080P@60Hz and 1920X1080P@50Hz.
cJSON* json_format_list(uint64_t mask, int short_list);

// Motor position (pan or tilt word of the camera-information area) in whole
// degrees, truncated toward zero.
int json_image_degrees(int32_t position);
