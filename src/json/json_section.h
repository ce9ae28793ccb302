// What every section of the JSON control API is built from: the section
// tables of the two dispatchers, the per-member walk a section handler runs
// over its request object, and case-blind key lookup in constexpr tables.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <cjson/cJSON.h>

#include "ipc/sys_commands.h"
#include "records/records.h"
#include "support/words.h"

// A section handler gets the request member (its key is the section name)
// and the reply object; it adds its answer and returns 0 or -1.
using json_section_fn = int (*)(cJSON* member, cJSON* reply);

// Whether a section takes its member whatever the JSON type, or only objects
// (a non-object value is then answered with the section's name and false).
enum class SectionValue : uint8_t { any, object };

// One row of a dispatcher's section table. A null handler marks a member the
// walk skips as a success ("key").
struct JsonSection {
    std::string_view name;
    SectionValue value;
    json_section_fn handler;
};

// Runs every top-level member of `request` through `table` and adds
// "status". Returns 0 when every member succeeded, -1 otherwise.
int json_section_dispatch(std::span<const JsonSection> table, cJSON* request, cJSON* reply);

// Stand-in for sections not served yet: answers its own name with false.
int json_section_pending(cJSON* member, cJSON* reply);
// A section that is deliberately not served: fails and adds nothing.
int json_section_refused(cJSON* member, cJSON* reply);

// Adds `item` under `key`; frees it when it cannot be attached. A null item
// (a failed allocation) is answered as nothing.
void json_answer(cJSON* answer, const char* key, cJSON* item);
inline void json_answer_false(cJSON* answer, const char* key) {
    json_answer(answer, key, cJSON_CreateFalse());
}
inline void json_answer_true(cJSON* answer, const char* key) { json_answer(answer, key, cJSON_CreateTrue()); }
inline void json_answer_bool(cJSON* answer, const char* key, bool value) {
    json_answer(answer, key, cJSON_CreateBool(value));
}
inline void json_answer_number(cJSON* answer, const char* key, double value) {
    json_answer(answer, key, cJSON_CreateNumber(value));
}

// The walk every section handler shares: creates the section's answer
// object, hands each member of the request object in order to
// `each(item, answer, result)` (which answers under item->string and may set
// `result`), and attaches the answer under the member's own key. With no
// reply object or no memory the section answers false and -1; an empty
// request object answers an empty object and 0.
template <typename Each>
int json_section_walk(cJSON* member, cJSON* reply, Each&& each) {
    if (member == nullptr) return -1;
    cJSON* answer = reply != nullptr ? cJSON_CreateObject() : nullptr;
    if (answer == nullptr) {
        if (reply != nullptr) json_answer_false(reply, member->string);
        return -1;
    }
    int result = 0;
    for (cJSON* item = member->child; item != nullptr; item = item->next) each(item, answer, result);
    json_answer(reply, member->string, answer);
    return result;
}

// The walk of a section whose members are named by the rows of a table
// ("main" and "sub", "eth0"): a member no row names, or whose value is
// neither an object nor (unless `objects_only`) true, answers false and
// fails; the others go to `serve(row, item, answer)`, which answers the
// member and says whether it succeeded.
template <typename Row, typename Serve>
int json_rows_walk(std::span<const Row> rows, cJSON* member, cJSON* reply, bool objects_only, Serve&& serve) {
    return json_section_walk(member, reply, [&](cJSON* item, cJSON* answer, int& result) {
        const Row* row = find_row(rows, item->string);
        if (row == nullptr || !(cJSON_IsObject(item) || (!objects_only && cJSON_IsTrue(item)))) {
            json_answer_false(answer, item->string);
            result = -1;
            return;
        }
        if (!serve(*row, item, answer)) result = -1;
    });
}

// Answers `value` under the item's key, or false when it is null; whether
// there was a value.
inline bool json_answer_value(cJSON* answer, const cJSON* item, cJSON* value) {
    if (value == nullptr) {
        json_answer_false(answer, item->string);
        return false;
    }
    json_answer(answer, item->string, value);
    return true;
}

// ---- field tables over a record block ------------------------------------------
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
    int arg = 0;              // for the row's own functions
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
    constexpr Field with_arg(int a) const { Field f = *this; f.arg = a; return f; }
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

// A block of the settings record that is sent whole with one command. Its
// size is the command's width (settings_block checks it when it compiles).
struct SettingsBlock {
    Fields fields;
    size_t offset;  // in SysInfo
    size_t size;
    SysCmd command;
};

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
// Whether every row of a table lies inside a block of `size` bytes.
constexpr bool fields_fit(Fields table, size_t size) {
    for (const Field& row : table)
        if (row.offset + field_bytes(row) > size) return false;
    return true;
}
// A settings block is as large as its command carries, and holds its rows.
constexpr bool settings_block_ok(const SettingsBlock& b) {
    return static_cast<int>(b.size) == sys_cmd_width(b.command) && fields_fit(b.fields, b.size);
}

// The one writer of settings blocks: copies the block out of the record,
// applies the members to the copy, and sends the copy. With `all_or_nothing`
// a refused member (or a failed `check`) sends nothing; otherwise the taken
// members are sent all the same. With `only_changed` a copy equal to the
// stored block is not sent. 0 when every member was taken and the block
// sent (or left unsent as unchanged), else -1.
struct BlockRules {
    bool all_or_nothing = true;
    bool only_changed = false;
    bool (*check)(const uint8_t* work) = nullptr;
};
inline constexpr size_t kBlockMax = 1024;  // the largest block a section sends, with room
int block_write(const SettingsBlock& block, const cJSON* member, FieldWrite& ctx, BlockRules rules = {});

// A section that is one block: block_write, then the section answered false,
// or whole from the record as it now stands. 0 or -1.
int block_section_write(const SettingsBlock& block, cJSON* member, cJSON* reply, BlockRules rules = {});

// The stored block of the settings record, or null when the record is not there.
const uint8_t* block_stored(const SettingsBlock& block);

// The whole section `key` answered from `block` (the after-write answer with
// kInAfter), or false when the block is missing. 0 or -1.
int block_answer(Fields table, const uint8_t* block, const char* key, cJSON* reply, uint8_t in);
