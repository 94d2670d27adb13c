#include "FrameReader.h"

#include <malloc.h>

#include "files/Sha256.h"
#include "science/Refused.h"

namespace tool {

namespace science = orvacam::science;

namespace {

constexpr std::size_t hexDigits = 64;

}  // namespace

void freeFramesAtOnce() {
  constexpr int ownPages = 1 << 18;  // bytes, from which on memory is the system's, not the heap's
  mallopt(M_MMAP_THRESHOLD, ownPages);
}

std::vector<std::string> framesToReread(const std::string& command, const InputOptions& options) {
  std::vector<std::string> paths;
  for (const Input& input : inputsOf(options)) {
    if (input.path == "-")
      throw UsageError(command + ": frames are read more than once, which standard input cannot be");
    if (!input.wrong.empty()) throw science::Refused(input.path, input.wrong);
    paths.push_back(input.path);
  }
  return paths;
}

void FrameReader::claim(const std::string& path) {
  const Identity identity = identityOf(path);
  const auto [first, isNew] = m_files.insert({identity, path});
  if (!isNew && identity != Identity{0, 0})  // reading what is not there will say so
    throw science::Refused(
        path, first->second == path ? "is given twice" : "is given twice, also as " + first->second);
  m_sums.insert({path, std::string(hexDigits, ' ')});
}

orvacam::Frame FrameReader::read(const std::string& path) {
  std::string& sum = m_sums.at(path);
  if (sum.front() != ' ') return orvacam::Frame::read(path);
  if (!m_progress) m_progress = std::make_unique<Progress>(m_sums.size());
  try {
    orvacam::Frame frame = readNew(path, sum);
    m_progress->step(path, false);
    return frame;
  } catch (...) {
    m_progress->step(path, true);
    throw;
  }
}

orvacam::Frame FrameReader::readNew(const std::string& path, std::string& sum) const {
  orvacam::Frame frame = orvacam::Frame::read(path);
  const std::string_view bytes = frame.bytes();
  const std::string own = orvacam::files::sha256(bytes.data(), bytes.size());
  for (const auto& [other, known] : m_sums)
    if (known == own) throw science::Refused(path, "holds the same frame as " + other);
  sum.replace(0, hexDigits, own);
  return frame;
}

}  // namespace tool
