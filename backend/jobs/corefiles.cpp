#include "backend/jobs/corefiles.h"

#include "backend/jobs/corefile.h"
#include "common/wholenumber.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <glob.h>
#include <map>
#include <stdexcept>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code fault;
    for (fs::directory_iterator at(folder, fault), end; !fault && at != end; at.increment(fault)) {
        std::error_code gone;
        if (at->is_regular_file(gone)) files.push_back(at->path().string());
    }
    if (fault) throw std::runtime_error("cannot read " + folder + ": " + fault.message());
    return files;
}

std::vector<std::string> filesLike(const std::string& pattern) {
    glob_t found{};
    std::vector<std::string> files;
    if (::glob(pattern.c_str(), GLOB_TILDE | GLOB_BRACE, nullptr, &found) == 0)
        files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    ::globfree(&found);
    return files;
}

// The last number in a file's name; -1: there is none.
int lastNumber(const std::string& path) {
    constexpr const char* digits = "0123456789";
    const std::string name = fs::path(path).filename().string();
    const std::size_t end = name.find_last_of(digits);
    if (end == std::string::npos) return -1;
    const std::size_t before = name.find_last_not_of(digits, end);
    const std::size_t begin = before == std::string::npos ? 0 : before + 1;
    return wholeNumber<int>(name.substr(begin, end + 1 - begin)).value_or(-1);
}

struct Found {
    std::string path;
    int number = -1; // in its name
    int rank = -1;
};

} // namespace

CoreFiles CoreFiles::find(const std::string& given, int most) {
    std::error_code none;
    const bool folder = fs::is_directory(given, none);
    std::vector<Found> files;
    CoreFiles result;
    for (const std::string& path : folder ? filesIn(given) : filesLike(given)) {
        const auto core = CoreFile::open(path);
        if (!core) {
            // The rank of a core file that another user owns, say, must not be missed unseen.
            if (::access(path.c_str(), R_OK) == -1)
                result.notes.push_back(path + " is left out: " + std::strerror(errno));
            else if (!folder)
                result.notes.push_back(path + " is left out: it is no core file");
            continue;
        }
        Found found{path, lastNumber(path), core->rank()};
        // Its name may hold the number of its process.
        if (found.rank < 0 && found.number != core->process()) found.rank = found.number;
        files.push_back(std::move(found));
    }
    if (files.empty())
        throw std::runtime_error("there is no core file " +
                                 std::string(folder ? "in '" : "like '") + given + "'." +
                                 (result.notes.empty() ? "" : " " + result.notes.front()));
    std::ranges::sort(files, [](const Found& one, const Found& other) {
        return std::pair(one.number, one.path) < std::pair(other.number, other.path);
    });
    std::map<int, std::string> byRank;
    for (const Found& each : files) {
        if (each.rank >= 0 && each.rank < most) byRank.emplace(each.rank, each.path);
    }
    result.ranked = byRank.size() == files.size();
    if (result.ranked) {
        result.paths.resize(static_cast<std::size_t>(byRank.rbegin()->first) + 1);
        for (auto& [rank, path] : byRank)
            result.paths[static_cast<std::size_t>(rank)] = std::move(path);
        return result;
    }
    for (Found& each : files)
        result.paths.push_back(std::move(each.path));
    if (files.size() > 1)
        result.notes.push_back("the ranks of the core files are not known; their clients are "
                               "numbered in the order of the files' names");
    return result;
}
