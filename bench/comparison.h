#pragma once

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace GxfBench {

/// A line of the table that a program prints behind its benchmarks.
struct Comparison {
    enum Measure { timeRatio, counterRatio, counterDifference, counterValue };

    std::string what;
    Measure measure;
    std::string subject;  ///< a benchmark, as "function/arguments"
    std::string baseline; ///< the benchmark that the subject is compared with
    std::string counter;  ///< of the two, unless times are compared
    double reach;         ///< the most that it should come to; negative for none
    double scale = 1;     ///< what to multiply a counter with
};

/// Collects every repetition, prints their medians, and compares benchmarks in the end.
///
/// The repetitions of all benchmarks are run in a random order, so that both sides of a comparison
/// get their share of whatever else the machine is doing, and each side counts by its median. The
/// second number compares the fastest repetitions, which the machine disturbed the least.
class ComparingReporter : public benchmark::ConsoleReporter {
  public:
    explicit ComparingReporter(std::vector<Comparison> const& comparisons)
        : ConsoleReporter(OO_None), m_comparisons(comparisons) {}

    void ReportRuns(std::vector<Run> const& runs) override {
        std::vector<Run> shown;
        bool const isRepeated = runs.size() > 1;
        for (Run const& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                collect(run);
            }
            if (!isRepeated || run.error_occurred || run.aggregate_name == "median") {
                shown.push_back(run);
            }
        }
        ConsoleReporter::ReportRuns(shown);
    }

    void Finalize() override {
        bool isFirst = true;
        for (Comparison const& comparison : m_comparisons) {
            std::vector<double> const subject = valuesOf(comparison.subject, comparison);
            std::vector<double> const baseline = valuesOf(comparison.baseline, comparison);
            bool const isSingle = comparison.measure == Comparison::counterValue;
            if (subject.empty() || (!isSingle && baseline.empty())) {
                continue;
            }
            if (isFirst) {
                std::printf("\n%-66s %10s %10s %10s\n", "", "median", "fastest", "reach");
                isFirst = false;
            }
            printLine(comparison, compare(comparison, median(subject), median(baseline)),
                      compare(comparison, least(subject), least(baseline)));
        }
    }

  private:
    struct Values {
        std::vector<double> times;
        std::map<std::string, std::vector<double>> counters;
    };

    void collect(Run const& run) {
        std::string const& arguments = run.run_name.args;
        Values& values =
            m_values[run.run_name.function_name + (arguments.empty() ? "" : "/") + arguments];
        // What a process of its own takes isn't in the CPU time of this one.
        bool const isReal = run.run_name.time_type == "real_time";
        values.times.push_back(isReal ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime());
        for (auto const& [name, counter] : run.counters) {
            // Inverted rates are times in seconds; the table has them in nanoseconds.
            bool const isTime = (counter.flags & benchmark::Counter::kInvert) != 0;
            values.counters[name].push_back(isTime ? counter.value * 1e9 : counter.value);
        }
    }

    std::vector<double> valuesOf(std::string const& benchmark, Comparison const& comparison) {
        Values& values = m_values[benchmark];
        return comparison.measure == Comparison::timeRatio ? values.times
                                                           : values.counters[comparison.counter];
    }

    static double median(std::vector<double> values) {
        if (values.empty()) {
            return 0;
        }
        auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

    static double least(std::vector<double> const& values) {
        return values.empty() ? 0 : *std::min_element(values.begin(), values.end());
    }

    static double compare(Comparison const& comparison, double subject, double baseline) {
        switch (comparison.measure) {
        case Comparison::timeRatio:
        case Comparison::counterRatio:
            return subject / baseline;
        case Comparison::counterDifference:
            return (subject - baseline) * comparison.scale;
        case Comparison::counterValue:
            return subject * comparison.scale;
        }
        return 0;
    }

    static void printLine(Comparison const& comparison, double middle, double fastest) {
        std::printf("%-66s %10.2f %10.2f", comparison.what.c_str(), middle, fastest);
        if (comparison.reach >= 0) {
            std::printf(" %10.2f%s", comparison.reach,
                        middle <= comparison.reach ? "" : "  not reached");
        }
        std::printf("\n");
    }

    std::vector<Comparison> const& m_comparisons;
    std::map<std::string, Values> m_values;
};

/// The program's main: runs the benchmarks that the arguments select, and compares them.
inline int runAndCompare(int argc, char** argv, std::vector<Comparison> const& comparisons) {
    // Defaults that arguments override.
    static char repetitions[] = "--benchmark_repetitions=41";
    static char interleaving[] = "--benchmark_enable_random_interleaving=true";
    static char leastTime[] = "--benchmark_min_time=0.01";
    std::vector<char*> arguments{argv[0], repetitions, interleaving, leastTime};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);

    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }
    ComparingReporter reporter(comparisons);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

} // namespace GxfBench
