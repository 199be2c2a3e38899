#include "fold/filelabels.h"

#include "backend/os/text.h"

#include <algorithm>
#include <set>

namespace {

// The only number of a name, without zeros in front; empty: there is none, or another one.
std::string onlyNumber(const std::string& name) {
    constexpr const char* digits = "0123456789";
    const std::size_t begin = name.find_first_of(digits);
    if (begin == std::string::npos) return "";
    const std::size_t end = std::min(name.find_first_not_of(digits, begin), name.size());
    if (name.find_first_of(digits, end) != std::string::npos) return "";
    const std::string number = name.substr(begin, end - begin);
    return number.substr(std::min(number.find_first_not_of('0'), number.size() - 1));
}

bool distinct(const std::vector<std::string>& labels) {
    return std::set<std::string>(labels.begin(), labels.end()).size() == labels.size();
}

} // namespace

std::vector<std::string> FileLabels::of(const std::vector<std::string>& paths) {
    std::vector<std::string> names(paths.size()), numbers(paths.size());
    std::ranges::transform(paths, names.begin(), Text::baseName);
    std::ranges::transform(names, numbers.begin(), onlyNumber);
    if (distinct(numbers) && std::ranges::find(numbers, "") == numbers.end()) return numbers;
    return distinct(names) ? names : paths;
}
