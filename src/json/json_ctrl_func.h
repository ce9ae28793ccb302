// JSON control API: the two dispatchers, and the access key they check.
#pragma once

#include "json/json_access.h"

int json_get_ctrl(const char* text);
int json_set_ctrl(const char* text);
