// Helpers for texts: lists, names that a user mistyped, and numbers.
#include "text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <numeric>

namespace {

/// @return how many letters have to be inserted, removed or replaced to make one text of the other
size_t Edits(const std::string& from, const std::string& to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

void Append_Item(std::string& list, const char* separator, const std::string& item)
{
    if (!list.empty()) {
        list += separator;
    }
    list += item;
}

std::string Printable(std::string text)
{
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return text;
}

std::string Key(const std::string& text)
{
    std::string key;
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (std::isalnum(u) != 0) {
            key += static_cast<char>(std::tolower(u));
        } else if (!key.empty() && key.back() != '_') {
            key += '_';
        }
    }
    return key.ends_with('_') ? key.substr(0, key.size() - 1) : key;
}

std::string Suggestion(const std::string& word, const std::vector<std::string>& names)
{
    const auto distance = [key = Key(word)](const std::string& name) { return Edits(key, Key(name)); };
    const auto nearest = std::ranges::min_element(names, {}, distance);
    const bool is_near = nearest != names.end() && distance(*nearest) <= std::max<size_t>(2, word.size() / 3) &&
                         distance(*nearest) < nearest->size();
    return is_near ? "; did you mean '" + *nearest + "'?" : ".";
}

std::optional<int64_t> Whole_Number(const std::string& text)
{
    const bool negative = text.starts_with('-');
    const std::string digits = text.substr(negative ? 1 : 0);
    const bool hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
    const char* begin = digits.data() + (hexadecimal ? 2 : 0);
    const char* end = digits.data() + digits.size();
    int64_t value = 0;
    const auto [rest, error] = std::from_chars(begin, end, value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || rest != end || value < 0) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

std::string Id_Text(uint16_t vendor, uint16_t product)
{
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%04x:%04x", vendor, product);
    return text.data();
}
