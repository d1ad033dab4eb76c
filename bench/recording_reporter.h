#pragma once
// A console reporter that also keeps each benchmark's time per iteration, so a benchmark program
// can print ratios between runs of the same process at the end.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

namespace halvora::bench {

class RecordingReporter : public benchmark::ConsoleReporter {
public:
    RecordingReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_None) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            if (run.error_occurred || run.iterations == 0) continue;
            // With repetitions the mean stands for the benchmark; it is reported after the runs.
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "mean") continue;
            const double toNs = benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                                benchmark::GetTimeUnitMultiplier(run.time_unit);
            nanoseconds_[run.run_name.str()] = run.GetAdjustedRealTime() * toNs;
            cpuNanoseconds_[run.run_name.str()] = run.GetAdjustedCPUTime() * toNs;
            for (const auto& [counter, value] : run.counters) counters_[run.run_name.str() + "/" + counter] = value;
        }
    }

    // Time per iteration in nanoseconds; -1 when the benchmark did not run or failed.
    double nanoseconds(const std::string& name) const {
        auto it = nanoseconds_.find(name);
        return it == nanoseconds_.end() ? -1.0 : it->second;
    }
    // CPU time per iteration of this thread in nanoseconds (what a pass costs a core); -1 as above.
    double cpuNanoseconds(const std::string& name) const {
        auto it = cpuNanoseconds_.find(name);
        return it == cpuNanoseconds_.end() ? -1.0 : it->second;
    }
    // A user counter of a benchmark; -1 when it was not reported.
    double counter(const std::string& name, const std::string& counter) const {
        auto it = counters_.find(name + "/" + counter);
        return it == counters_.end() ? -1.0 : static_cast<double>(it->second);
    }
    // ours / baseline; -1 when either is missing.
    double ratio(const std::string& ours, const std::string& baseline) const {
        const double a = nanoseconds(ours), b = nanoseconds(baseline);
        return a < 0 || b <= 0 ? -1.0 : a / b;
    }

private:
    std::map<std::string, double> nanoseconds_;
    std::map<std::string, double> cpuNanoseconds_;
    std::map<std::string, double> counters_;
};

}  // namespace halvora::bench
