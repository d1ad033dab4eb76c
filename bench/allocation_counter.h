#pragma once
// Counts the C++ heap allocations (operator new) a benchmark's loop makes, so a benchmark can report
// allocations per iteration next to its time. C allocations (libjpeg-turbo's own pools) are not
// seen. Link allocation_counter.cpp into the benchmark: it replaces the global operator new.

#include <cstdint>

namespace halvora::bench {

// Allocations made by operator new since the program started, on any thread.
std::uint64_t allocationCount();

// Allocations per iteration between two counts.
inline double allocationsPer(std::uint64_t before, std::uint64_t after, std::int64_t iterations) {
    return iterations > 0 ? static_cast<double>(after - before) / static_cast<double>(iterations) : 0.0;
}

}  // namespace halvora::bench
