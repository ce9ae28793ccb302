// The small text tools every layer shares: case-blind comparison and the one
// shape of a word list (a word and its code), looked up either way.
#pragma once

#include <string.h>
#include <strings.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

// Equal without regard to case (ASCII), lengths included; usable when a
// table is checked as it compiles.
constexpr char ascii_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
constexpr bool same_word(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    if (!std::is_constant_evaluated()) return a.empty() || strncasecmp(a.data(), b.data(), a.size()) == 0;
    for (size_t i = 0; i < a.size(); ++i)
        if (ascii_lower(a[i]) != ascii_lower(b[i])) return false;
    return true;
}
// The same against a C string that may be null (null matches nothing).
inline bool same_word(const char* a, std::string_view b) {
    return a != nullptr && same_word(std::string_view(a), b);
}

// A stored text field, bounded by its array even when it lacks its zero.
template <size_t N>
std::string_view field_text(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

// A named choice: the word as the protocol spells it and its code.
struct WordCode {
    std::string_view word;
    int code;
};
using Words = std::span<const WordCode>;

// The row whose word matches `word` without regard to case, or null.
inline const WordCode* word_find(Words words, std::string_view word) {
    for (const WordCode& w : words)
        if (same_word(w.word, word)) return &w;
    return nullptr;
}
inline const WordCode* word_find(Words words, const char* word) {
    return word != nullptr ? word_find(words, std::string_view(word)) : nullptr;
}
// The first row carrying `code`, or null.
inline const WordCode* code_find(Words words, int code) {
    for (const WordCode& w : words)
        if (w.code == code) return &w;
    return nullptr;
}
// The word of `code`, or null when the list has none.
inline const char* word_of(Words words, int code) {
    const WordCode* w = code_find(words, code);
    return w != nullptr ? w->word.data() : nullptr;  // list words are literals
}

// Finds the row of a table whose `name` matches `key` without regard to case.
template <typename Row>
const Row* find_row(std::span<const Row> table, std::string_view key) {
    for (const Row& row : table)
        if (same_word(row.name, key)) return &row;
    return nullptr;
}
template <typename Row>
const Row* find_row(std::span<const Row> table, const char* key) {
    return key != nullptr ? find_row(table, std::string_view(key)) : nullptr;
}
