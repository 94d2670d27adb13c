#ifndef ORVACAM_SRC_SUPPORT_QUIET_LOG_H
#define ORVACAM_SRC_SUPPORT_QUIET_LOG_H

namespace orvacam {

/// Makes the log, unless there is one, without its directory: that comes with the first line. Any number of
/// threads may call this; CLog's own getInstance and release are not to run meanwhile. May throw
/// std::bad_alloc.
void makeLogQuietly();

}  // namespace orvacam

#endif  // ORVACAM_SRC_SUPPORT_QUIET_LOG_H
