#include "common/sessionfile.h"
#include "frontend/session/session.h"
#include "tests/support/testing.h"

namespace {

// Ten numbers from here on that no test uses which runs beside this one.
int someNumber() { return 50000 + 10 * static_cast<int>(::getpid() % 4000); }

TEST(Session, TwoNeverShareANumberAndTheDeadAreNoObstacle) {
    const int number = someNumber();
    std::ofstream(SessionFile::path(number)) << "left behind";
    auto first = std::make_unique<Session>(number);
    const Session second(number);
    EXPECT_LT(first->number(), second.number());
    struct stat status {};
    ASSERT_EQ(::stat(first->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFSOCK | 0600u);
    // The number is free again when its session has ended.
    const int freed = first->number();
    first.reset();
    EXPECT_NE(::access(SessionFile::path(freed).c_str(), F_OK), 0);
    Session session(number);
    EXPECT_EQ(session.number(), freed);
    // It gives connections and never waits for one.
    EXPECT_EQ(session.accept(), nullptr);
    UnixSocket console;
    ASSERT_EQ(console.connect(session.path().c_str(), 1), 0);
    EXPECT_NE(session.accept(), nullptr);
    EXPECT_EQ(session.accept(), nullptr);
    // Not while a console of it may still connect.
    const std::string file = session.path();
    session.leave();
    EXPECT_GT(Session(freed).number(), freed);
    EXPECT_EQ(::unlink(file.c_str()), 0);
}

TEST(Session, ANumberBehindWhichSomebodyAnswersIsTaken) {
    const int number = someNumber();
    // Another session of which only the socket file can be seen from here.
    UnixSocket elsewhere;
    elsewhere.bind(SessionFile::path(number).c_str());
    EXPECT_GT(Session(number).number(), number);
    EXPECT_EQ(::access(SessionFile::path(number).c_str(), F_OK), 0);
    ::unlink(SessionFile::path(number).c_str());
    const Session last(SessionFile::maxNumber);
    EXPECT_THROW(Session{SessionFile::maxNumber}, std::runtime_error);
}

} // namespace
