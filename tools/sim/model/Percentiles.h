#pragma once
// p50, p99 and the maximum of a stream of durations, in bounded memory. Up to kExactSamples
// values are kept and the percentiles are exact (nearest rank); beyond that the values go into a
// log-scale histogram of 128 bins per doubling, and a percentile is reported as the middle of
// its bin: within 0.3 % of the exact value. The maximum and the count stay exact.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ryxsim {

struct WaitStats {
    size_t count = 0;
    double p50Us = 0, p99Us = 0, maxUs = 0;
};

class Percentiles {
  public:
    static constexpr size_t kExactSamples = size_t{1} << 19;

    void add(int64_t ns);
    WaitStats stats() const;
    double percentileUs(double q) const;  // nearest rank; 0 when empty
    bool exact() const { return mBins.empty(); }

  private:
    void toBins();

    std::vector<int64_t> mSamples;
    std::vector<uint64_t> mBins;  // empty while exact
    size_t mCount = 0;
    int64_t mMax = 0;
};

}  // namespace ryxsim
