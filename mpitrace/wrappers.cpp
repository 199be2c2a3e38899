#include "mpitrace/recorder.h"

// The calls of MPI as programs find them first: each writes down what it waits for, and goes on to
// the function of that name behind it. In Fortran all arguments are addresses, with one for the
// status behind them; its calls come in by "mpi_send_" or, from the module mpi_f08 of Open MPI, by
// "ompi_send_f". Where handles are numbers, an MPI's Fortran calls its C, which is recorded.

namespace {

using Family = Library::Family;

// How arguments are read that come from C.
struct FromC {
    static bool recorded(const Recorder&) { return true; }
    static int number(Word argument) { return static_cast<int>(argument); }
    static Word comm(const Recorder& recorder, Word argument) {
        return recorder.library.handle(argument);
    }
    static Word commAt(const Recorder& recorder, Word address) {
        return recorder.library.handleAt(address);
    }
    static Word request(const Recorder& recorder, Word addresses, int index) {
        const Word at = addresses + static_cast<Word>(index) * recorder.library.handleSize();
        return recorder.library.handleAt(at);
    }
    static bool good(int result, Word /*last*/) { return result == 0; }
};

// The same for Fortran, whose handles are numbers everywhere.
struct FromFortran {
    static constexpr Word mark = Word(1) << (8 * sizeof(Word) - 1);

    static int number(Word address) { return *reinterpret_cast<const int*>(address); }
    static bool recorded(const Recorder& recorder) {
        return recorder.library.family == Family::POINTERS;
    }
    static Word comm(const Recorder& recorder, Word address) {
        return recorder.library.commOf(number(address));
    }
    static Word commAt(const Recorder& recorder, Word address) { return comm(recorder, address); }
    // No address has the mark.
    static Word request(const Recorder&, Word addresses, int index) {
        return mark | static_cast<unsigned>(reinterpret_cast<const int*>(addresses)[index]);
    }
    static bool good(int /*result*/, Word status) { return status == 0 || number(status) == 0; }
};

// A wait for very many looks at the first of them.
constexpr int maxLooks = 256;

template <class Language>
void waitForRequests(Recorder& recorder, int number, Word requests) {
    for (int i = 0; i < number && i < maxLooks; ++i)
        recorder.waitForRequest(Language::request(recorder, requests, i));
}

// A function of MPI, found when it is called for the first time.
template <class Function>
class Next {
  public:
    constexpr explicit Next(const char* itsName) : name(itsName) {}
    Function get() {
        if (!found) found = reinterpret_cast<Function>(Library::next(name));
        return found;
    }

  private:
    const char* const name;
    Function found = nullptr;
};

// What a function gives back that the MPI at hand does not have.
constexpr int unknownFunction = 1;

} // namespace

#define PARAMETERS_0
#define ARGUMENTS_0
#define PARAMETERS_1 Word a0
#define ARGUMENTS_1 a0
#define PARAMETERS_2 Word a0, Word a1
#define ARGUMENTS_2 a0, a1
#define PARAMETERS_3 Word a0, Word a1, Word a2
#define ARGUMENTS_3 a0, a1, a2
#define PARAMETERS_4 Word a0, Word a1, Word a2, Word a3
#define ARGUMENTS_4 a0, a1, a2, a3
#define PARAMETERS_5 Word a0, Word a1, Word a2, Word a3, Word a4
#define ARGUMENTS_5 a0, a1, a2, a3, a4
#define PARAMETERS_6 Word a0, Word a1, Word a2, Word a3, Word a4, Word a5
#define ARGUMENTS_6 a0, a1, a2, a3, a4, a5
#define PARAMETERS_7 Word a0, Word a1, Word a2, Word a3, Word a4, Word a5, Word a6
#define ARGUMENTS_7 a0, a1, a2, a3, a4, a5, a6
#define PARAMETERS_8 Word a0, Word a1, Word a2, Word a3, Word a4, Word a5, Word a6, Word a7
#define ARGUMENTS_8 a0, a1, a2, a3, a4, a5, a6, a7
#define PARAMETERS_9 Word a0, Word a1, Word a2, Word a3, Word a4, Word a5, Word a6, Word a7, Word a8
#define ARGUMENTS_9 a0, a1, a2, a3, a4, a5, a6, a7, a8
#define PARAMETERS_10                                                                              \
    Word a0, Word a1, Word a2, Word a3, Word a4, Word a5, Word a6, Word a7, Word a8, Word a9
#define ARGUMENTS_10 a0, a1, a2, a3, a4, a5, a6, a7, a8, a9
#define PARAMETERS_11                                                                              \
    Word a0, Word a1, Word a2, Word a3, Word a4, Word a5, Word a6, Word a7, Word a8, Word a9,      \
        Word a10
#define ARGUMENTS_11 a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10
#define PARAMETERS_12                                                                              \
    Word a0, Word a1, Word a2, Word a3, Word a4, Word a5, Word a6, Word a7, Word a8, Word a9,      \
        Word a10, Word a11
#define ARGUMENTS_12 a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11
#define PARAMETERS_13                                                                              \
    Word a0, Word a1, Word a2, Word a3, Word a4, Word a5, Word a6, Word a7, Word a8, Word a9,      \
        Word a10, Word a11, Word a12
#define ARGUMENTS_13 a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12

// With the argument for the status.
#define AND_STATUS_0 1
#define AND_STATUS_1 2
#define AND_STATUS_2 3
#define AND_STATUS_3 4
#define AND_STATUS_4 5
#define AND_STATUS_5 6
#define AND_STATUS_6 7
#define AND_STATUS_7 8
#define AND_STATUS_8 9
#define AND_STATUS_9 10
#define AND_STATUS_10 11
#define AND_STATUS_11 12
#define AND_STATUS_12 13
#define JOIN_(a, b) a##b
#define JOIN(a, b) JOIN_(a, b)
#define PARAMETERS(count) JOIN(PARAMETERS_, count)
#define ARGUMENTS(count) JOIN(ARGUMENTS_, count)
#define AND_STATUS(count) JOIN(AND_STATUS_, count)

// One function: `before` says what it waits for, `after` what has come of it.
#define FUNCTION(Language_, function, count, Name, before, after)                                  \
    extern "C" __attribute__((visibility("default"))) int function(PARAMETERS(count)) {            \
        using Language = Language_;                                                                \
        static constinit Next<int (*)(PARAMETERS(count))> next(#function);                         \
        Recorder& recorder = Recorder::get();                                                      \
        [[maybe_unused]] const Word a[count + 1] = {ARGUMENTS(count)};                             \
        const bool recorded = Language::recorded(recorder) && recorder.begin(MpiPage::Name);       \
        if (recorded) {                                                                            \
            before;                                                                                \
            recorder.publish();                                                                    \
        }                                                                                          \
        const auto call = next.get();                                                              \
        [[maybe_unused]] const int result = call ? call(ARGUMENTS(count)) : unknownFunction;       \
        if (recorded) {                                                                            \
            after;                                                                                 \
            recorder.end();                                                                        \
        }                                                                                          \
        return result;                                                                             \
    }

#define FUNCTIONS(Name, name, count, before, after)                                                \
    FUNCTION(FromC, MPI_##Name, count, Name, before, after)                                        \
    FUNCTION(FromFortran, mpi_##name##_, AND_STATUS(count), Name, before, after)                   \
    FUNCTION(FromFortran, ompi_##name##_f, AND_STATUS(count), Name, before, after)

#define NOTHING (void)0
#define GOOD(count) Language::good(result, a[count])
#define COMM(commIs) Language::comm(recorder, a[commIs])
#define WAIT_FOR(peerIs, tagIs, commIs, sends)                                                     \
    recorder.waitForPeer(COMM(commIs), Language::number(a[peerIs]), Language::number(a[tagIs]),    \
                         sends)
#define REQUESTED(count, peerIs, tagIs, commIs, requestIs, sends)                                  \
    if (GOOD(count))                                                                               \
    recorder.requested(Language::request(recorder, a[requestIs], 0), COMM(commIs),                 \
                       Language::number(a[peerIs]), Language::number(a[tagIs]), sends)

// The lines of the table.
#define INIT(Name, name, count)                                                                    \
    FUNCTION(FromInit, MPI_##Name, count, Name, NOTHING, recorder.endInit())                       \
    FUNCTION(FromFortranInit, mpi_##name##_, AND_STATUS(count), Name, NOTHING, recorder.endInit()) \
    FUNCTION(FromFortranInit, ompi_##name##_f, AND_STATUS(count), Name, NOTHING, recorder.endInit())
#define SEND(Name, name, count, peerIs, tagIs, commIs)                                             \
    FUNCTIONS(Name, name, count, WAIT_FOR(peerIs, tagIs, commIs, true), NOTHING)
#define RECV(Name, name, count, peerIs, tagIs, commIs)                                             \
    FUNCTIONS(Name, name, count, WAIT_FOR(peerIs, tagIs, commIs, false), NOTHING)
#define BOTH(Name, name, count, toIs, sentIs, fromIs, tagIs, commIs)                               \
    FUNCTIONS(Name, name, count, WAIT_FOR(toIs, sentIs, commIs, true);                             \
              WAIT_FOR(fromIs, tagIs, commIs, false), NOTHING)
#define ISEND(Name, name, count, peerIs, tagIs, commIs, requestIs)                                 \
    FUNCTIONS(Name, name, count, NOTHING, REQUESTED(count, peerIs, tagIs, commIs, requestIs, true))
#define IRECV(Name, name, count, peerIs, tagIs, commIs, requestIs)                                 \
    FUNCTIONS(Name, name, count, NOTHING, REQUESTED(count, peerIs, tagIs, commIs, requestIs, false))
#define WAIT(Name, name, count, numberIs, requestsAre)                                             \
    FUNCTIONS(Name, name, count,                                                                   \
              waitForRequests<Language>(                                                           \
                  recorder, numberIs < 0 ? 1 : Language::number(a[numberIs < 0 ? 0 : numberIs]),   \
                  a[requestsAre]),                                                                 \
              NOTHING)
#define COLL(Name, name, count, commIs)                                                            \
    FUNCTIONS(Name, name, count, recorder.waitForMembers(COMM(commIs)), NOTHING)
#define ICOLL(Name, name, count, commIs, requestIs)                                                \
    FUNCTIONS(Name, name, count, recorder.countFor(COMM(commIs)),                                  \
              if (GOOD(count)) recorder.requestedFromMembers(                                      \
                  Language::request(recorder, a[requestIs], 0), COMM(commIs)))
#define NEWCOMM(Name, name, count, commIs, madeIs)                                                 \
    FUNCTIONS(Name, name, count, recorder.waitForMembers(COMM(commIs)),                            \
              if (GOOD(count))                                                                     \
                  recorder.created(Language::commAt(recorder, a[madeIs]), COMM(commIs)))
#define FREECOMM(Name, name, count, commIs)                                                        \
    FUNCTIONS(Name, name, count, recorder.waitForMembers(Language::commAt(recorder, a[commIs]));   \
              recorder.freed(Language::commAt(recorder, a[commIs])), NOTHING)
#define WORLD(Name, name, count)                                                                   \
    FUNCTIONS(Name, name, count, recorder.waitForMembers(recorder.library.world),                  \
              recorder.finalized())
#define OTHER(Name, name, count) FUNCTIONS(Name, name, count, NOTHING, NOTHING)

namespace {

// MPI is found when it is started.
struct FromInit : FromC {
    static bool recorded(Recorder& recorder) {
        recorder.beginInit();
        return true;
    }
};
struct FromFortranInit : FromFortran {
    static bool recorded(Recorder& recorder) {
        recorder.beginInit();
        return FromFortran::recorded(recorder);
    }
};

} // namespace

VEX_MPI_CALLS(INIT, SEND, RECV, BOTH, ISEND, IRECV, WAIT, WAIT, COLL, ICOLL, NEWCOMM, FREECOMM,
              WORLD, OTHER)
