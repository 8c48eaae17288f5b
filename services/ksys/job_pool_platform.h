#ifndef KSYS_JOB_POOL_PLATFORM_H
#define KSYS_JOB_POOL_PLATFORM_H

// What the job pool asks of the operating system and the processor beyond the standard library.

#if !defined(_WIN32)
#include <csignal>
#endif

/** Tells the processor that this thread spins. */
inline void relaxProcessor()
{
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield" ::: "memory");
#endif
}

#if defined(_WIN32)

/**
 * Whether threads can be waited for while the library is being unloaded. Windows unloads it under a lock that an ending
 * thread needs too.
 */
constexpr bool kCanJoinAtUnload = false;

/** Windows has no signals to keep away. */
struct SignalsBlocked {
    ~SignalsBlocked() {}
};

#else

/** Whether threads can be waited for while the library is being unloaded. */
constexpr bool kCanJoinAtUnload = true;

/** While it lives, new threads inherit a mask that leaves the process's signals to the program's own threads. */
struct SignalsBlocked {
    sigset_t before;

    SignalsBlocked()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGPROF})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_SETMASK, &blocked, &before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;
};

#endif

#endif
