// Tables written as readable lines (texts as string views, handlers as
// function pointers) and compiled as the build runs into plain read-only
// records: every text in one block of the table, addressed by a 16-bit
// offset, and every handler by its small place in one function list. The
// records hold no pointer, so they need no relocation in any link mode and
// the lines themselves never reach the binary.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

#include "support/words.h"

// Where a text lies in its table's block.
struct Text {
    uint16_t at = 0;
    uint8_t len = 0;
};

void text_block_full();  // never defined: reaching it while compiling a table stops the build

// Each text is stored once, followed by a zero so it can serve as a C string.
template <size_t N>
struct TextBlock {
    std::array<char, N> chars{};
    size_t used = 0;
    constexpr Text add(std::string_view s) {
        for (size_t i = 0; i + s.size() < used; ++i)
            if (std::string_view(chars.data() + i, s.size()) == s && chars[i + s.size()] == '\0')
                return {static_cast<uint16_t>(i), static_cast<uint8_t>(s.size())};
        if (used + s.size() + 1 > N || used > 0xFFFF || s.size() > 0xFF) text_block_full();
        const Text t{static_cast<uint16_t>(used), static_cast<uint8_t>(s.size())};
        for (char c : s) chars[used++] = c;
        chars[used++] = '\0';
        return t;
    }
    constexpr std::string_view operator[](Text t) const { return {chars.data() + t.at, t.len}; }
    constexpr const char* c_str(Text t) const { return chars.data() + t.at; }
};

// The first pass only counts.
struct TextCount {
    size_t used = 0;
    constexpr Text add(std::string_view s) {
        used += s.size() + 1;
        return {};
    }
};

template <typename Record, size_t Rows, size_t Chars>
struct Compiled {
    std::array<Record, Rows> rows{};
    TextBlock<Chars> texts{};
    constexpr std::string_view operator[](Text t) const { return texts[t]; }
    constexpr const Record* begin() const { return rows.data(); }
    constexpr const Record* end() const { return rows.data() + Rows; }
    static constexpr size_t size() { return Rows; }
};

// `compile(line, texts)` makes a record from a line, adding its texts.
template <auto& Lines, auto compile>
consteval auto compile_lines() {
    constexpr size_t upper = [] {
        TextCount count;
        for (const auto& line : Lines) compile(line, count);
        return count.used;
    }();
    constexpr size_t chars = [] {
        TextBlock<upper> block;
        for (const auto& line : Lines) compile(line, block);
        return block.used;
    }();
    using Record = decltype(compile(Lines[0], std::declval<TextBlock<chars>&>()));
    Compiled<Record, std::size(Lines), chars> out;
    for (size_t i = 0; i < std::size(Lines); ++i) out.rows[i] = compile(Lines[i], out.texts);
    return out;
}

// Two values of a column are the same handler, the same list (spans: the
// same elements; compared by content, since the addresses of two arrays
// cannot be compared while compiling under the sanitizers) or the same number.
template <typename T>
constexpr bool same_value(const T& a, const T& b) {
    return a == b;
}
constexpr bool same_value(const WordCode& a, const WordCode& b) {
    return a.word == b.word && a.code == b.code;
}
template <typename T>
constexpr bool same_value(std::span<T> a, std::span<T> b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!same_value(a[i], b[i])) return false;
    return true;
}

// The distinct non-null values of one column of the lines (the handlers a
// table names), in order of first use, so a record keeps a place instead.
template <auto& Lines, auto member>
consteval auto distinct_of() {
    using Value = std::remove_cvref_t<decltype(Lines[0].*member)>;
    constexpr size_t count = [] {
        size_t n = 0;
        for (size_t i = 0; i < std::size(Lines); ++i) {
            bool seen = same_value(Lines[i].*member, Value{});
            for (size_t j = 0; j < i && !seen; ++j) seen = same_value(Lines[j].*member, Lines[i].*member);
            n += seen ? 0 : 1;
        }
        return n;
    }();
    std::array<Value, count + 1> out{};  // place 0 is the null value
    size_t n = 1;
    for (const auto& line : Lines) {
        bool seen = same_value(line.*member, Value{});
        for (size_t j = 1; j < n && !seen; ++j) seen = same_value(out[j], line.*member);
        if (!seen) out[n++] = line.*member;
    }
    return out;
}

void value_not_listed();  // never defined
template <typename List, typename Value>
constexpr uint8_t place_in(const List& list, Value v) {
    if (same_value(v, Value{})) return 0;
    for (size_t i = 1; i < list.size(); ++i)
        if (same_value(list[i], v)) return static_cast<uint8_t>(i);
    value_not_listed();
    return 0;
}

// A number stored in a narrower column; one that does not fit stops the build.
void value_does_not_fit();  // never defined
template <typename Narrow>
constexpr Narrow narrow(long long v) {
    if (v != static_cast<long long>(static_cast<Narrow>(v))) value_does_not_fit();
    return static_cast<Narrow>(v);
}

// The record whose `name` text matches `key` without regard to case, or null.
template <typename C>
const auto* find_compiled(const C& table, std::string_view key) {
    for (const auto& row : table)
        if (same_word(table[row.name], key)) return &row;
    return static_cast<decltype(&*table.begin())>(nullptr);
}
template <typename C>
const auto* find_compiled(const C& table, const char* key) {
    return key != nullptr ? find_compiled(table, std::string_view(key))
                          : static_cast<decltype(&*table.begin())>(nullptr);
}
