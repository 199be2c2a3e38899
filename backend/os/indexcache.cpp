#include "backend/os/indexcache.h"

#include "backend/os/directory.h"
#include "common/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t maxBytes = std::uintmax_t{1} << 30;
constexpr auto minAge = std::chrono::minutes(5);

// Whether it is a directory on a disk of this machine in which nobody can rename what is another's.
bool isLocalDisk(const char* path) {
    // What the system's headers do not name: Lustre, GPFS, BeeGFS, PanFS, GFS2.
    constexpr std::uint32_t elsewhere[] = {
        NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC,   CIFS_SUPER_MAGIC, SMB2_SUPER_MAGIC,
        AFS_SUPER_MAGIC,  AFS_FS_MAGIC,      CODA_SUPER_MAGIC, V9FS_MAGIC,
        CEPH_SUPER_MAGIC, OCFS2_SUPER_MAGIC, FUSE_SUPER_MAGIC, 0x0BD00BD0,
        0x47504653,       0x19830326,        0xAAD7AAEA,       0x01161970};
    // These lie in memory, which the tasks need.
    constexpr std::uint32_t memory[] = {TMPFS_MAGIC, RAMFS_MAGIC};
    struct statfs system {};
    struct stat status {};
    if (::statfs(path, &system) == -1 || ::stat(path, &status) == -1) return false;
    const auto type = static_cast<std::uint32_t>(system.f_type);
    if (std::ranges::count(elsewhere, type) + std::ranges::count(memory, type) > 0) return false;
    const bool sticky = (status.st_mode & S_ISVTX) != 0;
    return status.st_uid == 0 && ((status.st_mode & (S_IWGRP | S_IWOTH)) == 0 || sticky);
}

std::string find() {
    for (const fs::path& each : IndexCache::places()) {
        if (!IndexCache::makePrivate(each)) continue;
        IndexCache::trim(each, maxBytes, minAge);
        return each;
    }
    return "";
}

} // namespace

const std::string& IndexCache::folder() {
    static const std::string found = find();
    return found;
}

std::vector<fs::path> IndexCache::places() {
    std::vector<fs::path> found;
    const std::string own = "vex-index-" + std::to_string(::geteuid());
    for (const char* disk : {"/var/tmp", "/tmp"}) {
        if (isLocalDisk(disk)) found.push_back(fs::path(disk) / own);
    }
    const char* const cache = std::getenv("XDG_CACHE_HOME");
    const char* const home = std::getenv("HOME");
    if (cache && *cache == '/')
        found.push_back(fs::path(cache) / "vex-index");
    else if (home && *home == '/')
        found.push_back(fs::path(home) / ".cache" / "vex-index");
    return found;
}

bool IndexCache::makePrivate(const fs::path& path) {
    std::error_code ignored;
    fs::create_directories(path.parent_path(), ignored);
    if (::mkdir(path.c_str(), S_IRWXU) == -1 && errno != EEXIST) return false;
    const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    return folder && ::fstat(folder.get(), &status) == 0 && status.st_uid == ::geteuid() &&
           (status.st_mode & (S_IRWXG | S_IRWXO)) == 0 &&
           ::faccessat(folder.get(), ".", R_OK | W_OK | X_OK, AT_EACCESS) == 0;
}

void IndexCache::trim(const fs::path& folder, std::uintmax_t bytes, Clock::duration age) {
    struct File {
        fs::path path;
        std::uintmax_t size;
        std::time_t used;
    };
    std::vector<File> files;
    std::uintmax_t total = 0;
    for (const std::string& name : namesIn(folder)) {
        const fs::path path = folder / name;
        struct stat status {};
        if (::lstat(path.c_str(), &status) == -1 || !S_ISREG(status.st_mode)) continue;
        // A file system may not keep the time of reading.
        files.push_back({path, static_cast<std::uintmax_t>(status.st_size),
                         std::max(status.st_atime, status.st_mtime)});
        total += files.back().size;
    }
    std::ranges::sort(files, {}, &File::used);
    const auto young =
        std::time(nullptr) - std::chrono::duration_cast<std::chrono::seconds>(age).count();
    for (const File& each : files) {
        if (total <= bytes || each.used > young) return;
        std::error_code fault;
        fs::remove(each.path, fault);
        total -= each.size;
    }
}
