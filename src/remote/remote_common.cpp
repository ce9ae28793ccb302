#include "remote/remote_common.h"

#include <algorithm>
#include <cstdio>
#include <strings.h>

#include "cgi/output.h"
#include "cgi/reply.h"

namespace remote {

namespace {

int digit_value(char c, int base) {
    int v = -1;
    if (c >= '0' && c <= '9')
        v = c - '0';
    else if (c >= 'a' && c <= 'f')
        v = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
        v = c - 'A' + 10;
    return v < base ? v : -1;
}

// Reads at most `width` digits (0: no limit) from the front of `text`.
// Values are kept within 32 bits; longer digit runs wrap like a C scanner.
std::optional<int32_t> take_number(std::string_view& text, int base, size_t width) {
    size_t n = 0;
    uint32_t value = 0;
    while (n < text.size() && (width == 0 || n < width)) {
        const int d = digit_value(text[n], base);
        if (d < 0) break;
        value = value * static_cast<uint32_t>(base) + static_cast<uint32_t>(d);
        ++n;
    }
    if (n == 0) return std::nullopt;
    text.remove_prefix(n);
    return static_cast<int32_t>(value);
}

struct SpeedStep {
    int speed;     // the received speed (1/x seconds)
    int position;  // the camera's shutter step
};

// Received shutter speeds of "OSJ:06" and the step each selects; "OSJ:09"
// receives ten times these values.
constexpr std::array<SpeedStep, 30> kSpeedSteps{{
    {25, 5},    {30, 5},    {50, 6},    {60, 6},    {75, 7},    {90, 7},     {100, 8},   {120, 9},
    {125, 9},   {150, 10},  {180, 10},  {215, 11},  {250, 11},  {300, 12},   {350, 12},  {425, 13},
    {500, 13},  {600, 14},  {725, 14},  {1000, 15}, {1250, 16}, {1500, 16},  {1750, 17}, {2000, 17},
    {2500, 18}, {3000, 18}, {3500, 19}, {4000, 19}, {6000, 20}, {10000, 21},
}};

// One row per shutter step 5..21.
struct ShutterRow {
    ShutterPair ptg60, ptg50;  // "#PTG" pairs
    int osj60, osj50;          // "OSJ:06" speeds (0: the family's default)
    int osj9_60, osj9_50;      // "OSJ:09" speeds (0: the family's default)
};
constexpr int kFirstStep = 5;
constexpr std::array<ShutterRow, 17> kShutterRows{{
    /*  5 */ {{30, 300}, {25, 250}, 0, 0, 0, 0},
    /*  6 */ {{60, 600}, {50, 500}, 60, 50, 600, 0},
    /*  7 */ {{90, 900}, {75, 750}, 90, 75, 900, 0},
    /*  8 */ {{100, 1000}, {100, 1000}, 100, 100, 1000, 1000},
    /*  9 */ {{125, 1250}, {120, 1200}, 125, 120, 1250, 1200},
    /* 10 */ {{180, 1800}, {150, 1500}, 180, 150, 1800, 1500},
    /* 11 */ {{250, 2500}, {215, 21500}, 250, 215, 2500, 2150},
    /* 12 */ {{350, 3500}, {300, 3000}, 350, 300, 3500, 3000},
    /* 13 */ {{500, 5000}, {425, 4250}, 500, 425, 5000, 4250},
    /* 14 */ {{725, 7250}, {600, 6000}, 725, 600, 7250, 6000},
    /* 15 */ {{1000, 10000}, {1000, 10000}, 1000, 1000, 10000, 10000},
    /* 16 */ {{1500, 15000}, {1250, 12500}, 1500, 1250, 15000, 12500},
    /* 17 */ {{2000, 20000}, {1750, 17500}, 2000, 1750, 20000, 17500},
    /* 18 */ {{3000, 30000}, {2500, 25000}, 3000, 2500, 30000, 25000},
    /* 19 */ {{4000, 40000}, {3500, 35000}, 4000, 3500, 40000, 35000},
    /* 20 */ {{6000, 60000}, {6000, 60000}, 6000, 6000, 60000, 60000},
    /* 21 */ {{10000, 100000}, {10000, 100000}, 10000, 10000, 100000, 100000},
}};
constexpr ShutterPair kPtgDefault{25, 250};

const ShutterRow* shutter_row(int position) {
    if (position < kFirstStep || position >= kFirstStep + static_cast<int>(kShutterRows.size()))
        return nullptr;
    return &kShutterRows[static_cast<size_t>(position - kFirstStep)];
}

// "OSH:<v>" values and the shutter step each selects.
struct OshStep {
    int value;
    int position;
};
constexpr std::array<OshStep, 9> kOshSteps{{
    {3, 8},
    {5, 11},
    {6, 13},
    {7, 17},
    {8, 17},
    {9, 19},
    {10, 21},
    {14, 5},
    {15, 5},
}};

// Shutter steps answered by "QSH" and their digits.
constexpr std::array<OshStep, 7> kQshDigits{{
    {3, 8},
    {5, 11},
    {6, 13},
    {7, 15},
    {8, 17},
    {9, 19},
    {10, 21},
}};

// F-number times ten for iris steps 0..13.
constexpr std::array<int, 14> kIrisCodes{140, 140, 110, 96, 80, 68, 56, 48, 40, 34, 28, 24, 20, 18};

}  // namespace

bool command_matches(std::string_view command, std::string_view pattern, size_t length) {
    if (length == 0) {
        return command.size() == pattern.size() &&
               strncasecmp(command.data(), pattern.data(), pattern.size()) == 0;
    }
    return command.size() == length && command.size() >= pattern.size() &&
           strncasecmp(command.data(), pattern.data(), pattern.size()) == 0;
}

int scan_fields(std::string_view text, std::string_view fields, std::array<int32_t, 4>& slots) {
    int written = 0;
    for (size_t i = 0; i + 1 < fields.size() && static_cast<size_t>(written) < slots.size(); i += 2) {
        const int base = (fields[i] == 'x') ? 16 : 10;
        const size_t width = static_cast<size_t>(fields[i + 1] - '0');
        const auto value = take_number(text, base, width);
        if (!value) break;
        slots[static_cast<size_t>(written++)] = *value;
    }
    return written;
}

std::optional<int> leading_number(std::string_view text, int base) { return take_number(text, base, 0); }

Drive pan_tilt_speed(int value, int k) {
    if (value == 50) return {3, 10};
    if (value > 50) return {2, (value - 50) * k / 50};
    return {1, (50 - value) * k / 50};
}

Drive zoom_speed(int value) {
    if (value < 50) return {1, (50 - value) * 24};
    if (value == 50) return {2, 10};
    return {2, (value - 50) * 24};
}

Drive focus_speed(int value) {
    if (value < 50) return {1, (50 - value) * 7};
    if (value == 50) return {2, 5};
    return {2, (value - 50) * 7};
}

int position_to_motor(int value) { return static_cast<int>(static_cast<int64_t>(value) * 16384 / 2730); }

int position_from_motor(int position) {
    return static_cast<int>(static_cast<int64_t>(position) * 2730 / 16384 + 1365);
}

bool fifty_hertz_family(int frame_rate) { return frame_rate % 25 == 0; }

ShutterPair ptg_shutter(int position, bool fifty) {
    const ShutterRow* row = shutter_row(position);
    if (!row) return kPtgDefault;
    return fifty ? row->ptg50 : row->ptg60;
}

int shutter_speed_of(int position, bool fifty, bool tenths) {
    const ShutterRow* row = shutter_row(position);
    int speed = 0;
    if (row) speed = tenths ? (fifty ? row->osj9_50 : row->osj9_60) : (fifty ? row->osj50 : row->osj60);
    if (speed != 0) return speed;
    const int fallback = fifty ? 25 : 30;
    return tenths ? fallback * 10 : fallback;
}

int shutter_position_of(int speed, bool tenths) {
    for (const SpeedStep& step : kSpeedSteps)
        if (speed == (tenths ? step.speed * 10 : step.speed)) return step.position;
    return -1;
}

int osh_position(int value) {
    for (const OshStep& step : kOshSteps)
        if (step.value == value) return step.position;
    return -1;
}

int qsh_digit(int position) {
    for (const OshStep& step : kQshDigits)
        if (step.position == position) return step.value;
    return 0;
}

int iris_code(int iris) {
    if (iris < 0 || iris >= static_cast<int>(kIrisCodes.size())) return 20;
    return kIrisCodes[static_cast<size_t>(iris)];
}

void answer_text(std::string_view text) {
    out_write(kHdrText.data(), kHdrText.size());
    if (!text.empty()) {
        out_write(text.data(), text.size());
        out_write("\r\n", 2);
    }
}

void answer_refusal(char code, std::string_view command) {
    out_write(kHdrText.data(), kHdrText.size());
    if (!command.empty())
        out_printf("\"ER%c:%.*s\"\r\n", code, static_cast<int>(command.size()), command.data());
}

}  // namespace remote
