#ifndef ORVACAM_FILES_WITHOUT_SIGNALS_H
#define ORVACAM_FILES_WITHOUT_SIGNALS_H

#include <signal.h>

namespace orvacam::files {

/// While it lives, signals are held back, whose handlers end the program or read a list that is not whole.
class WithoutSignals {
 public:
  WithoutSignals() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &m_before);
  }
  WithoutSignals(const WithoutSignals&) = delete;
  WithoutSignals& operator=(const WithoutSignals&) = delete;
  ~WithoutSignals() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }

 private:
  sigset_t m_before{};
};

}  // namespace orvacam::files

#endif  // ORVACAM_FILES_WITHOUT_SIGNALS_H
