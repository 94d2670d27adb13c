#ifndef ORVACAM_TOOL_WORKERS_H
#define ORVACAM_TOOL_WORKERS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "Messages.h"

namespace tool {

/// What a worker gives back.
struct Answer {
  std::size_t number = 0;  ///< of the job
  int code = 0;            ///< exit code
  std::string result;
  std::vector<Said> said;
};

/// Processes that work beside each other, each with this one's memory as it was when it began: a frame that
/// brings one down, or a library that keeps something for itself, does not touch the others. They end with
/// this process, however it ends, and clear away what they have half written.
class Workers {
 public:
  /// Works on a job and gives its exit code and, if it likes, a result. Results and messages are kept for the
  /// answer.
  using Task = std::function<int(const std::string& job, std::string& result)>;

  Workers(unsigned count, Task task);
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;
  /// Lets them end; what they still work on is lost.
  ~Workers();

  /// Gives a job to an idle worker; false when none is idle and no more can be started. Throws Failure when
  /// there is none at all.
  bool give(std::size_t number, const std::string& job);
  /// Waits until one has an answer, or one of other descriptors can be read; what has come. A worker that
  /// broke down gives exit code 1 and says so.
  std::vector<Answer> wait(const std::vector<int>& others = {});

  /// Stops all workers and waits until they are gone: for signal handlers.
  static void stopAll() noexcept;

 private:
  struct Worker {
    pid_t process = 0;
    int channel = -1;
    bool busy = false;
    std::size_t number = 0;
  };
  void start(Worker& worker);
  Worker* ready();
  [[noreturn]] void work(int channel);
  Answer answerOf(Worker& worker);
  void end(Worker& worker);

  Task m_task;
  std::vector<Worker> m_workers;
};

}  // namespace tool

#endif  // ORVACAM_TOOL_WORKERS_H
