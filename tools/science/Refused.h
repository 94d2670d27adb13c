#ifndef ORVACAM_SCIENCE_REFUSED_H
#define ORVACAM_SCIENCE_REFUSED_H

#include <stdexcept>
#include <string>
#include <utility>

namespace orvacam::science {

/// Frames that cannot be measured or calibrated with: the file that is to blame ("" for none), and why in one
/// sentence without its name.
class Refused : public std::runtime_error {
 public:
  Refused(std::string path, const std::string& what) : std::runtime_error(what), m_path(std::move(path)) {}
  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
};

}  // namespace orvacam::science

#endif  // ORVACAM_SCIENCE_REFUSED_H
