#pragma once
// A small seeded generator (splitmix64) whose sequence is the same on every platform and
// standard library, so that a seed names one run everywhere.

#include <cstdint>

namespace ryxsim {

class Rng {
  public:
    explicit Rng(uint64_t seed) : mState(seed) {}

    uint64_t next() {
        uint64_t z = (mState += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }

    // Uniform in [lo, hi] (inclusive); lo when hi < lo.
    int64_t uniform(int64_t lo, int64_t hi) {
        if (hi <= lo) {
            return lo;
        }
        uint64_t span = static_cast<uint64_t>(hi - lo) + 1;
        return lo + static_cast<int64_t>(next() % span);
    }

  private:
    uint64_t mState;
};

}  // namespace ryxsim
