#ifndef KSYS_KEPT_RECORD_H
#define KSYS_KEPT_RECORD_H

#include <atomic>
#include <cstring>
#include <new>
#include <type_traits>

/**
 * A value that was once set process-wide. Readers hold plain pointers to it and take no lock, so it is never
 * changed and never released; the list keeps it reachable.
 */
template <class Value>
struct KeptRecord {
    Value value;
    KeptRecord *next;
};

/** A list of all values set so far, newest first. */
template <class Value>
using KeptRecords = std::atomic<KeptRecord<Value> *>;

/**
 * Returns a record equal to value that lasts as long as the library, or null when there is no memory for
 * one. A value that was set before is found again, so that switching to and fro takes no more memory.
 */
template <class Value>
const Value *keepRecord(KeptRecords<Value> &records, const Value &value) noexcept
{
    static_assert(std::has_unique_object_representations_v<Value>, "compared by its bytes");
    KeptRecord<Value> *newest = records.load(std::memory_order_acquire);
    for (const KeptRecord<Value> *record = newest; record != nullptr; record = record->next) {
        if (std::memcmp(&record->value, &value, sizeof value) == 0)
            return &record->value;
    }
    auto *record = new (std::nothrow) KeptRecord<Value>{value, newest};
    if (record == nullptr)
        return nullptr;
    // GCOVR_EXCL_BR_START: a race that no test can order
    while (!records.compare_exchange_weak(record->next, record, std::memory_order_acq_rel, std::memory_order_acquire)) {
    }
    // GCOVR_EXCL_BR_STOP
    return &record->value;
}

#endif
