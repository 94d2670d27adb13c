#ifndef ORVACAM_TESTS_THREADS_TOGETHER_H
#define ORVACAM_TESTS_THREADS_TOGETHER_H

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

/// Runs work(0) to work(count - 1) in a thread each, which all start at once.
inline void together(std::size_t count, const std::function<void(std::size_t)>& work) {
  std::mutex mutex;
  std::condition_variable start;
  std::size_t waiting = 0;
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < count; ++i)
    threads.emplace_back([&, i] {
      {
        std::unique_lock<std::mutex> lock(mutex);
        if (++waiting == count) start.notify_all();
        start.wait(lock, [&] { return waiting == count; });
      }
      work(i);
    });
  for (std::thread& thread : threads)
    thread.join();
}

#endif  // ORVACAM_TESTS_THREADS_TOGETHER_H
