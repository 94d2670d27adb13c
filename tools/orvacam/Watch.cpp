#include "Watch.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <set>

#include "Progress.h"
#include "Workers.h"

namespace tool {

namespace fs = std::filesystem;

namespace {

/// Closes what the system gave.
class Descriptor {
 public:
  explicit Descriptor(int number) : m_number(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (m_number >= 0) close(m_number);
  }
  int number() const { return m_number; }

 private:
  int m_number;
};

/// While it lives, INT, TERM and HUP can be read from a descriptor instead of ending the program.
class StopRequests {
 public:
  StopRequests() : m_file(begin(m_before)) {}
  StopRequests(const StopRequests&) = delete;
  StopRequests& operator=(const StopRequests&) = delete;
  ~StopRequests() {
    // One that has come is not to end the program after all.
    signalfd_siginfo request{};
    while (read(m_file.number(), &request, sizeof request) > 0) {
    }
    sigprocmask(SIG_SETMASK, &m_before, nullptr);
  }
  int descriptor() const { return m_file.number(); }
  bool hasCome() const {
    signalfd_siginfo request{};
    return read(m_file.number(), &request, sizeof request) == sizeof request;
  }

 private:
  static int begin(sigset_t& before) {
    sigset_t requests;
    sigemptyset(&requests);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
      sigaddset(&requests, number);
    sigprocmask(SIG_BLOCK, &requests, &before);
    return signalfd(-1, &requests, SFD_NONBLOCK | SFD_CLOEXEC);
  }

  sigset_t m_before{};
  Descriptor m_file;
};

/// What a file was like when it was last worked on.
struct Seen {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec changed{};

  bool operator==(const Seen& o) const {
    return device == o.device && inode == o.inode && size == o.size && changed.tv_sec == o.changed.tv_sec &&
           changed.tv_nsec == o.changed.tv_nsec;
  }
};

bool look(const std::string& path, Seen& seen) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  seen = {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
  return true;
}

/// The folder and, if asked for, those below it.
class Tree {
 public:
  using Found = std::function<void(const std::string& under, const std::string& name, bool wasThere)>;

  Tree(std::string folder, bool recursive, Found found)
      : m_folder(std::move(folder)),
        m_recursive(recursive),
        m_found(std::move(found)),
        m_file(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (m_file.number() < 0) throw Failure(std::string("cannot be watched: ") + std::strerror(errno));
  }

  int descriptor() const { return m_file.number(); }
  bool isGone() const { return m_isGone; }

  /// Watches a folder from now on, and finds what is in it.
  void add(const std::string& under) {
    const std::string path = m_folder + "/" + under;
    const int watch = inotify_add_watch(
        m_file.number(), path.c_str(),
        IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
    if (watch < 0 && under.empty()) throw Failure(std::string("cannot be watched: ") + std::strerror(errno));
    if (watch < 0) {
      if (errno != ENOENT) complain(path, std::string("cannot be watched: ") + std::strerror(errno));
      return;
    }
    m_watches[watch] = under;
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(path, error); !error && entry != fs::directory_iterator();
         entry.increment(error))
      names.push_back(entry->path().filename().native());
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
      take(under, name, true);
  }

  /// Finds what has come.
  void readEvents() {
    alignas(inotify_event) char events[65536];
    for (;;) {
      const ssize_t length = read(m_file.number(), events, sizeof events);
      if (length <= 0) return;
      for (ssize_t at = 0; at < length;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
        handle(*event, event->len > 0 ? event->name : "");
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
  }

 private:
  void handle(const inotify_event& event, const std::string& name) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
      note(m_folder, "so much has come at once that events were lost; looking through it");
      add("");
      return;
    }
    const auto watch = m_watches.find(event.wd);
    if (watch == m_watches.end()) return;
    const std::string under = watch->second;
    if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) != 0) {
      m_isGone = m_isGone || under.empty();
      m_watches.erase(watch);
      if ((event.mask & IN_MOVE_SELF) != 0) inotify_rm_watch(m_file.number(), event.wd);
      return;
    }
    // A name that only came into being may be a link to a whole file, or the first of many bytes.
    take(under, name, (event.mask & IN_CREATE) != 0);
  }

  void take(const std::string& under, const std::string& name, bool wasThere) {
    if (name.empty() || name.front() == '.') return;
    const std::string path = m_folder + "/" + under + name;
    std::error_code error;
    if (!fs::is_directory(path, error))
      m_found(under, name, wasThere);
    else if (m_recursive && !fs::is_symlink(path, error))
      add(under + name + "/");
  }

  std::string m_folder;
  bool m_recursive, m_isGone = false;
  Found m_found;
  Descriptor m_file;
  std::map<int, std::string> m_watches;
};

/// Whether nobody is writing to a file, as far as the system can tell.
bool isAtRest(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.number() < 0) return false;
  // The system grants a lease for reading only while nobody has the file open for writing; not all file
  // systems do.
  if (fcntl(file.number(), F_SETLEASE, F_RDLCK) != 0) return errno != EAGAIN;
  fcntl(file.number(), F_SETLEASE, F_UNLCK);
  return true;
}

std::string jobOf(const Arrival& arrival) {
  return std::string(1, arrival.wasThere ? '1' : '0') + arrival.input.under + '\0' + arrival.input.path;
}

Arrival arrivalOf(const std::string& job) {
  const std::size_t end = job.find('\0');
  return {{job.substr(end + 1), job.substr(1, end - 1), ""}, job.front() == '1'};
}

/// The files that wait, are worked on and have been worked on.
class Watching {
 public:
  Watching(const std::string& folder, bool recursive, const WatchTask& task)
      : m_folder(folder),
        m_tree(folder, recursive,
               [this](const std::string& under, const std::string& name, bool wasThere) {
                 arrive({{m_folder + "/" + under + name, under, ""}, wasThere});
               }),
        m_workers(settings().jobs, [&task](const std::string& job, std::string& result) {
          return workOn(task, job, result);
        }) {}

  int run() {
    const StopRequests stop;
    m_tree.add("");
    while (!(m_tree.isGone() && m_waiting.empty() && m_atWork.empty())) {
      giveWork();
      for (Answer& answer : m_workers.wait({m_tree.descriptor(), stop.descriptor()}))
        finish(std::move(answer));
      if (stop.hasCome()) return stopped();
      m_tree.readEvents();
    }
    complain(m_folder, "is gone");
    return Failed;
  }

 private:
  static int workOn(const WatchTask& task, const std::string& job, std::string& result) {
    const Arrival arrival = arrivalOf(job);
    Report report;
    const int code = attempt(arrival.input.path, [&] {
      // What is written to from now on is another file, and will be taken again.
      const bool rests = isAtRest(arrival.input.path) && look(arrival.input.path, report.seen);
      report.fate = rests ? task(arrival) : Fate::Unfinished;
    });
    result.assign(reinterpret_cast<const char*>(&report), sizeof report);
    return code;
  }

  void arrive(const Arrival& arrival) {
    const auto [place, isNew] = m_places.emplace(arrival.input.path, m_arrived);
    if (isNew)
      m_waiting.emplace(m_arrived++, arrival);
    else if (!arrival.wasThere)
      m_waiting.at(place->second).wasThere = false;
  }

  /// What is worked on already waits until that is done.
  void giveWork() {
    for (auto next = m_waiting.begin(); next != m_waiting.end();) {
      const std::string path = next->second.input.path;
      if (m_atWork.count(path) > 0) {
        ++next;
        continue;
      }
      Seen now;
      const auto before = m_seen.find(path);
      if (look(path, now) && (before == m_seen.end() || !(before->second == now))) {
        if (!m_workers.give(next->first, jobOf(next->second))) return;
        m_atWork.insert(path);
        m_given[next->first] = path;
        m_unfinished.erase(path);
      }
      m_places.erase(path);
      next = m_waiting.erase(next);
    }
  }

  void finish(Answer answer) {
    const std::string path = m_given.at(answer.number);
    for (Said& said : answer.said) {
      if (said.kind == Said::Complaint && said.subject.empty()) said.subject = path;
      sayAgain(said);
    }
    Report report;
    if (answer.result.size() == sizeof report) std::memcpy(&report, answer.result.data(), sizeof report);
    if (report.fate == Fate::Unfinished) m_unfinished.insert(path);
    if (report.fate == Fate::Done || report.fate == Fate::Failed) {
      remember(path, report.seen);
      m_progress.step(path, report.fate == Fate::Failed);
    }
    m_given.erase(answer.number);
    m_atWork.erase(path);
  }

  /// Not of all nights: memory is not to grow with their number.
  void remember(const std::string& path, const Seen& seen) {
    constexpr std::size_t most = 10000;
    if (!m_seen.insert_or_assign(path, seen).second) return;
    m_order.push_back(path);
    if (m_order.size() <= most) return;
    m_seen.erase(m_order.front());
    m_order.pop_front();
  }

  int stopped() {
    for (const std::string& path : m_unfinished)
      note(path, "was not whole when the watch ended");
    return Good;
  }

  /// What a worker says of a file.
  struct Report {
    Fate fate = Fate::Failed;
    Seen seen;
  };

  std::string m_folder;
  Tree m_tree;
  Workers m_workers;
  Progress m_progress{0};
  std::size_t m_arrived = 0;
  std::map<std::size_t, Arrival> m_waiting;     // in the order of coming
  std::map<std::string, std::size_t> m_places;  // of paths among them
  std::map<std::size_t, std::string> m_given;   // to a worker
  std::set<std::string> m_atWork;               // the same paths
  std::map<std::string, Seen> m_seen;
  std::deque<std::string> m_order;
  std::set<std::string> m_unfinished;
};

}  // namespace

int watchFolder(const std::string& folder, bool recursive, const WatchTask& task) {
  // Who opens a file for writing while it has a lease would send it.
  signal(SIGIO, SIG_IGN);
  return attemptCode(folder, [&] { return Watching(folder, recursive, task).run(); });
}

}  // namespace tool
