#ifndef KIP_TESTS_SUPPORT_CRASH_NOTE_H
#define KIP_TESTS_SUPPORT_CRASH_NOTE_H

#include <cstdio>
#include <cstring>
#include <string>

#if defined(_WIN32)
#include "support/windows.h"
#else
#include <csignal>
#include <unistd.h>
#endif

namespace kip::test {

// What a thread of a test is about to do. An access to a guard page ends the program before the test can report
// anything; this note is then printed, and the fault takes its usual course.
inline thread_local char crashNote[1024];

// The note of the thread that wrote the first one: it serves threads that have none, as those of the library's jobs.
inline const char *firstCrashNote = "";

inline const char *noteOfCrash()
{
    return crashNote[0] != '\0' ? crashNote : firstCrashNote;
}

#if defined(_WIN32)

inline LONG CALLBACK printCrashNote(EXCEPTION_POINTERS *exception)
{
    if (exception->ExceptionRecord->ExceptionCode == EXCEPTION_ACCESS_VIOLATION) {
        std::fputs(noteOfCrash(), stderr);
        std::fflush(stderr);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

inline bool installCrashNote()
{
    firstCrashNote = crashNote;
    return AddVectoredExceptionHandler(1, printCrashNote) != nullptr;
}

#else

inline struct sigaction handlersBefore[2]; // of SIGSEGV and SIGBUS

inline void printCrashNote(int)
{
    // The handlers of before answer the same fault when the instruction runs again.
    sigaction(SIGSEGV, &handlersBefore[0], nullptr);
    sigaction(SIGBUS, &handlersBefore[1], nullptr);
    const char *const note = noteOfCrash();
    if (write(STDERR_FILENO, note, std::strlen(note)) < 0)
        return;
}

inline bool installCrashNote()
{
    firstCrashNote = crashNote;
    struct sigaction action = {};
    action.sa_handler = printCrashNote;
    return sigaction(SIGSEGV, &action, &handlersBefore[0]) == 0 && sigaction(SIGBUS, &action, &handlersBefore[1]) == 0;
}

#endif

inline void noteForCrash(const std::string &text)
{
    static const bool installed = installCrashNote();
    std::snprintf(crashNote, sizeof crashNote, "%s: %s\n", installed ? "crashed in" : "crashed", text.c_str());
}

} // namespace kip::test

#endif
