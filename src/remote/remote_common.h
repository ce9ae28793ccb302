// Pieces shared by the "aw_ptz" and "aw_cam" interpreters: command matching,
// parameter scanning, speed and position conversions, the shutter and iris
// tables, and the plain-text answers.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace remote {

// ---- matching ------------------------------------------------------------------
// length 0: case-insensitive whole-string comparison with `pattern`;
// otherwise: case-insensitive prefix `pattern` and a command of exactly `length`.
bool command_matches(std::string_view command, std::string_view pattern, size_t length);

// ---- parameter scanning ----------------------------------------------------------
// `fields` lists the conversions, each a base letter and a width digit:
// "x4x4" reads two hexadecimal numbers of at most four digits each, "d2" one
// decimal number of at most two digits, "d0" a decimal number of any width.
// Conversions run in order and stop at the first one that finds no digit;
// the slot of a failed conversion (and of every later one) keeps its value.
// Returns the number of slots written.
int scan_fields(std::string_view text, std::string_view fields, std::array<int32_t, 4>& slots);

// Leading digits of `text` in the given base, or nothing when there are none.
std::optional<int> leading_number(std::string_view text, int base);

// ---- drives ------------------------------------------------------------------------
struct Drive {
    int direction;
    int speed;
};
inline constexpr int kPanK = 24;      // pan, and tilt of "#T"
inline constexpr int kPtsTiltK = 23;  // tilt half of "#PTS"
// Two-digit pan or tilt value (50 = stop): direction 1/2/3 and speed.
Drive pan_tilt_speed(int value, int k);
// Two-digit zoom value: direction 1 in / 2 out; 50 drives out at speed 10.
Drive zoom_speed(int value);
// Two-digit focus value: direction 1 near / 2 far; 50 drives far at speed 5.
Drive focus_speed(int value);

// ---- positions ----------------------------------------------------------------------
// Received three-digit value to the motor's zoom or focus position.
int position_to_motor(int value);
// Motor position to the value reported to a controller.
int position_from_motor(int position);

// ---- exposure tables ---------------------------------------------------------------
// The 25/50 family applies when the camera's frame rate is a multiple of 25.
bool fifty_hertz_family(int frame_rate);

struct ShutterPair {
    int speed;   // 1/x seconds
    int tenths;  // the second field of the "#PTG" answer
};
// Shutter field of the "#PTG" answer for the camera's shutter step.
ShutterPair ptg_shutter(int position, bool fifty);
// Shutter speed reported by "OSJ:06" (tenths false) or "OSJ:09" (tenths true).
int shutter_speed_of(int position, bool fifty, bool tenths);
// Shutter step selected by a received speed, or -1 when no step has it.
int shutter_position_of(int speed, bool tenths);
// Shutter step selected by "OSH:<v>", or -1.
int osh_position(int value);
// Digit of the "QSH:" answer for a shutter step (0 when the step has none).
int qsh_digit(int position);
// F-number times ten for the camera's iris step (20 past the table's end).
int iris_code(int iris);

// ---- answers --------------------------------------------------------------------------
// Plain-text header, then `text` and "\r\n" when `text` is not empty.
void answer_text(std::string_view text);
// Plain-text header, then "\"ER<code>:<command>\"\r\n" unless the command is empty.
void answer_refusal(char code, std::string_view command);

}  // namespace remote
