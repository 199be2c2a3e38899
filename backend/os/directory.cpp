#include "backend/os/directory.h"

#include <dirent.h>
#include <memory>
#include <string_view>

std::vector<std::string> namesIn(const std::string& directory) {
    struct Closer {
        void operator()(DIR* open) const { ::closedir(open); }
    };
    const std::unique_ptr<DIR, Closer> open(::opendir(directory.c_str()));
    std::vector<std::string> names;
    for (const dirent* each; open && (each = ::readdir(open.get()));) {
        const std::string_view name = each->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    return names;
}
