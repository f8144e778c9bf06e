#include "model/Percentiles.h"

#include <algorithm>
#include <cmath>

namespace ryxsim {

namespace {

constexpr int kBinsPerDoubling = 128;
constexpr size_t kBinCount = 64 * kBinsPerDoubling + 1;

// Bin 0 holds values up to 1 ns; bin i >= 1 holds [2^((i-1)/128), 2^(i/128)) ns.
size_t binOf(int64_t ns) {
    if (ns <= 1) {
        return 0;
    }
    auto i = static_cast<size_t>(std::log2(static_cast<double>(ns)) * kBinsPerDoubling) + 1;
    return std::min(i, kBinCount - 1);
}

double middleOf(size_t bin) {
    return bin == 0 ? 0.0 : std::exp2((static_cast<double>(bin) - 0.5) / kBinsPerDoubling);
}

// The nearest rank of quantile q among n values, 1-based.
size_t rankOf(double q, size_t n) {
    auto k = static_cast<size_t>(std::ceil(q * static_cast<double>(n)));
    return std::clamp<size_t>(k, 1, n);
}

}  // namespace

void Percentiles::add(int64_t ns) {
    mMax = mCount == 0 ? ns : std::max(mMax, ns);
    ++mCount;
    if (mBins.empty()) {
        mSamples.push_back(ns);
        if (mSamples.size() > kExactSamples) {
            toBins();
        }
        return;
    }
    ++mBins[binOf(ns)];
}

void Percentiles::toBins() {
    mBins.assign(kBinCount, 0);
    for (int64_t ns : mSamples) {
        ++mBins[binOf(ns)];
    }
    std::vector<int64_t>().swap(mSamples);
}

WaitStats Percentiles::stats() const {
    WaitStats w;
    w.count = mCount;
    if (mCount == 0) {
        return w;
    }
    w.maxUs = static_cast<double>(mMax) / 1000.0;
    w.p50Us = percentileUs(0.50);
    w.p99Us = percentileUs(0.99);
    return w;
}

double Percentiles::percentileUs(double q) const {
    if (mCount == 0) {
        return 0;
    }
    size_t k = rankOf(q, mCount);
    if (mBins.empty()) {
        std::vector<int64_t> v = mSamples;
        std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(k - 1), v.end());
        return static_cast<double>(v[k - 1]) / 1000.0;
    }
    size_t seen = 0;
    for (size_t b = 0; b < mBins.size(); ++b) {
        seen += mBins[b];
        if (seen >= k) {
            return std::min(middleOf(b), static_cast<double>(mMax)) / 1000.0;
        }
    }
    return static_cast<double>(mMax) / 1000.0;
}

}  // namespace ryxsim
