#pragma once

#include <random>
#include <string>
#include <string_view>
#include <vector>

/// Every text over `alphabet` of at most `longest` characters.
inline std::vector<std::wstring> everyText(std::wstring_view alphabet, std::size_t longest) {
    std::vector<std::wstring> texts{L""};
    for (std::size_t i = 0; i < texts.size() && texts[i].size() < longest; ++i) {
        const std::wstring shorter = texts[i];
        for (const wchar_t c : alphabet) texts.push_back(shorter + c);
    }
    return texts;
}

/// Random bytes but 0, most of them above ASCII; the same at every run.
inline std::string randomBytes(std::mt19937& random, std::size_t longest) {
    std::string bytes(random() % (longest + 1), 0);
    for (char& c : bytes)
        c = static_cast<char>(random() % 4 == 0 ? 1 + random() % 127 : 128 + random() % 128);
    return bytes;
}
