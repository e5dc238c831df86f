// The benchmark driver: runs everything asked for, then prints, for every pair
// BM_<case>_Ours / BM_<case>_OpenSSL, how many times faster ours ran. Both sides
// run in this one process on the same inputs, so the ratio holds on a machine
// whose absolute speed varies from run to run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.error_occurred || r.run_type != Run::RT_Iteration) continue;
            // Keep nanoseconds per iteration whatever unit the case reports in.
            double ns =
                r.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(r.time_unit);
            m_times[r.benchmark_name()] = ns;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatios() const {
        bool header = false;
        for (const auto& [name, ours] : m_times) {
            const std::string suffix = "_Ours";
            if (name.size() <= suffix.size() ||
                name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
                continue;
            const std::string base = name.substr(0, name.size() - suffix.size());
            auto other = m_times.find(base + "_OpenSSL");
            if (other == m_times.end() || ours <= 0) continue;
            if (!header) {
                printf("\nOpenSSL time / our time (higher is better for us):\n");
                header = true;
            }
            printf("  %-40s %8.1fx\n", base.c_str(), other->second / ours);
        }
    }

  private:
    std::map<std::string, double> m_times;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
    return 0;
}
