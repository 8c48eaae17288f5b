#ifndef KSYS_JOB_POOL_H
#define KSYS_JOB_POOL_H

#include <ksys/ksys.h>

/** The most threads that work on one dispatch, the caller's included. */
constexpr int32_t ksys_jobPoolThreadLimit = 1024;

/** A queued job. */
struct ksys_jobRequest {
    ksys_jobFunction function;
    ksys_jobParams params;
};

/** Returns the number of threads that this process can run at once; at least 1. */
int32_t ksys_jobPool_processorCount();

/**
 * Runs all requests on at most threadCount threads, the caller's among them, and returns when they have ended.
 * results has room for all statuses; that of a job which throws stays as it was.
 */
void ksys_jobPool_run(const ksys_jobRequestSet &requests, ksys_jobResultSet &results, int32_t threadCount);

/**
 * Ends the pool's idle threads and waits for them; threads that are in a job are left to themselves. Later
 * jobs run on their callers' threads alone.
 */
void ksys_jobPool_stop();

/**
 * Does nothing. The pool calls it so that shutdown.cpp, which ends the pool with the process, is linked where the
 * library is static: of that only those parts are that something refers to.
 */
void ksys_shutdown_link();

#endif
