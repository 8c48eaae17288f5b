// Processor information: probed once, overridden at will.

#include <ksys/ksys.h>

#include <atomic>

#include "kept_record.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace {

#if defined(__x86_64__)

// GCOVR_EXCL_BR_START: one machine has one processor
ksys_cpuinfo probe()
{
    ksys_cpuinfo info = {1, 0, 0, 0, ksys_featurePackedInteger}; // every x86-64 processor has SSE2

    unsigned int signature = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &signature, &ebx, &ecx, &edx) != 0) {
        const uint32_t family = (signature >> 8) & 0xf;
        const bool isExtendedModel = family == 6 || family == 15;
        info.family = family + (family == 15 ? (signature >> 20) & 0xff : 0);
        info.model = ((signature >> 4) & 0xf) | (isExtendedModel ? (signature >> 12) & 0xf0 : 0);
        info.stepping = signature & 0xf;
    }

    // These ask for the processor's bit and for the operating system's, which must save the wide registers.
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2"))
        info.features |= ksys_featureAvx2;
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl")) {
        info.features |= ksys_featureAvx512;
        if (__builtin_cpu_supports("avx512vbmi"))
            info.features |= ksys_featureAvx512Vbmi;
    }
    return info;
}
// GCOVR_EXCL_BR_STOP

#else

ksys_cpuinfo probe()
{
    return {0, 0, 0, 0, 0};
}

#endif

constinit std::atomic<const ksys_cpuinfo *> overrideRecord{nullptr};
constinit KeptRecords<ksys_cpuinfo> overrideRecords{nullptr};

const ksys_cpuinfo &currentInfo()
{
    if (const ksys_cpuinfo *record = overrideRecord.load(std::memory_order_acquire))
        return *record;
    static const ksys_cpuinfo real = probe();
    return real;
}

} // namespace

int32_t ksys_cpuinfo_init(ksys_cpuinfo *record)
{
    if (record == nullptr)
        return ksys_statusBadArgument;
    *record = currentInfo();
    return 0;
}

int32_t ksys_cpuinfo_get(ksys_cpuinfo *record)
{
    if (record == nullptr)
        return ksys_statusBadArgument;
    const ksys_cpuinfo &info = currentInfo();
    const auto set = [](uint32_t &word, uint32_t value) {
        std::atomic_ref(word).store(value, std::memory_order_relaxed); // several threads may fill the record at once
    };
    set(record->kind, info.kind);
    set(record->family, info.family);
    set(record->model, info.model);
    set(record->stepping, info.stepping);
    set(record->features, info.features);
    return 0;
}

int32_t ksys_cpuinfo_setOverride(const ksys_cpuinfo *record)
{
    const ksys_cpuinfo *next = nullptr;
    if (record != nullptr) {
        next = keepRecord(overrideRecords, *record);
        if (next == nullptr)
            return ksys_statusOutOfMemory;
    }
    overrideRecord.store(next, std::memory_order_release);
    return 0;
}
