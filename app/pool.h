// Worker threads that run jobs and hand their results back in the order the
// jobs were submitted.  Each worker runs `start` before its first job and `stop`
// after its last, on its own thread, so that whatever state a worker keeps is
// made, used and destroyed on the thread it belongs to.
#ifndef FMSD_APP_POOL_H
#define FMSD_APP_POOL_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace fmsd::app {

template <class Result>
class OrderedPool {
 public:
  using Job = std::function<Result(unsigned worker)>;
  using Hook = std::function<void(unsigned worker)>;

  OrderedPool(unsigned workers, Hook start, Hook stop) : start_(std::move(start)), stop_(std::move(stop)) {
    threads_.reserve(workers);
    try {
      for (unsigned w = 0; w < workers; ++w) threads_.emplace_back([this, w] { serve(w); });
    } catch (...) {
      shut();
      throw;
    }
  }

  // Jobs not yet started are dropped; those running are waited for.
  ~OrderedPool() { shut(); }
  OrderedPool(const OrderedPool&) = delete;
  OrderedPool& operator=(const OrderedPool&) = delete;

  void submit(Job job) {
    Entry entry{std::move(job), {}};
    results_.push_back(entry.promise.get_future());
    {
      std::lock_guard<std::mutex> lock(mutex_);
      queue_.push_back(std::move(entry));
    }
    wake_.notify_one();
  }

  // Jobs submitted and not yet taken by next(): the caller bounds this to bound
  // what is held in memory.
  std::size_t pending() const noexcept { return results_.size(); }

  // The oldest pending job's result, once it is there; what the job threw is
  // thrown here.
  Result next() {
    std::future<Result> f = std::move(results_.front());
    results_.pop_front();
    return f.get();
  }

 private:
  struct Entry {
    Job job;
    std::promise<Result> promise;
  };

  void serve(unsigned worker) {
    std::exception_ptr failed;
    try {
      start_(worker);
    } catch (...) {
      failed = std::current_exception();
    }
    for (;;) {
      Entry entry;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) break;
        entry = std::move(queue_.front());
        queue_.pop_front();
      }
      try {
        if (failed) std::rethrow_exception(failed);
        entry.promise.set_value(entry.job(worker));
      } catch (...) {
        entry.promise.set_exception(std::current_exception());
      }
    }
    if (!failed) stop_(worker);
  }

  void shut() noexcept {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
      queue_.clear();
    }
    wake_.notify_all();
    for (std::thread& t : threads_)
      if (t.joinable()) t.join();
  }

  Hook start_, stop_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Entry> queue_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
  std::deque<std::future<Result>> results_;  // the submitting thread's own
};

}  // namespace fmsd::app

#endif
