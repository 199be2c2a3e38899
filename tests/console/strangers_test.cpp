#include "console/userfile.h"
#include "tests/support/strangers.h"
#include "tests/support/tempdir.h"

namespace {

// A settings file, its directory and the links to it may be this user's or root's.
TEST_F(StrangersTest, OnlyOwnFilesAndRootsAreSettings) {
    const TempDir folder;
    ::chmod(folder.path().c_str(), 0755);
    for (const uid_t owner : {one, other, uid_t{0}}) {
        const std::string place = folder.path(std::to_string(owner)), file = place + "/settings";
        ASSERT_EQ(::mkdir(place.c_str(), 0755), 0);
        std::ofstream(file) << "mode = auto";
        for (const std::string& path : {place, file})
            ASSERT_EQ(::chown(path.c_str(), owner, owner), 0);
        const std::string link = folder.path("link" + std::to_string(owner));
        ASSERT_EQ(::symlink(file.c_str(), link.c_str()), 0);
        become(one);
        for (const std::string& path : {file, link}) {
            EXPECT_EQ(UserFile(path).isForeign(), owner == other) << path;
            EXPECT_EQ(UserFile(path).read() == nullptr, owner == other) << path;
        }
        become(0);
    }
}

} // namespace
