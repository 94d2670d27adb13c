#include "Workers.h"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "Program.h"
#include "files/OutputFile.h"
#include "files/WithoutSignals.h"

namespace tool {

namespace {

constexpr int stopSignal = SIGUSR1;

/// The processes that a signal handler stops: fixed memory, since a handler may not ask for any.
std::atomic<pid_t> running[maximalJobs];

void remember(pid_t process) {
  for (std::atomic<pid_t>& entry : running) {
    pid_t none = 0;
    if (entry.compare_exchange_strong(none, process)) return;
  }
}

void forget(pid_t process) {
  for (std::atomic<pid_t>& entry : running)
    if (entry == process) entry = 0;
}

// ---- Messages between the processes: numbers and texts, these behind their length

bool sendAll(int channel, const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count = send(channel, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool receiveAll(int channel, void* to, std::size_t length) {
  for (std::size_t done = 0; done < length;) {
    const ssize_t count = recv(channel, static_cast<char*>(to) + done, length - done, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

void append(std::string& message, std::uint64_t number) {
  message.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void append(std::string& message, const std::string& text) {
  append(message, std::uint64_t{text.size()});
  message += text;
}

bool receive(int channel, std::uint64_t& number) {
  return receiveAll(channel, &number, sizeof number);
}

bool receive(int channel, std::string& text) {
  std::uint64_t length = 0;
  if (!receive(channel, length)) return false;
  text.resize(length);
  return receiveAll(channel, text.data(), length);
}

std::string messageOf(const Answer& answer) {
  std::string message;
  append(message, static_cast<std::uint64_t>(answer.code));
  append(message, answer.result);
  append(message, std::uint64_t{answer.said.size()});
  for (const Said& said : answer.said) {
    append(message, static_cast<std::uint64_t>(said.kind));
    append(message, said.subject);
    append(message, said.text);
  }
  return message;
}

bool receive(int channel, Answer& answer) {
  std::uint64_t code = 0, count = 0, kind = 0;
  if (!receive(channel, code) || !receive(channel, answer.result) || !receive(channel, count)) return false;
  answer.code = static_cast<int>(code);
  for (std::uint64_t i = 0; i < count; ++i) {
    Said said{};
    if (!receive(channel, kind) || !receive(channel, said.subject) || !receive(channel, said.text))
      return false;
    said.kind = static_cast<Said::Kind>(kind);
    answer.said.push_back(std::move(said));
  }
  return true;
}

extern "C" void endWorker(int) {
  orvacam::files::OutputFile::removeUnfinished();
  _exit(1);
}

/// What a process does that has become a worker: it ends with its parent.
void becomeWorker(pid_t parent) {
  for (std::atomic<pid_t>& entry : running)
    entry = 0;
  orvacam::files::OutputFile::forgetUnfinished();
  struct sigaction action {};
  action.sa_handler = endWorker;
  sigfillset(&action.sa_mask);
  sigaction(stopSignal, &action, nullptr);
  prctl(PR_SET_PDEATHSIG, stopSignal);
  if (getppid() != parent) _exit(1);
}

}  // namespace

Workers::Workers(unsigned count, Task task)
    : m_task(std::move(task)), m_workers(std::min(count, maximalJobs)) {}

Workers::~Workers() {
  for (Worker& worker : m_workers) {
    if (worker.process > 0 && worker.busy) kill(worker.process, stopSignal);
    end(worker);
  }
}

void Workers::start(Worker& worker) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw Failure(std::string("no channel to a worker: ") + std::strerror(errno));
  std::cout.flush();
  const pid_t self = getpid();
  const orvacam::files::WithoutSignals held;
  const pid_t process = fork();
  if (process == 0) {
    becomeWorker(self);
    close(ends[0]);
    for (const Worker& other : m_workers)
      if (other.channel >= 0) close(other.channel);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    work(ends[1]);
  }
  const int error = errno;
  close(ends[1]);
  if (process < 0) {
    close(ends[0]);
    throw Failure(std::string("no worker can be started: ") + std::strerror(error));
  }
  remember(process);
  worker.process = process;
  worker.channel = ends[0];
}

void Workers::work(int channel) {
  keepMemory();
  Capture capture;
  std::string job;
  while (receive(channel, job)) {
    Answer answer;
    answer.code = attemptCode("", [&] { return m_task(job, answer.result); });
    answer.said = capture.take();
    if (!sendAll(channel, messageOf(answer))) break;
  }
  // Not by a return: what the parent holds is the parent's.
  std::exit(0);
}

/// An idle worker, the ones that are there first; null when all that can be had are busy.
Workers::Worker* Workers::ready() {
  Worker* fresh = nullptr;
  bool anyBusy = false;
  for (Worker& worker : m_workers) {
    if (!worker.busy && worker.process != 0) return &worker;
    if (!worker.busy && fresh == nullptr) fresh = &worker;
    anyBusy = anyBusy || worker.busy;
  }
  if (fresh == nullptr) return nullptr;
  try {
    start(*fresh);
  } catch (const Failure&) {
    if (anyBusy) return nullptr;
    throw;
  }
  return fresh;
}

bool Workers::give(std::size_t number, const std::string& job) {
  Worker* const idle = ready();
  if (idle == nullptr) return false;
  std::string message;
  append(message, job);
  idle->busy = true;
  idle->number = number;
  // A worker that is gone is found when its answer does not come.
  sendAll(idle->channel, message);
  return true;
}

void Workers::end(Worker& worker) {
  if (worker.process == 0) return;
  close(worker.channel);
  while (waitpid(worker.process, nullptr, 0) < 0 && errno == EINTR) {
  }
  forget(worker.process);
  worker = Worker();
}

Answer Workers::answerOf(Worker& worker) {
  Answer answer;
  if (!receive(worker.channel, answer)) {
    int status = 0;
    while (waitpid(worker.process, &status, 0) < 0 && errno == EINTR) {
    }
    answer = Answer();
    answer.code = Failed;
    answer.said = {{Said::Complaint, "",
                    WIFSIGNALED(status) ? std::string("the process that worked on it was ended: ") +
                                              strsignal(WTERMSIG(status))
                                        : "the process that worked on it ended"}};
    forget(worker.process);
    close(worker.channel);
    answer.number = worker.number;
    worker = Worker();
    return answer;
  }
  answer.number = worker.number;
  worker.busy = false;
  return answer;
}

std::vector<Answer> Workers::wait(const std::vector<int>& others) {
  std::vector<pollfd> watched;
  std::vector<Worker*> busy;
  for (Worker& worker : m_workers)
    if (worker.busy) {
      watched.push_back({worker.channel, POLLIN, 0});
      busy.push_back(&worker);
    }
  for (const int other : others)
    watched.push_back({other, POLLIN, 0});
  std::vector<Answer> answers;
  if (poll(watched.data(), watched.size(), -1) <= 0) return answers;
  for (std::size_t i = 0; i < busy.size(); ++i)
    if (watched[i].revents != 0) answers.push_back(answerOf(*busy[i]));
  return answers;
}

void Workers::stopAll() noexcept {
  for (std::atomic<pid_t>& entry : running)
    if (entry != 0) kill(entry, stopSignal);
  for (std::atomic<pid_t>& entry : running)
    if (entry != 0) waitpid(entry, nullptr, 0);
}

}  // namespace tool
