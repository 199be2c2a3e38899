#include "backend/wire/rendezvous.h"
#include "common/sessionfile.h"
#include "frontend/session/session.h"
#include "tests/support/strangers.h"
#include "tests/support/tempdir.h"

namespace {

constexpr int number = SessionFile::maxNumber;

TEST_F(StrangersTest, NobodyElseComesIntoASession) {
    become(one);
    Session session(number);
    ASSERT_EQ(::chmod(session.path().c_str(), 0666), 0); // the file's mode alone is no guard
    for (const uid_t user : {other, one, uid_t{0}}) {
        become(user);
        UnixSocket console;
        ASSERT_EQ(console.connect(session.path().c_str(), 1), 0);
        const auto line = Session::reach(number);
        EXPECT_EQ(line.has_value(), user == one) << user;
        become(one);
        EXPECT_EQ(session.accept() != nullptr, user != other) << user;
        Channel::accept(session.control()); // whoever has come
    }
}

TEST_F(StrangersTest, FilesOfOthersAreNamedWhenNoNumberIsFree) {
    const std::string path = SessionFile::path(number);
    become(other);
    std::ofstream(path) << "mine";
    become(one);
    try {
        const Session session(number);
        ADD_FAILURE() << "the number is taken";
    } catch (const std::runtime_error& error) {
        const std::string said = error.what();
        EXPECT_NE(said.find("files /tmp/.vexsock.N belong to user "), said.npos) << said;
        EXPECT_NE(said.find("-delete"), said.npos) << said;
    }
    EXPECT_EQ(::access(path.c_str(), F_OK), 0);
    become(other);
    ::unlink(path.c_str());
}

TEST_F(StrangersTest, NoSecretOfALaunchIsWrittenOrReadWhereAnotherUserRules) {
    const TempDir folder;
    ::chmod(folder.path().c_str(), 0755);
    const std::string settings = folder.path(".vex"), file = folder.path("rendezvous");
    const Rendezvous where{"", {"127.0.0.1"}, 4711, "secret"};
    ASSERT_EQ(::mkdir(settings.c_str(), 0755), 0);
    folder.write("rendezvous", where.str());
    ::chmod(file.c_str(), 0600);
    for (const uid_t owner : {other, one}) {
        for (const std::string& path : {settings, file})
            ASSERT_EQ(::chown(path.c_str(), owner, owner), 0);
        ::chmod(settings.c_str(), owner == one ? 0755 : 01777);
        become(one);
        if (owner == one) {
            EXPECT_NO_THROW(RendezvousFile(settings + "/launch", where));
            EXPECT_NO_THROW(RendezvousFile::read(file));
        } else {
            EXPECT_THROW(RendezvousFile(settings + "/launch", where), std::runtime_error);
            EXPECT_THROW(RendezvousFile::read(file), std::runtime_error);
        }
        become(0);
    }
}

} // namespace
