// The field kit: reading, writing and answering the rows of a table over a
// record block.
#include "json/json_fields.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "net/net_config.h"

namespace {

template <typename T>
T load(const uint8_t* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}
template <typename T>
void store(uint8_t* at, T value) {
    std::memcpy(at, &value, sizeof value);
}

int64_t load_number(FieldForm form, const uint8_t* at) {
    switch (form) {
    case FieldForm::u8: return at[0];
    case FieldForm::u16: return load<uint16_t>(at);
    case FieldForm::i16: return load<int16_t>(at);
    case FieldForm::i32: return load<int32_t>(at);
    case FieldForm::u32:
    case FieldForm::ipv4: return load<uint32_t>(at);
    default: return 0;
    }
}

int64_t load_code(const Field& row, const uint8_t* at) { return row.size == 4 ? load<uint32_t>(at) : at[0]; }

// The index of an indexed row's key ("task2" → 2), or -1 when the rest of
// the key is not a plain decimal number.
int key_index(const Field& row, std::string_view key) {
    std::string_view digits = key.substr(row.name.size());
    if (digits.empty() || digits.size() > 6) return -1;
    int index = 0;
    for (char c : digits) {
        if (c < '0' || c > '9') return -1;
        index = index * 10 + (c - '0');
    }
    return index;
}

// The row `key` names among those that `fits`, with the index of an indexed
// row; null when none does.
template <typename Fits>
const Field* find_field(Fields table, const char* key, int& index, Fits fits) {
    if (key == nullptr) return nullptr;
    const std::string_view k(key);
    for (const Field& row : table) {
        if (!fits(row)) continue;
        if (row.count == 0) {
            if (same_word(k, row.name)) {
                index = 0;
                return &row;
            }
        } else if (k.size() > row.name.size() && same_word(k.substr(0, row.name.size()), row.name)) {
            const int i = key_index(row, k);
            if (i < 0) continue;
            index = i;
            return &row;
        }
    }
    return nullptr;
}

void answer_row(const Field& row, const uint8_t* block, cJSON* answer, int index) {
    if (row.count == 0) {
        json_answer(answer, row.name.data(), field_value(row, block, index));  // names are literals
        return;
    }
    char key[48];
    std::snprintf(key, sizeof key, "%.*s%d", static_cast<int>(row.name.size()), row.name.data(), index);
    json_answer(answer, key, field_value(row, block, index));
}

}  // namespace

int64_t field_number(const Field& row, const uint8_t* block) {
    return load_number(row.form, block + row.offset);
}

cJSON* field_value(const Field& row, const uint8_t* block, int index) {
    if (row.read != nullptr) return row.read(row, block, index);
    const uint8_t* at = block + row.offset;
    switch (row.form) {
    case FieldForm::u8:
    case FieldForm::u16:
    case FieldForm::i16:
    case FieldForm::i32:
    case FieldForm::u32: return cJSON_CreateNumber(static_cast<double>(load_number(row.form, at)));
    case FieldForm::text: {
        const auto* text = reinterpret_cast<const char*>(at);
        return cJSON_CreateString(std::string(text, strnlen(text, row.size)).c_str());
    }
    case FieldForm::ipv4: {
        return cJSON_CreateString(net_dotted(load<uint32_t>(at)).c_str());
    }
    case FieldForm::mac: {
        char text[18];
        std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", at[0], at[1], at[2], at[3], at[4],
                      at[5]);
        return cJSON_CreateString(text);
    }
    case FieldForm::words: {
        const int64_t code = load_code(row, at);
        const char* word = code <= INT32_MAX ? word_of(row.words, static_cast<int>(code)) : nullptr;
        return word != nullptr ? cJSON_CreateString(word) : nullptr;
    }
    case FieldForm::own: break;
    }
    return nullptr;
}

bool field_store(const Field& row, FieldWrite& ctx, const cJSON* item, int index) {
    if (!row.writable) return false;
    if (row.write != nullptr) return row.write(row, ctx, item, index);
    uint8_t* at = ctx.block + row.offset;
    switch (row.form) {
    case FieldForm::u8:
    case FieldForm::u16:
    case FieldForm::i16:
    case FieldForm::i32:
    case FieldForm::u32: {
        if (!cJSON_IsNumber(item)) return false;
        const auto v = static_cast<uint32_t>(item->valueint);  // the low bytes are kept
        if (row.form == FieldForm::u8)
            store(at, static_cast<uint8_t>(v));
        else if (row.form == FieldForm::u16 || row.form == FieldForm::i16)
            store(at, static_cast<uint16_t>(v));
        else
            store(at, v);
        return true;
    }
    case FieldForm::text: {
        if (!cJSON_IsString(item) || item->valuestring == nullptr) return false;
        const size_t length = std::strlen(item->valuestring);
        if (length >= row.size) return false;  // refused rather than cut
        std::memset(at, 0, row.size);
        std::memcpy(at, item->valuestring, length);
        return true;
    }
    case FieldForm::ipv4: {
        in_addr addr{};
        if (!cJSON_IsString(item) || item->valuestring == nullptr || inet_aton(item->valuestring, &addr) == 0)
            return false;
        store(at, static_cast<uint32_t>(addr.s_addr));
        return true;
    }
    case FieldForm::mac: {
        unsigned b[6];
        char tail = 0;
        if (!cJSON_IsString(item) || item->valuestring == nullptr ||
            std::sscanf(item->valuestring, "%2x:%2x:%2x:%2x:%2x:%2x%c", &b[0], &b[1], &b[2], &b[3], &b[4],
                        &b[5], &tail) != 6)
            return false;
        for (int i = 0; i < 6; ++i) at[i] = static_cast<uint8_t>(b[i]);
        return true;
    }
    case FieldForm::words: {
        if (!cJSON_IsString(item)) return false;
        const WordCode* w = word_find(row.words, item->valuestring);
        if (w == nullptr) return true;  // an unknown word changes nothing
        if (row.size == 4)
            store(at, static_cast<uint32_t>(w->code));
        else
            *at = static_cast<uint8_t>(w->code);
        return true;
    }
    case FieldForm::own: break;
    }
    return false;
}

void fields_answer(Fields table, const uint8_t* block, cJSON* answer, uint8_t in) {
    for (const Field& row : table) {
        if ((row.in & in) == 0) continue;
        if (row.shown != nullptr && !row.shown(block)) continue;
        if (row.count == 0) {
            answer_row(row, block, answer, 0);
        } else {
            for (int i = 0; i < row.count; ++i) answer_row(row, block, answer, i);
        }
    }
}

int fields_read(Fields table, const uint8_t* block, const cJSON* member, const char* section, cJSON* reply,
                ReadRules rules) {
    if (member == nullptr) return -1;
    // A table of functions only reads no block.
    const bool own_only =
        std::all_of(table.begin(), table.end(), [](const Field& r) { return r.form == FieldForm::own; });
    const bool usable = (block != nullptr || own_only) && reply != nullptr &&
                        (cJSON_IsTrue(member) || cJSON_IsObject(member) || rules.other_is_empty);
    cJSON* answer = usable ? cJSON_CreateObject() : nullptr;
    if (answer == nullptr) {
        json_answer_false(reply, section);
        return -1;
    }
    int result = 0;
    const auto keyed = [](const Field& r) { return (r.in & kInKeyed) != 0; };
    if (cJSON_IsTrue(member) || cJSON_IsObject(member)) {
        const ReadTally tally = json_read_rule(
            member, answer, [&](cJSON* out) { fields_answer(table, block, out, kInWhole); },
            [&](const cJSON* item) {
                int index = 0;
                return find_field(table, item->string, index, keyed) != nullptr;
            },
            [&](const cJSON* item, cJSON* out) {
                int index = 0;
                const Field* row = find_field(table, item->string, index, keyed);
                const char* key = row->exact_name ? row->name.data() : item->string;
                cJSON* value = field_value(*row, block, index);
                if (value != nullptr) {
                    json_answer(out, key, value);
                } else if (row->form == FieldForm::own) {
                    json_answer_false(out, key);
                    result = -1;
                }  // a code without a word answers nothing
            });
        if ((tally.unknown && rules.unknown_fails) || (tally.not_true && rules.non_true_fails)) result = -1;
    }
    json_answer(reply, section, answer);
    return result;
}

int fields_read(Fields table, const uint8_t* block, cJSON* member, cJSON* reply, ReadRules rules) {
    return fields_read(table, block, member, member != nullptr ? member->string : nullptr, reply, rules);
}

int fields_apply(Fields table, FieldWrite& ctx, const cJSON* member, cJSON* answer) {
    int result = 0;
    for (const cJSON* item = member != nullptr ? member->child : nullptr; item != nullptr;
         item = item->next) {
        int index = 0;
        const Field* row = find_field(table, item->string, index, [](const Field& r) { return r.writable; });
        const bool taken = row != nullptr && field_store(*row, ctx, item, index);
        if (!taken) result = -1;
        if (answer != nullptr) json_answer(answer, item->string, cJSON_CreateBool(taken));
    }
    return result;
}

int block_answer(Fields table, const uint8_t* block, const char* key, cJSON* reply, uint8_t in) {
    cJSON* answer = block != nullptr ? cJSON_CreateObject() : nullptr;
    if (answer == nullptr) {
        json_answer_false(reply, key);
        return -1;
    }
    fields_answer(table, block, answer, in);
    json_answer(reply, key, answer);
    return 0;
}
