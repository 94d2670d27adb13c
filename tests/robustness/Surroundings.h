#ifndef ORVACAM_TESTS_ROBUSTNESS_SURROUNDINGS_H
#define ORVACAM_TESTS_ROBUSTNESS_SURROUNDINGS_H

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "TestFolder.h"

namespace robustness {

/// Runs a body in a process of its own, which may change its rights and mounts, and must end within a minute.
/// What the body complains of; empty when all is well.
inline std::string inChild(const std::function<std::string()>& body) {
  int ends[2] = {};
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    alarm(60);
    const std::string complaint = body();
    _exit(write(ends[1], complaint.data(), complaint.size()) == static_cast<ssize_t>(complaint.size()) ? 0
                                                                                                       : 1);
  }
  close(ends[1]);
  std::string complaint;
  char part[4096];
  for (ssize_t count = 0; (count = read(ends[0], part, sizeof part)) > 0;)
    complaint.append(part, static_cast<std::size_t>(count));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status))
    complaint +=
        WTERMSIG(status) == SIGALRM ? "it hangs" : "ended by signal " + std::to_string(WTERMSIG(status));
  else if (WEXITSTATUS(status) != 0)
    complaint += "ended with " + std::to_string(WEXITSTATUS(status));
  return complaint;
}

/// Gives up root's right to any file, for this process and the programs that it starts; nothing for other
/// users, who do not have it.
inline bool becomeOrdinary() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[2] = {};
  if (syscall(SYS_capget, &header, sets) != 0) return false;
  for (const unsigned int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) {
    if ((sets[0].effective & (1u << right)) == 0) continue;
    if (prctl(PR_CAPBSET_DROP, right, 0, 0, 0) != 0) return false;
    sets[0].effective &= ~(1u << right);
    sets[0].permitted &= ~(1u << right);
  }
  return syscall(SYS_capset, &header, sets) == 0;
}

/// Mounts a small file system over a folder, for this process and the programs that it starts. Where that is
/// not allowed, files may not grow longer than its size, and a line says so.
inline bool makeDiskSmall(const std::string& folder, unsigned long bytes) {
  const bool own = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
  const std::string options = "size=" + std::to_string(bytes);
  if (own && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
      mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0)
    return true;
  std::fprintf(stderr,
               "No file system can be mounted here: a limit to the length of files stands in for it.\n");
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, bytes};
  return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

/// What may stand where a file should.
enum class Obstacle { Missing, DanglingLink, Directory, Fifo, Empty, Unreadable, NullDevice, EndlessDevice };
inline constexpr Obstacle obstacles[] = {Obstacle::Missing,    Obstacle::DanglingLink, Obstacle::Directory,
                                         Obstacle::Fifo,       Obstacle::Empty,        Obstacle::Unreadable,
                                         Obstacle::NullDevice, Obstacle::EndlessDevice};
inline std::string nameOf(Obstacle obstacle) {
  static constexpr const char* names[] = {"Missing", "DanglingLink", "Directory",  "Fifo",
                                          "Empty",   "Unreadable",   "NullDevice", "EndlessDevice"};
  return names[static_cast<int>(obstacle)];
}

/// Puts it there.
inline void put(Obstacle obstacle, const std::string& path, const std::vector<unsigned char>& content) {
  switch (obstacle) {
    case Obstacle::Missing:
      break;
    case Obstacle::DanglingLink:
      std::filesystem::create_symlink("nowhere", path);
      break;
    case Obstacle::Directory:
      std::filesystem::create_directory(path);
      break;
    case Obstacle::Fifo:
      ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
      break;
    case Obstacle::Empty:
      std::ofstream(path).flush();
      break;
    case Obstacle::Unreadable:
      std::ofstream(path, std::ios::binary)
          .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
      ASSERT_EQ(chmod(path.c_str(), 0), 0);
      break;
    case Obstacle::NullDevice:
      std::filesystem::create_symlink("/dev/null", path);
      break;
    case Obstacle::EndlessDevice:
      std::filesystem::create_symlink("/dev/zero", path);
      break;
  }
}

}  // namespace robustness

#endif  // ORVACAM_TESTS_ROBUSTNESS_SURROUNDINGS_H
