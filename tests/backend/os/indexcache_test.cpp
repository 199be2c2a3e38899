#include "backend/os/indexcache.h"
#include "tests/support/tempdir.h"
#include "tests/support/testing.h"

#include <chrono>
#include <sys/stat.h>

namespace {

TEST(IndexCache, TrustsOnlyADirectoryOfThisUserAlone) {
    const TempDir folder;
    const auto with = [&folder](const char* name, mode_t mode) {
        ::mkdir(folder.path(name).c_str(), 0700);
        ::chmod(folder.path(name).c_str(), mode);
    };
    with("own", 0700);
    with("listed", 0710);
    with("shared", 0707);
    with("read-only", 0500);
    folder.write("file", "");
    std::filesystem::create_directory_symlink(folder.path("own"), folder.path("link"));
    const struct {
        std::string name;
        bool trusted;
    } cases[] = {
        {"own", true},   {"new", true},   {"new folder/new", true}, {"listed", false},
        {"file", false}, {"link", false}, {"shared", false},        {"file/new", false},
    };
    for (const auto& each : cases)
        EXPECT_EQ(IndexCache::makePrivate(folder.path(each.name)), each.trusted) << each.name;
    EXPECT_EQ(IndexCache::makePrivate(folder.path("read-only")), ::geteuid() == 0);
    EXPECT_FALSE(IndexCache::makePrivate("/")) << "another user's, but for root";
    struct stat status {};
    EXPECT_EQ(::stat(folder.path("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
}

TEST(IndexCache, KeepsWhatWasUsedLast) {
    const TempDir folder;
    const auto add = [&folder](const std::string& name, std::time_t age, std::time_t unused) {
        folder.write(name, std::string(100, 'x'));
        const std::time_t now = std::time(nullptr);
        const timespec times[] = {{now - unused, 0}, {now - age, 0}};
        ::utimensat(AT_FDCWD, folder.path(name).c_str(), times, 0);
    };
    const auto left = [&folder] {
        std::string names;
        for (const char* name : {"a", "b", "c", "d"})
            names += std::filesystem::exists(folder.path(name)) ? name : "";
        return names;
    };
    const auto trim = [&folder, &left](std::uintmax_t bytes) {
        IndexCache::trim(folder.path(), bytes, std::chrono::seconds(60));
        return left();
    };
    add("a", 9000, 9000);
    add("b", 9500, 500); // older, and read since
    add("c", 5000, 5000);
    add("d", 10, 9000); // just written
    EXPECT_EQ(trim(400), "abcd");
    EXPECT_EQ(trim(399), "bcd");
    EXPECT_EQ(trim(200), "bd");
    EXPECT_EQ(trim(0), "d");
}

} // namespace
