#include "frontend/session.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Ten numbers from here on that no test uses which runs beside this one.
int someNumber() { return 50000 + 10 * static_cast<int>(::getpid() % 4000); }

bool isSocket(const std::string& path, mode_t mode) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) &&
           (status.st_mode & 0777) == mode;
}

TEST(Session, TwoNeverShareANumberAndTheDeadAreNoObstacle) {
    const int number = someNumber();
    std::ofstream(Session::pathOf(number)) << "left behind";
    auto first = std::make_unique<Session>(number);
    const Session second(number);
    EXPECT_LT(first->number(), second.number());
    const std::string path = first->path();
    EXPECT_TRUE(isSocket(path, 0600));
    // The number is free again when its session has ended.
    const int freed = first->number();
    first.reset();
    EXPECT_NE(::access(path.c_str(), F_OK), 0);
    EXPECT_EQ(Session(number).number(), freed);
}

TEST(Session, ANumberBehindWhichSomebodyAnswersIsTaken) {
    const int number = someNumber();
    // Another session of which only the socket file can be seen from here.
    UnixSocket elsewhere;
    elsewhere.bind(Session::pathOf(number).c_str());
    EXPECT_GT(Session(number).number(), number);
    EXPECT_EQ(::access(Session::pathOf(number).c_str(), F_OK), 0);
    ::unlink(Session::pathOf(number).c_str());
}

TEST(Session, GivesConnectionsAndNeverWaits) {
    Session session(someNumber());
    EXPECT_EQ(session.accept(), nullptr);
    UnixSocket console;
    ASSERT_EQ(console.connect(session.path().c_str(), 1), 0);
    EXPECT_NE(session.accept(), nullptr);
    EXPECT_EQ(session.accept(), nullptr);
}

TEST(Session, NumbersHaveAnEnd) {
    const Session last(Session::maxNumber);
    EXPECT_THROW(Session{Session::maxNumber}, std::runtime_error);
}

} // namespace
