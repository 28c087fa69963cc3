// Latencies of a load run: a log-linear histogram over whole microseconds.
// Values below 256 µs have a bucket each; above, every power of two is cut
// into 128 buckets, so a percentile read back is within 0.4% of the value
// it stands for (half a bucket's width). Memory is fixed (35 KB), adding is
// a few instructions, and two histograms add up bucket by bucket.
#ifndef ORBELLE_RUNNER_HISTOGRAM_H
#define ORBELLE_RUNNER_HISTOGRAM_H

#include <cstdint>
#include <vector>

namespace runner {

class Histogram {
public:
    // Values at or above this (about 12.7 days) are counted as this.
    static constexpr uint64_t max_us = (uint64_t{1} << 40) - 1;

    Histogram();

    void add(uint64_t us);
    void add_ms(double ms);  // rounded to the microsecond; negative counts as 0
    void merge(const Histogram &other);
    void clear();

    uint64_t count() const { return count_; }
    uint64_t min_us() const { return count_ ? min_ : 0; }
    uint64_t max_us_seen() const { return max_; }
    double mean_ms() const { return count_ ? sum_us_ / static_cast<double>(count_) / 1000 : 0; }
    // The value at rank ceil(p * count) of the sorted values (p from 0 to 1;
    // the smallest value for 0): the middle of its bucket, within the
    // smallest and largest value seen. 0 for an empty histogram.
    uint64_t percentile_us(double p) const;
    double percentile_ms(double p) const { return static_cast<double>(percentile_us(p)) / 1000; }

private:
    std::vector<uint64_t> buckets_;
    uint64_t count_ = 0;
    uint64_t min_ = 0;
    uint64_t max_ = 0;
    double sum_us_ = 0;  // of the values as counted
};

}  // namespace runner

#endif
