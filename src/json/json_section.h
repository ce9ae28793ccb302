// What every section of the JSON control API is built from: the section
// tables of the two dispatchers, the per-member walk a section handler runs
// over its request object, and case-blind key lookup in constexpr tables.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <cjson/cJSON.h>

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

// The one read rule every section follows: `true` (or no request) answers
// the whole section (`whole(out)`); an object answers each member that names
// a key the section knows (`knows(member)`) with the value true through
// `answer(member, out)`, and false for any other member. Says which kinds of
// false came, for sections whose status depends on them.
struct ReadTally {
    bool unknown = false;   // a key the section does not know
    bool not_true = false;  // a known key whose value was not true
};
template <typename Whole, typename Knows, typename Answer>
ReadTally json_read_rule(const cJSON* request, cJSON* out, Whole&& whole, Knows&& knows, Answer&& answer) {
    ReadTally tally;
    if (request == nullptr || cJSON_IsTrue(request)) {
        whole(out);
        return tally;
    }
    for (const cJSON* m = request->child; m != nullptr; m = m->next) {
        const bool known = knows(m);
        if (known && cJSON_IsTrue(m)) {
            answer(m, out);
            continue;
        }
        json_answer_false(out, m->string);
        (known ? tally.not_true : tally.unknown) = true;
    }
    return tally;
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
