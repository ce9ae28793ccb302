// The field kit: a settings section as a table of keys over one block of a
// record (each row its key, its place in the block and its JSON form), one
// reader that answers a request from the table and one writer that applies
// a request to a copy of the block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <cjson/cJSON.h>

#include "json/json_section.h"
#include "support/words.h"

// A settings section is a table of keys over one block of a record: each row
// names its key, its place in the block and its JSON form. One reader answers
// a request from the table, one writer applies a request to a copy of the
// block; rows with an algorithm of their own name a function.

enum class FieldForm : uint8_t {
    u8,
    u16,
    i16,
    i32,
    u32,    // numbers of that width, little-endian
    text,   // zero-terminated text of `size` bytes
    ipv4,   // u32 in network byte order, dotted text in JSON
    mac,    // 6 bytes, "%02x:%02x:%02x:%02x:%02x:%02x" in JSON
    words,  // a u8/u32 code (by `size`: 1 or 4) answered as its word
    own,    // read and written by the row's functions only
};

// Which answers a row takes part in: the whole section (value true), a
// request naming the key, and the answer after a write. Bits.
inline constexpr uint8_t kInWhole = 1;
inline constexpr uint8_t kInKeyed = 2;
inline constexpr uint8_t kInAfter = 4;
inline constexpr uint8_t kInAll = kInWhole | kInKeyed | kInAfter;

struct Field;

// What a row's write function works on: the working block, the section's own
// state for the request, and the reply (for rows that answer for themselves).
struct FieldWrite {
    uint8_t* block;
    void* extra;
    cJSON* reply;
};

struct Field {
    std::string_view name;
    FieldForm form;
    uint16_t offset = 0;
    uint16_t size = 0;  // text capacity, or the width of a word code
    Words words{};
    bool writable = true;
    uint8_t in = kInAll;
    // An indexed row: the key is `name` directly followed by a decimal index
    // below `count` ("task0".."task3"); the whole answer lists every index.
    uint8_t count = 0;
    bool exact_name = false;  // answered under the row's spelling, not the request's
    // Own reading: the answer, or null (false). `index` is the indexed row's.
    cJSON* (*read)(const Field& row, const uint8_t* block, int index) = nullptr;
    // Own writing: false refuses the member.
    bool (*write)(const Field& row, FieldWrite& ctx, const cJSON* item, int index) = nullptr;
    // Answered in the whole and after-write answers only when this holds.
    bool (*shown)(const uint8_t* block) = nullptr;

    // Modifiers, so that a table row reads like the columns it sets.
    using Reader = cJSON* (*)(const Field&, const uint8_t*, int);
    using Writer = bool (*)(const Field&, FieldWrite&, const cJSON*, int);
    // clang-format off
    constexpr Field only_in(uint8_t answers) const { Field f = *this; f.in = answers; return f; }
    constexpr Field read_only() const { Field f = *this; f.writable = false; return f; }
    constexpr Field read_by(Reader fn) const { Field f = *this; f.read = fn; return f; }
    constexpr Field written_by(Writer fn) const { Field f = *this; f.write = fn; return f; }
    constexpr Field shown_when(bool (*fn)(const uint8_t*)) const { Field f = *this; f.shown = fn; return f; }
    constexpr Field indexed(uint8_t n) const { Field f = *this; f.count = n; return f; }
    constexpr Field exact() const { Field f = *this; f.exact_name = true; return f; }
    // clang-format on
};
using Fields = std::span<const Field>;

// Row constructors: a number of the given width, a text of `size` bytes, a
// code of `width` bytes answered as its word, and a row of functions only.
constexpr Field field(std::string_view key, FieldForm form, uint16_t offset) { return {key, form, offset}; }
constexpr Field text_field(std::string_view key, uint16_t offset, uint16_t size) {
    return {key, FieldForm::text, offset, size};
}
constexpr Field word_field(std::string_view key, uint16_t offset, uint16_t width, Words words) {
    return {key, FieldForm::words, offset, width, words};
}
constexpr Field own_field(std::string_view key) { return {key, FieldForm::own}; }

// How a section reads a request that is not `true`.
struct ReadRules {
    bool other_is_empty = false;  // a value neither true nor object: {} and 0 (else false, -1)
    bool non_true_fails = true;   // a member not true: false and -1 (else false only)
    bool unknown_fails = true;    // a key no row names: false and -1 (else false only)
};

// The stored number of a number or address row (an address as its 32-bit
// word in network byte order); 0 for other forms.
int64_t field_number(const Field& row, const uint8_t* block);
// The value of a row as JSON, or null when it has none to give.
cJSON* field_value(const Field& row, const uint8_t* block, int index = 0);
// Takes a member's value into the block; false for a wrong type, a read-only
// row, a text that does not fit or an address that does not parse. A word
// the row's list does not know leaves the block as it was.
bool field_store(const Field& row, FieldWrite& ctx, const cJSON* item, int index = 0);

// Every row taking part in `in`, in table order, under the table's names.
void fields_answer(Fields table, const uint8_t* block, cJSON* answer, uint8_t in);

// Reads a section: `true` answers every whole-answer row in table order; an
// object answers its members whose value is true, under the request's
// spelling; a missing block answers the section false. 0 or -1.
int fields_read(Fields table, const uint8_t* block, cJSON* member, cJSON* reply, ReadRules rules = {});
// The same for a request object answered under the section key `section`.
int fields_read(Fields table, const uint8_t* block, const cJSON* request, const char* section, cJSON* reply,
                ReadRules rules = {});

// Applies every member of `member` to the block in order, all of them even
// after a refusal. When `answer` is given each member is answered there,
// true when taken and false when refused. 0 when all were taken, else -1.
int fields_apply(Fields table, FieldWrite& ctx, const cJSON* member, cJSON* answer = nullptr);

// The bytes a row of the field kit occupies in its block (0 for a row of
// functions only).
constexpr size_t field_bytes(const Field& row) {
    switch (row.form) {
    case FieldForm::u8: return 1;
    case FieldForm::u16:
    case FieldForm::i16: return 2;
    case FieldForm::i32:
    case FieldForm::u32:
    case FieldForm::ipv4: return 4;
    case FieldForm::mac: return 6;
    case FieldForm::text:
    case FieldForm::words: return row.size;
    case FieldForm::own: return 0;
    }
    return 0;
}
// Whether `key` names a row of `table` (case-blind, as requests do).
constexpr bool names_a_row(Fields table, std::string_view key) {
    for (const Field& row : table)
        if (same_word(row.name, key)) return true;
    return false;
}

// Whether every row of a table lies inside a block of `size` bytes.
constexpr bool fields_fit(Fields table, size_t size) {
    for (const Field& row : table)
        if (row.offset + field_bytes(row) > size) return false;
    return true;
}
// The whole section `key` answered from `block` (the after-write answer with
// kInAfter), or false when the block is missing. 0 or -1.
int block_answer(Fields table, const uint8_t* block, const char* key, cJSON* reply, uint8_t in);
