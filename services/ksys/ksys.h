#ifndef KSYS_KSYS_H
#define KSYS_KSYS_H

/**
 * @file
 * System services: memory, clean-up lists, the one-time critical section, shutdown callbacks, processor
 * information, attention and the job thread group.
 *
 * A status is an int32_t: negative is failure. Functions may be called from any thread unless their
 * comment says otherwise.
 */

#include <stddef.h>
#include <stdint.h>

#include <kstd/kservices_api.h>

KSERVICES_BEGIN_C

/** Statuses of the system services. */
enum {
    ksys_statusOutOfMemory = (int32_t)0x80000101u,  /**< The allocator has no such block. */
    ksys_statusSizeTooLarge = (int32_t)0x80000102u, /**< A size that no block can have. */
    ksys_statusBadArgument = (int32_t)0x80000103u,  /**< Null or a negative count where neither can serve. */
    ksys_statusNoData = (int32_t)0x80000104u,       /**< A job parameters object that holds no data. */
    ksys_statusLockFailed = (int32_t)0x80000105u,   /**< A lock could not be taken or released. */
    ksys_statusJobAborted = (int32_t)0x80000106u    /**< A job did not return, for example as it threw. */
};

/** @name Memory
 * Blocks are 64-byte aligned. The functions take the address of the caller's pointer (a T ** passed as
 * void *), which they set; after a failure the pointer is null, and for the resize unchanged.
 * @{ */

/** Takes a block of size bytes, uninitialised; 0 bytes give a valid block. Returns 0 or a negative status. */
KSERVICES_API int32_t ksys_memory_alloc_internal(size_t size, void *pointerAddress);

/** Takes a block of size bytes for frequent use, uninitialised. Returns 0 or a negative status. */
KSERVICES_API int32_t ksys_memory_allocFastMem_internal(size_t size, void *pointerAddress);

/** Takes a block of size bytes, all zero. Returns 0 or a negative status. */
KSERVICES_API int32_t ksys_memory_allocClear_internal(size_t size, void *pointerAddress);

/**
 * Resizes a block, keeping the bytes that stay; a null pointer takes a new one.
 *
 * Returns 0; a negative status leaves pointer and block as they were.
 */
KSERVICES_API int32_t ksys_memory_realloc_internal(size_t size, void *pointerAddress);

/** Frees a block and sets the caller's pointer to null; a null pointer is no failure. Returns 0. */
KSERVICES_API int32_t ksys_memory_free_internal(void *pointerAddress);

/** Sets count bytes at destination to value. Returns 0. */
KSERVICES_API int32_t ksys_memory_fill(uint8_t value, size_t count, void *destination);

/**
 * Copies a rectangle of bytes row by row. The two must not overlap, unless they are the same bytes.
 *
 * rowBytes, rows                 size of the rectangle; nothing is copied when either is below 1.
 * sourcePitch, destinationPitch  bytes from one row to the next, possibly negative.
 * source, destination            the first byte of each first row.
 * Returns 0.
 */
KSERVICES_API int32_t ksys_memory_copyRect(int64_t rowBytes, int64_t rows, int64_t sourcePitch,
                                           int64_t destinationPitch, const void *source, void *destination);

/** Takes a 64-byte aligned block; returns its address, or null. */
KSERVICES_API void *kqfCacheAlloc(size_t size);

/** Frees a block of #kqfCacheAlloc; null is no failure. */
KSERVICES_API void kqfFree(void *block);

/** An allocator: what stands behind every allocation of the services. */
typedef struct ksys_memoryHooks {
    void *(*alloc)(size_t size, void *context);                /**< a block of any alignment, or null */
    void *(*realloc)(void *block, size_t size, void *context); /**< the block resized, or null and unchanged */
    void (*free)(void *block, void *context);                  /**< releases a block */
    void *context;                                             /**< passed to the three functions */
} ksys_memoryHooks;

/**
 * Replaces the allocator for the whole process. Every block is resized and freed by the allocator that it
 * came from, so hooks must stay callable while their blocks live. The record is copied.
 *
 * hooks  the allocator, or null for the default one.
 * Returns 0; #ksys_statusBadArgument when a function is missing, #ksys_statusOutOfMemory; nothing is
 * replaced then.
 */
KSERVICES_API int32_t ksys_memory_setHooks(const ksys_memoryHooks *hooks);

/** @} */

/** @name Clean-up lists
 * @{ */

/** Kinds of clean-up entries. */
enum {
    ksys_cleanupBlock = 49, /**< object is a block: the routine receives the address of the entry's pointer to it */
    ksys_cleanupObject = 50 /**< the routine receives the object */
};

/** Releases an object; returns a status. */
typedef int32_t (*ksys_cleanupRoutine)(void *object);

/** One temporary of a call. */
typedef struct {
    int32_t ordinal;             /**< place in its list, 0 for the first */
    int32_t kind;                /**< #ksys_cleanupBlock or #ksys_cleanupObject */
    void *object;                /**< what to release */
    ksys_cleanupRoutine routine; /**< what releases it */
} ksys_cleanupEntry;

/**
 * Runs every routine of a list once, last entry first, and empties the list.
 *
 * entries  the list.
 * count    its length; set to 0.
 * status   the caller's status; receives the first negative status of a routine if it was not negative.
 * Returns the status as it then stands.
 */
KSERVICES_API int32_t ksys_cleanupExecute_(ksys_cleanupEntry *entries, int32_t *count, int32_t *status);

/** @} */

/** @name Critical section
 * @{ */

/** Storage of a critical section, zero at load. */
typedef struct {
    void *implementation[16]; /**< private */
} ksys_criticalSection;

/**
 * Makes the section that section's storage stands for, once per process. A forked child, where the thread that held
 * its parent's section may be missing, makes it anew when it comes here.
 *
 * section   static storage, zero at load.
 * onceWord  static word, zero at load.
 * Returns 0 when the section exists, also when another thread made it, or #ksys_statusOutOfMemory.
 */
KSERVICES_API int32_t ksys_criticalSection_constructSingleton(ksys_criticalSection *section, uint32_t *onceWord);

/** Waits until the calling thread holds the section; word may be null. Not recursive. Returns 0. */
KSERVICES_API int32_t ksys_criticalSection_wait(ksys_criticalSection *section, uint32_t *word);

/** Releases a section that the calling thread holds. Returns 0. */
KSERVICES_API int32_t ksys_criticalSection_release(ksys_criticalSection *section);

/** @} */

/** @name Shutdown
 * @{ */

/** A shutdown callback. */
typedef int32_t (*ksys_shutdownRoutine)(void *argument);

/**
 * Registers a callback that runs once at shutdown. On Windows the library that it lies in stays loaded from then on;
 * elsewhere the caller sees to that. Returns 0, or #ksys_statusOutOfMemory.
 */
KSERVICES_API int32_t ksys_shutdown_register(ksys_shutdownRoutine routine, void *argument);

/**
 * Runs the registered callbacks, newest first, and forgets them; also runs when the process ends. Nothing
 * that a callback frees may be in use.
 *
 * Returns 0, or the first negative status of a callback; all of them run.
 */
KSERVICES_API int32_t ksys_shutdown_run(void);

/** @} */

/** @name Processor information
 * @{ */

/** Bits of #ksys_cpuinfo::features. */
enum {
    ksys_featurePackedInteger = 1u << 0, /**< packed integer instructions (SSE2 and below) */
    ksys_featureAvx2 = 1u << 1,          /**< AVX2 */
    ksys_featureAvx512 = 1u << 2,        /**< AVX-512 F, BW, DQ, VL */
    ksys_featureAvx512Vbmi = 1u << 3     /**< AVX-512 VBMI: byte permutes over registers */
};

/**
 * What is known of the processor. Its kind is 1 for an x86-64 processor and 0 for any other; nothing else is reported
 * unless an override says so. The sums of windows trust #ksys_featurePackedInteger on kinds 1 and 5 alone, the latter
 * being a second kind with packed instructions, and stay portable on others. All else goes by the features.
 */
typedef struct {
    uint32_t kind;     /**< kind of processor, as above */
    uint32_t family;   /**< the processor's family number, 0 if unknown */
    uint32_t model;    /**< the processor's model number, 0 if unknown */
    uint32_t stepping; /**< the processor's stepping, 0 if unknown */
    uint32_t features; /**< a set of ksys_feature... bits that processor and operating system both support */
} ksys_cpuinfo;

/**
 * Fills a record: the override if one is set, else what the real processor reports. Returns 0, or
 * #ksys_statusBadArgument for null.
 */
KSERVICES_API int32_t ksys_cpuinfo_init(ksys_cpuinfo *record);

/**
 * Fills a module-wide record, as #ksys_cpuinfo_init does; several threads may fill the same one. Returns as that does.
 */
KSERVICES_API int32_t ksys_cpuinfo_get(ksys_cpuinfo *record);

/**
 * Makes every later query report a given record, so that each code path can be run on one machine. The
 * features are reported as given: set no bit that the real processor lacks.
 *
 * record  copied; null restores the real processor.
 * Returns 0, or #ksys_statusOutOfMemory, the queries then being answered as before.
 */
KSERVICES_API int32_t ksys_cpuinfo_setOverride(const ksys_cpuinfo *record);

/** @} */

/** @name Attention
 * @{ */

/** Answers a negative status when the operation that asks should stop. */
typedef int32_t (*ksys_attentionHandler)(void *context);

/** Sets the calling thread's handler; null removes it. Returns 0. */
KSERVICES_API int32_t ksys_attention_setHandler(ksys_attentionHandler handler, void *context);

/** Returns what the calling thread's handler answers, 0 without one. */
KSERVICES_API int32_t ksys_attention_check(void);

/** @} */

/** @name Jobs
 * One process-wide pool of threads serves every group and every caller. It starts with the first dispatch
 * that needs it and ends with the process, or when the library is unloaded. A forked child starts its own.
 * @{ */

/** A group of threads: the calling thread and workers of the pool. Owns nothing. */
typedef struct {
    int32_t threadCount; /**< private: threads offered, the caller's own included */
    int32_t splitsAll;   /**< private: what #ksys_jobThreadGroup_setSplitAll was given last */
} ksys_jobThreadGroup;

/** What a group offers. */
typedef struct {
    int32_t threadCount; /**< threads available; 1 or less means: run on the calling thread */
    int32_t splitsAll;   /**< nonzero: also for work that takes scratch memory of each thread's own */
} ksys_jobThreadState;

/** A holder for one job's data. */
typedef struct {
    void *data;                  /**< private: the block */
    ksys_cleanupRoutine deleter; /**< private: frees the block, given the address of a pointer to it */
} ksys_jobParams;

/** A job: works on its parameters' data and returns a status. */
typedef int32_t (*ksys_jobFunction)(const ksys_jobParams *params);

/** Private: a queued job. */
struct ksys_jobRequest;

/** A list of jobs; owns the data that was added with them. */
typedef struct {
    struct ksys_jobRequest *requests; /**< private: the jobs in order */
    int32_t count;                    /**< private: jobs queued */
    int32_t capacity;                 /**< private: jobs there is room for */
} ksys_jobRequestSet;

/** The statuses of dispatched jobs. */
typedef struct {
    int32_t *statuses; /**< private: one status a job, in the order of the requests */
    int32_t count;     /**< private: statuses held */
} ksys_jobResultSet;

/**
 * Sets the number of threads that groups offer from now on.
 *
 * count  0 means one per processor; more than 1024 count as 1024.
 * Returns 0, or #ksys_statusBadArgument for a negative count.
 */
KSERVICES_API int32_t ksys_jobThreadGroup_setThreadCount(int32_t count);

/**
 * Lets transforms in the table-driven modes, 2 and 3, and affine projections of enough work be spread over the threads
 * of groups from now on, as transforms in modes 0 and 1 are, and the copies that clipped calls make. Results stay the
 * same bits.
 *
 * on  nonzero: they are spread. Each thread then needs scratch memory of its own: a row of sums, or some ten to some
 *     hundred kilobytes for a table-driven mode, a thread. The cache of a call keeps it for the next one; a call
 *     without a cache takes it anew and gives it back. Jobs take a few small blocks a call. Where there is no memory,
 *     the call fails with the allocation's status.
 *     0, as at the beginning: they keep to the calling thread, and with a cache take no memory from the second call on.
 * Returns 0.
 * Threads: may be called from any at any time; a call that is under way goes on as it began.
 */
KSERVICES_API int32_t ksys_jobThreadGroup_setSplitAll(int32_t on);

/** Makes a group; takes no memory, no lock and starts nothing. Returns 0. */
KSERVICES_API int32_t ksys_jobThreadGroup_construct(ksys_jobThreadGroup *group);

/** Ends a group. Returns 0. */
KSERVICES_API int32_t ksys_jobThreadGroup_destruct(ksys_jobThreadGroup *group);

/** Tells what a group offers the calling thread. Returns 0. */
KSERVICES_API int32_t ksys_jobGetCurrentThreadState(ksys_jobThreadState *state, const ksys_jobThreadGroup *group);

/** Makes an empty holder. Returns 0. */
KSERVICES_API int32_t ksys_jobParams_construct(ksys_jobParams *params);

/** Ends a holder; data that it still holds is released. Returns the deleter's status, or 0. */
KSERVICES_API int32_t ksys_jobParams_destruct(ksys_jobParams *params);

/**
 * Takes ownership of a block; data that the holder still holds is released first.
 *
 * params            the holder.
 * dataPointer       address of the caller's pointer to the block; set to null on success.
 * deleter           frees the block later, given the address of a pointer to it.
 * Returns 0; #ksys_statusBadArgument or the negative status of the old data's deleter, the block then still
 * the caller's.
 */
KSERVICES_API int32_t ksys_jobParams_takeData(ksys_jobParams *params, void *dataPointer, ksys_cleanupRoutine deleter);

/**
 * Gives a job its data; dataPointer is the address of the pointer to set. Returns 0, or #ksys_statusNoData.
 */
KSERVICES_API int32_t ksys_jobParams_getDataConst(const ksys_jobParams *params, void *dataPointer);

/** Makes an empty list; takes no memory. Returns 0. */
KSERVICES_API int32_t ksys_jobRequestSet_construct(ksys_jobRequestSet *set);

/** Ends a list and releases the data of its jobs. Returns 0, or the first negative status of a deleter. */
KSERVICES_API int32_t ksys_jobRequestSet_destruct(ksys_jobRequestSet *set);

/**
 * Queues a job. The data moves from the holder into the list, so that the holder can be filled again.
 *
 * Returns 0, or the status of a failed allocation, the holder then untouched.
 */
KSERVICES_API int32_t ksys_jobRequestSet_addFuncAndParams(ksys_jobRequestSet *set, ksys_jobFunction function,
                                                          ksys_jobParams *params);

/** Makes an empty store of statuses; takes no memory. Returns 0. */
KSERVICES_API int32_t ksys_jobResultSet_construct(ksys_jobResultSet *set);

/** Ends a store of statuses. Returns 0. */
KSERVICES_API int32_t ksys_jobResultSet_destruct(ksys_jobResultSet *set);

/**
 * Runs all queued jobs and waits until they have finished. The calling thread works too, so the dispatch
 * makes progress even when every other thread is busy or none could be started. May be called from inside a
 * job and from several threads at once. Every job has the calling thread's floating-point rounding.
 *
 * group     the group.
 * requests  the jobs.
 * results   receives their statuses.
 * Returns 0, or the first negative status in the order of the requests (every job runs, whatever the others
 * return); or the status of a failed allocation, no job having run.
 */
KSERVICES_API int32_t ksys_jobThreadGroup_dispatchAndWait(ksys_jobThreadGroup *group, ksys_jobRequestSet *requests,
                                                          ksys_jobResultSet *results);

/** @} */

KSERVICES_END_C

#endif
