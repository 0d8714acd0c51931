// Questions to `vdk heap` as tests ask them, and their answers taken apart.
#pragma once

#include "RunClient.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vdk {

using Texts = std::vector<std::string>;

inline Outcome heap(const std::string& file, std::vector<std::string> words) {
    words.insert(words.begin(), {"heap", file});
    return client(words);
}

inline nlohmann::json answer(const std::string& file, std::vector<std::string> words,
                             int code = 0) {
    words.push_back("--json");
    const Outcome outcome = heap(file, words);
    EXPECT_EQ(code, outcome.code) << outcome.err;
    return nlohmann::json::parse(outcome.out, nullptr, false);
}

inline std::vector<std::string> column(const nlohmann::json& rows, const std::string& key) {
    std::vector<std::string> values;
    for (const nlohmann::json& row : rows) {
        values.push_back(row[key].is_string() ? row[key].get<std::string>() : row[key].dump());
    }
    return values;
}

inline nlohmann::json rowOf(const nlohmann::json& rows, const std::string& key,
                            const std::string& value) {
    for (const nlohmann::json& row : rows) {
        if (row[key] == value) {
            return row;
        }
    }
    return nlohmann::json();
}

} // namespace vdk
