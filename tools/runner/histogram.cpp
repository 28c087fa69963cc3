#include "tools/runner/histogram.h"

#include <algorithm>
#include <cmath>

namespace runner {
namespace {

constexpr int sub_bits = 7;                  // 128 buckets per power of two
constexpr uint64_t linear = 2u << sub_bits;  // below 256 every value has a bucket
constexpr int top_bit = 39;                  // the highest bit of max_us
constexpr size_t bucket_count = linear + (top_bit - sub_bits) * (size_t{1} << sub_bits);

int highest_bit(uint64_t v) { return 63 - __builtin_clzll(v); }

size_t index_of(uint64_t v) {
    if (v < linear) return static_cast<size_t>(v);
    int bit = highest_bit(v);  // 8 .. top_bit
    int shift = bit - sub_bits;
    uint64_t sub = (v >> shift) - (uint64_t{1} << sub_bits);  // 0 .. 127
    return linear + static_cast<size_t>(bit - sub_bits - 1) * (size_t{1} << sub_bits) +
           static_cast<size_t>(sub);
}

// The smallest value of a bucket, and its width.
void bounds_of(size_t index, uint64_t &low, uint64_t &width) {
    if (index < linear) {
        low = index;
        width = 1;
        return;
    }
    size_t above = index - linear;
    int shift = static_cast<int>(above >> sub_bits) + 1;
    uint64_t sub = (uint64_t{1} << sub_bits) + (above & ((size_t{1} << sub_bits) - 1));
    low = sub << shift;
    width = uint64_t{1} << shift;
}

}  // namespace

Histogram::Histogram() : buckets_(bucket_count, 0) {}

void Histogram::add(uint64_t us) {
    us = std::min(us, max_us);
    ++buckets_[index_of(us)];
    if (count_ == 0 || us < min_) min_ = us;
    if (us > max_) max_ = us;
    ++count_;
    sum_us_ += static_cast<double>(us);
}

void Histogram::add_ms(double ms) {
    double us = std::nearbyint(ms * 1000);
    add(!(us > 0) ? 0 : us >= static_cast<double>(max_us) ? max_us : static_cast<uint64_t>(us));
}

void Histogram::merge(const Histogram &other) {
    if (other.count_ == 0) return;
    for (size_t i = 0; i < bucket_count; ++i) buckets_[i] += other.buckets_[i];
    if (count_ == 0 || other.min_ < min_) min_ = other.min_;
    max_ = std::max(max_, other.max_);
    count_ += other.count_;
    sum_us_ += other.sum_us_;
}

void Histogram::clear() {
    if (count_ == 0) return;
    std::fill(buckets_.begin(), buckets_.end(), 0);
    count_ = min_ = max_ = 0;
    sum_us_ = 0;
}

uint64_t Histogram::percentile_us(double p) const {
    if (count_ == 0) return 0;
    p = std::clamp(p, 0.0, 1.0);
    uint64_t rank = static_cast<uint64_t>(std::ceil(p * static_cast<double>(count_)));
    rank = std::clamp<uint64_t>(rank, 1, count_);
    uint64_t seen = 0;
    for (size_t i = 0; i < bucket_count; ++i) {
        seen += buckets_[i];
        if (seen < rank) continue;
        uint64_t low = 0, width = 0;
        bounds_of(i, low, width);
        return std::clamp(low + (width - 1) / 2, min_, max_);
    }
    return max_;
}

}  // namespace runner
