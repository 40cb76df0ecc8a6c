// Moving order statistics: minimum, maximum, median and range.
//
// Each step costs O(log k) or less, however wide the window: the minimum and the
// maximum come from monotone queues of positions (amortised O(1) a step), the median
// from two heaps that split the window's values at the middle. Only positions
// holding a value enter either structure; the caller's int array is their storage,
// so nothing is allocated.
#include <cmath>
#include <cstddef>

#include "fmsd/moving.h"
#include "timeseries/window.h"

namespace fmsd {
namespace {

using std::ptrdiff_t;

constexpr double kNaN = __builtin_nan("");

// Positions whose values rise (Max = false) or fall (Max = true) from the front: the
// front is the window's extreme, and a position that can never be the extreme again,
// because a later one is at least as extreme, is dropped as that one arrives.
template <bool Max>
class Queue {
 public:
  Queue(const double* x, int* ring, int capacity) noexcept : x_(x), ring_(ring), capacity_(capacity) {}

  void add(ptrdiff_t i) noexcept {
    const double v = x_[i];
    if (v != v) {
      ++nan_;
      return;
    }
    while (size_ > 0 && !beats(x_[ring_[back()]], v)) --size_;
    int slot = head_ + size_;
    if (slot >= capacity_) slot -= capacity_;
    ring_[slot] = static_cast<int>(i);
    ++size_;
  }
  void remove(ptrdiff_t i) noexcept {
    if (x_[i] != x_[i]) --nan_;
    else if (size_ > 0 && ring_[head_] == i) {
      if (++head_ == capacity_) head_ = 0;
      --size_;
    }
  }
  void replace(ptrdiff_t out, ptrdiff_t in) noexcept {
    remove(out);
    add(in);
  }
  double value(ptrdiff_t, ptrdiff_t, ptrdiff_t) const noexcept { return nan_ > 0 ? kNaN : x_[ring_[head_]]; }

 private:
  static bool beats(double a, double b) noexcept { return Max ? a > b : a < b; }
  int back() const noexcept {
    const int slot = head_ + size_ - 1;
    return slot >= capacity_ ? slot - capacity_ : slot;
  }

  const double* x_;
  int* ring_;
  int capacity_;
  int head_ = 0, size_ = 0;
  ptrdiff_t nan_ = 0;
};

// `minmax` for the range: the maximum, then the minimum taken from it.
class Range {
 public:
  Range(const double* x, int* work, int capacity) noexcept
      : max_(x, work, capacity), min_(x, work + capacity, capacity) {}
  void add(ptrdiff_t i) noexcept {
    max_.add(i);
    min_.add(i);
  }
  void remove(ptrdiff_t i) noexcept {
    max_.remove(i);
    min_.remove(i);
  }
  void replace(ptrdiff_t out, ptrdiff_t in) noexcept {
    max_.replace(out, in);
    min_.replace(out, in);
  }
  double value(ptrdiff_t first, ptrdiff_t last, ptrdiff_t present) const noexcept {
    return max_.value(first, last, present) - min_.value(first, last, present);
  }

 private:
  Queue<true> max_;
  Queue<false> min_;
};

// Each half of the window's values is an 8-ary heap of positions: a third as deep as
// a binary one, and the eight children of a node sit side by side, so a wide window
// costs fewer rounds of dependent loads and fewer mispredicted branches. Max puts
// the largest value on top. Place j is stored at base[step * j], and `where` (shared
// by both halves) records it for each position: j in the max-heap, -1 - j in the
// min-heap.
constexpr int kArity = 8;

template <bool Max>
class Half {
 public:
  Half(const double* x, int* base, int step, int* where, int mask) noexcept
      : x_(x), base_(base), where_(where), step_(step), mask_(mask) {}

  int size() const noexcept { return size_; }
  int top() const noexcept { return at(0); }

  void push(int p) noexcept { up(size_++, p); }
  int pop() noexcept {
    const int top = at(0), last = at(--size_);
    if (size_ > 0) down(0, last);
    return top;
  }
  void erase(int j) noexcept {
    const int last = at(--size_);
    if (j < size_) fix(j, last);
  }
  // Puts p at place j, which held another position, and restores the order.
  void fix(int j, int p) noexcept {
    if (j > 0 && above(x_[p], x_[at((j - 1) / kArity)])) up(j, p);
    else down(j, p);
  }
  void down(int j, int p) noexcept {
    const double v = x_[p];
    for (;;) {
      const int first = kArity * j + 1;
      if (first >= size_) break;
      const int end = first + kArity < size_ ? first + kArity : size_;
      int best = first;
      double b = x_[at(first)];
      for (int c = first + 1; c < end; ++c) {
        const double w = x_[at(c)];
        // Selected by arithmetic, not by a branch the data would keep mispredicting.
        const bool better = above(w, b);
        best = better ? c : best;
        b = better ? w : b;
      }
      if (!above(b, v)) break;
      put(j, at(best));
      j = best;
    }
    put(j, p);
  }

 private:
  static bool above(double a, double b) noexcept { return Max ? a > b : a < b; }
  int at(int j) const noexcept { return base_[step_ * j]; }
  void put(int j, int p) noexcept {
    base_[step_ * j] = p;
    where_[p & mask_] = Max ? j : -1 - j;
  }
  void up(int j, int p) noexcept {
    const double v = x_[p];
    while (j > 0) {
      const int parent = (j - 1) / kArity;
      const int q = at(parent);
      if (!above(v, x_[q])) break;
      put(j, q);
      j = parent;
    }
    put(j, p);
  }

  const double* x_;
  int* base_;
  int* where_;
  int step_, mask_;
  int size_ = 0;
};

// `median`'s structure: the lower half of the window's values in a max-heap, the
// upper half in a min-heap, the lower holding the extra value of an odd count. Both
// share one array of `capacity` positions, the lower growing from its start and the
// upper from its end; `where` is indexed by a position's low bits, a window never
// holding two positions that share them. A value that leaves is taken out of its
// heap at once, so nothing stands in for it.
class Median {
 public:
  Median(const double* x, int* work, int capacity, int mask) noexcept
      : x_(x), where_(work + capacity), mask_(mask), low_(x, work, 1, where_, mask),
        high_(x, work + capacity - 1, -1, where_, mask) {}

  void add(ptrdiff_t i) noexcept {
    const int p = static_cast<int>(i);
    if (x_[p] != x_[p]) {
      ++nan_;
      return;
    }
    if (low_.size() == 0 || x_[p] <= x_[low_.top()]) low_.push(p);
    else high_.push(p);
    balance();
  }

  void remove(ptrdiff_t i) noexcept {
    const int p = static_cast<int>(i);
    if (x_[p] != x_[p]) {
      --nan_;
      return;
    }
    const int at = where_[p & mask_];
    if (at >= 0) low_.erase(at);
    else high_.erase(-1 - at);
    balance();
  }

  // The entering value takes the leaving one's place; if that puts it on the wrong
  // side of the middle, the two heaps trade their tops.
  void replace(ptrdiff_t out, ptrdiff_t in) noexcept {
    const int o = static_cast<int>(out), p = static_cast<int>(in);
    if (x_[o] != x_[o] || x_[p] != x_[p]) {
      remove(out);
      add(in);
      return;
    }
    const int at = where_[o & mask_];
    if (at >= 0) low_.fix(at, p);
    else high_.fix(-1 - at, p);
    if (high_.size() > 0 && x_[low_.top()] > x_[high_.top()]) {
      const int a = low_.top(), b = high_.top();
      low_.down(0, b);
      high_.down(0, a);
    }
  }

  double value(ptrdiff_t, ptrdiff_t, ptrdiff_t) const noexcept {
    if (nan_ > 0) return kNaN;
    const double a = x_[low_.top()];
    if (low_.size() > high_.size()) return a;
    // Halving first keeps two of the largest doubles from overflowing.
    return 0.5 * a + 0.5 * x_[high_.top()];
  }

 private:
  void balance() noexcept {
    if (low_.size() > high_.size() + 1) high_.push(low_.pop());
    else if (high_.size() > low_.size()) low_.push(high_.pop());
  }

  const double* x_;
  int* where_;
  int mask_;
  Half<true> low_;
  Half<false> high_;
  ptrdiff_t nan_ = 0;
};

// The smallest power of two minus one that covers `capacity` positions.
int low_bits(int capacity) noexcept {
  unsigned mask = 1;
  while (mask < static_cast<unsigned>(capacity)) mask <<= 1;
  return static_cast<int>(mask - 1);
}

// The minimum (maximum = 0) or the maximum (1).
int minmax(const double* x, int n, const Window& w, int* work, int strict, int maximum, double* out) noexcept {
  if (maximum) {
    Queue<true> queue(x, work, w.capacity);
    return walk(x, n, w, strict, queue, out);
  }
  Queue<false> queue(x, work, w.capacity);
  return walk(x, n, w, strict, queue, out);
}

int median(const double* x, int n, const Window& w, int* work, int strict, double* out) noexcept {
  Median heaps(x, work, w.capacity, low_bits(w.capacity));
  return walk(x, n, w, strict, heaps, out);
}

}  // namespace
}  // namespace fmsd

extern "C" FMSD_API int ztsmord(const double* x, int n, int k, int lead, int* work, int strict, int statistic,
                                double* out) {
  using namespace fmsd;
  if (!window_valid("ztsmord", k, lead)) return n;
  if (n < 1) return 0;
  if (x == nullptr || out == nullptr || work == nullptr) return n;
  if (statistic < ZTSM_MINIMUM || statistic > ZTSM_RANGE) {
    vzfdl(missing(), out, n);
    return n;
  }
  if (strict != 0 && strict != 1) return all_missing(x, n, out);
  const Window w = clip(n, k, lead);
  switch (statistic) {
    case ZTSM_MINIMUM:
    case ZTSM_MAXIMUM:
      return minmax(x, n, w, work, strict, statistic, out);
    case ZTSM_MEDIAN:
      return median(x, n, w, work, strict, out);
    default: {
      Range range(x, work, w.capacity);
      return walk(x, n, w, strict, range, out);
    }
  }
}
