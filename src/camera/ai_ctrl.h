// Auto-tracking operations of the camera command set: the packets that
// switch tracking, framing and locks, and the pan-tilt limit inquiry.
#pragma once

#include <cstdint>
#include <string_view>

enum class AiArg { Number, Word, True };

struct AiParam {
    std::string_view key;
    AiArg arg;
};

// The row of `key` (compared without regard to case), or -1.
int ai_ctrl_find(std::string_view key);
const AiParam& ai_ctrl_param(int row);
// Sends the row's packet. Number rows take the value, True rows ignore it;
// Word rows take the word through ai_ctrl_send_word. 0 sent, -1 refused.
int ai_ctrl_send(int row, int value);
int ai_ctrl_send_word(int row, const char* word);
// The pan-tilt limit from the camera (completion form), or -1.
int ai_ptlimit_get();
