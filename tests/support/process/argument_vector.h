// Texts in the form that the exec family takes.
#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace test_support {

// Null-terminated; points into `texts`, which must outlive it.
inline std::vector<char*> argumentVector(const std::vector<std::string>& texts) {
    std::vector<char*> result;
    std::transform(texts.begin(), texts.end(), std::back_inserter(result),
                   [](const std::string& text) { return const_cast<char*>(text.c_str()); });
    result.push_back(nullptr);
    return result;
}

}  // namespace test_support
