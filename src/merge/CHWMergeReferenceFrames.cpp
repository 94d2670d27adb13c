// Where the correction terms come from.

#include <orvacam/merge/CHWMergeReferenceFrames.h>
#include <orvacam/support/CLog.h>
#include <orvacam/support/util.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>
#include <new>

#include "merge/ReferenceMerge.h"
#include "metadata/FrameGeometry.h"
#include "support/CheckedMath.h"
#include "support/OpenFile.h"

using orvacam::ReferenceMerge;
using orvacam::ReferenceValues;
using orvacam::TermSlot;

namespace {

/// Bytes from the stream's position to the end of a regular file; 0 for anything else.
unsigned long bytesLeft(std::FILE* pFile) {
  struct stat status {};
  const long position = std::ftell(pFile);
  if (fstat(fileno(pFile), &status) != 0 || !S_ISREG(status.st_mode) || position < 0) return 0;
  return status.st_size > position ? static_cast<unsigned long>(status.st_size - position) : 0;
}

template <typename Value>
void freePlane(Value*& pPlane) {
  delete[] pPlane;
  pPlane = nullptr;
}

/// Whether a file's two planes of this many pixels are more than its bytes justify: a header alone never
/// makes us hold much memory, a file that was cut is still read.
bool outOfProportion(std::uint64_t width, std::uint64_t height, std::uint64_t fileBytes) {
  constexpr std::uint64_t alwaysAllowed = 8UL << 20;
  constexpr std::uint64_t largestRatio = 8;
  std::uint64_t bytes = 0;
  if (!orvacam::checkedMultiply(width, height, bytes) ||
      !orvacam::checkedMultiply(bytes, 2 * sizeof(unsigned short), bytes))
    return true;
  return bytes > alwaysAllowed && bytes / largestRatio > fileBytes;
}

void freePlanes(ref_frames_t& ref) {
  freePlane(ref.pAdditiveLow);
  freePlane(ref.pAdditiveHigh);
  freePlane(ref.pMultiplicativeLow);
  freePlane(ref.pMultiplicativeHigh);
  ref = ref_frames_t{};
}

}  // namespace

CHWMergeReferenceFrames::CHWMergeReferenceFrames() = default;
CHWMergeReferenceFrames::CHWMergeReferenceFrames(const CHWMergeReferenceFrames& other) = default;
CHWMergeReferenceFrames& CHWMergeReferenceFrames::operator=(const CHWMergeReferenceFrames& other) = default;
CHWMergeReferenceFrames::~CHWMergeReferenceFrames() = default;

// ---- Fixed point

unsigned short CHWMergeReferenceFrames::ConvertToFixedPoint(double dValue, unsigned int uiFracBits) {
  const double magnitude = std::fabs(dValue);
  if (!std::isfinite(magnitude)) return 0;
  constexpr double words = 65536.0;
  const double whole = std::trunc(magnitude);
  const auto integer = static_cast<unsigned int>(std::fmod(whole, words));
  const int bits = static_cast<int>(std::min(uiFracBits, 2000u));  // beyond that nothing of a double is left
  const double scaled = std::trunc(std::ldexp(magnitude - whole, bits));
  const auto fraction = std::isfinite(scaled) ? static_cast<unsigned int>(std::fmod(scaled, words)) : 0u;
  const unsigned int value = (uiFracBits < 16 ? integer << uiFracBits : 0) | fraction;
  return static_cast<unsigned short>(dValue < 0 ? 0 - value : value);
}

double CHWMergeReferenceFrames::ConvertToDouble(unsigned short usValue, unsigned int uiFracBits) {
  return std::ldexp(usValue, -static_cast<int>(std::min(uiFracBits, 2000u)));
}

double CHWMergeReferenceFrames::ConvertToDouble(short sValue, unsigned int uiFracBits) {
  return std::ldexp(sValue, -static_cast<int>(std::min(uiFracBits, 2000u)));
}

void CHWMergeReferenceFrames::ConvertPixelArray(const short* pSource, double* pTarget, unsigned long ulCount,
                                                unsigned int uiFracBits) {
  for (unsigned long i = 0; pSource != nullptr && pTarget != nullptr && i < ulCount; ++i)
    pTarget[i] = ConvertToDouble(pSource[i], uiFracBits);
}

void CHWMergeReferenceFrames::ConvertPixelArray(const unsigned short* pSource, double* pTarget,
                                                unsigned long ulCount, unsigned int uiFracBits) {
  for (unsigned long i = 0; pSource != nullptr && pTarget != nullptr && i < ulCount; ++i)
    pTarget[i] = ConvertToDouble(pSource[i], uiFracBits);
}

// ---- Frames made here

void CHWMergeReferenceFrames::ClearFrames() {
  for (unsigned int i = 0; i < orvacam::allTerms; ++i) {
    m_pTerms[i].reset();
    m_bTermsMade[i] = false;
  }
  for (std::vector<unsigned short>* buffer : {&m_TestMerged, &m_TestLow, &m_TestHigh})
    std::vector<unsigned short>().swap(*buffer);
  m_bCallerFrames = false;
}

namespace {

/// One term for all pixels, or a ramp that starts over at the end of the fixed-point range.
void makeTerms(const TermSlot& slot, double start, double step, unsigned int fractionBits,
               unsigned long pixels) {
  slot.made = true;
  slot.uniform = CHWMergeReferenceFrames::ConvertToFixedPoint(start, fractionBits);
  slot.values.reset();
  if (step == 0.0) return;
  const auto values = std::make_shared<ReferenceValues>();
  values->terms.resize(pixels);
  const double limit = std::ldexp(1.0, 16 - static_cast<int>(std::min(fractionBits, 2000u))) - 1.0;
  double value = start;
  for (unsigned short& term : values->terms) {
    term = CHWMergeReferenceFrames::ConvertToFixedPoint(value, fractionBits);
    value += step;
    if (value > limit) value = start;
  }
  slot.values = values;
}

/// Copies the terms into planes that become the caller's.
int copyTerms(const ReferenceMerge& from, ref_frames_t& ref) {
  std::uint64_t pixels = 0;
  if (!orvacam::checkedMultiply(from.width, from.height, pixels) || pixels > PTRDIFF_MAX / 2) return -1;
  ref.uiWidth = static_cast<unsigned int>(from.width);
  ref.uiHeight = static_cast<unsigned int>(from.height);
  ref.pAdditiveLow = new (std::nothrow) short[pixels];
  ref.pAdditiveHigh = new (std::nothrow) short[pixels];
  ref.pMultiplicativeLow = new (std::nothrow) unsigned short[pixels];
  ref.pMultiplicativeHigh = new (std::nothrow) unsigned short[pixels];
  if (ref.pAdditiveLow == nullptr || ref.pAdditiveHigh == nullptr || ref.pMultiplicativeLow == nullptr ||
      ref.pMultiplicativeHigh == nullptr) {
    freePlanes(ref);
    return -1;
  }
  for (unsigned long i = 0; i < pixels; ++i) {
    ref.pAdditiveLow[i] = static_cast<short>(from.terms[orvacam::AdditiveLow].at(i));
    ref.pAdditiveHigh[i] = static_cast<short>(from.terms[orvacam::AdditiveHigh].at(i));
    ref.pMultiplicativeLow[i] = from.terms[orvacam::MultiplicativeLow].at(i);
    ref.pMultiplicativeHigh[i] = from.terms[orvacam::MultiplicativeHigh].at(i);
  }
  return 0;
}

/// A plane of terms of the caller's; -1 without memory.
int takeTerms(CHWMergeReferenceFrames& algorithm, orvacam::WhichTerms which, const unsigned short* terms,
              unsigned int count) try {
  const ReferenceMerge merge = orvacam::handOut(algorithm);
  if (terms == nullptr || count != merge.width * merge.height) return -1;
  const auto values = std::make_shared<ReferenceValues>();
  values->terms.assign(terms, terms + count);
  const TermSlot slot = slotOf(algorithm, which);
  slot.values = values;
  slot.made = true;
  slot.areIdentity = false;
  slot.areCallers = true;
  return 0;
} catch (const std::exception&) {
  return -1;
}

/// A plane of terms of a file. False where it is short: what it does not bring keeps the term made before.
bool readTerms(std::FILE* file, const TermSlot& slot, unsigned long pixels, unsigned short* handedOut) {
  const auto values = std::make_shared<ReferenceValues>();
  values->terms.assign(pixels, slot.uniform);
  const unsigned long read = std::fread(values->terms.data(), sizeof(unsigned short), pixels, file);
  if (handedOut != nullptr) std::copy(values->terms.begin(), values->terms.end(), handedOut);
  slot.values = values;
  return read == pixels;
}

}  // namespace

int CHWMergeReferenceFrames::CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight, double dAddLow,
                                                  double dAddHigh, double dMulLow, double dMulHigh,
                                                  unsigned int uiAddFracBits, unsigned int uiMulFracBits,
                                                  double dAddStep, double dMulStep, ref_frames_t* pRef) {
  if (pRef != nullptr) *pRef = ref_frames_t{};
  ClearFrames();
  m_bIdentityFrames = dAddLow == 0.0 && dAddHigh == 0.0 && dMulLow == 1.0 && dMulHigh == 1.0 &&
                      dAddStep == 0.0 && dMulStep == 0.0;
  m_uiWidth = uiWidth;
  m_uiHeight = uiHeight;
  m_uiAddFracBits = uiAddFracBits;
  m_uiMulFracBits = uiMulFracBits;
  const unsigned long pixels = m_uiWidth * m_uiHeight;
  int result = 0;
  try {
    makeTerms(slotOf(*this, orvacam::AdditiveLow), dAddLow, dAddStep, uiAddFracBits, pixels);
    makeTerms(slotOf(*this, orvacam::AdditiveHigh), dAddHigh, dAddStep, uiAddFracBits, pixels);
    makeTerms(slotOf(*this, orvacam::MultiplicativeLow), dMulLow, dMulStep, uiMulFracBits, pixels);
    makeTerms(slotOf(*this, orvacam::MultiplicativeHigh), dMulHigh, dMulStep, uiMulFracBits, pixels);
    if (pRef != nullptr) result = copyTerms(orvacam::handOut(*this), *pRef);
  } catch (const std::exception&) {  // no memory, or a size beyond any memory
    result = -1;
  }
  if (result != 0) ClearFrames();
  return result;
}

int CHWMergeReferenceFrames::CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight, double dAddLow,
                                                  double dAddHigh, double dMulLow, double dMulHigh,
                                                  unsigned int uiAddFracBits, unsigned int uiMulFracBits,
                                                  ref_frames_t* pRef) {
  return CreateIdentityFrames(uiWidth, uiHeight, dAddLow, dAddHigh, dMulLow, dMulHigh, uiAddFracBits,
                              uiMulFracBits, 0.0, 0.0, pRef);
}

int CHWMergeReferenceFrames::CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight, double dMulLow,
                                                  double dMulHigh, ref_frames_t* pRef) {
  return CreateIdentityFrames(uiWidth, uiHeight, 0.0, 0.0, dMulLow, dMulHigh, m_uiAddFracBits,
                              m_uiMulFracBits, 0.0, 0.0, pRef);
}

int CHWMergeReferenceFrames::CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight,
                                                  unsigned int uiAddFracBits, unsigned int uiMulFracBits,
                                                  ref_frames_t* pRef) {
  return CreateIdentityFrames(uiWidth, uiHeight, 0.0, 0.0, 1.0, 1.0, uiAddFracBits, uiMulFracBits, 0.0, 0.0,
                              pRef);
}

int CHWMergeReferenceFrames::CreateIdentityFrames(unsigned int uiWidth, unsigned int uiHeight,
                                                  ref_frames_t* pRef) {
  return CreateIdentityFrames(uiWidth, uiHeight, m_uiAddFracBits, m_uiMulFracBits, pRef);
}

// ---- Frames from the caller

int CHWMergeReferenceFrames::SetAdditiveLowFromBuffer(const short* pValues, unsigned int uiCount) {
  return takeTerms(*this, orvacam::AdditiveLow, reinterpret_cast<const unsigned short*>(pValues), uiCount);
}
int CHWMergeReferenceFrames::SetAdditiveHighFromBuffer(const short* pValues, unsigned int uiCount) {
  return takeTerms(*this, orvacam::AdditiveHigh, reinterpret_cast<const unsigned short*>(pValues), uiCount);
}
int CHWMergeReferenceFrames::SetMultiplicativeLowFromBuffer(const unsigned short* pValues,
                                                            unsigned int uiCount) {
  return takeTerms(*this, orvacam::MultiplicativeLow, pValues, uiCount);
}
int CHWMergeReferenceFrames::SetMultiplicativeHighFromBuffer(const unsigned short* pValues,
                                                             unsigned int uiCount) {
  return takeTerms(*this, orvacam::MultiplicativeHigh, pValues, uiCount);
}

int CHWMergeReferenceFrames::CheckReferenceMetaData(std::FILE* pDSNU, std::FILE* pPRNU, unsigned int& uiWidth,
                                                    unsigned int& uiHeight) {
  using orvacam::FrameGeometry;
  constexpr const char* name = "CheckReferenceMetaData";
  if (pDSNU == nullptr && pPRNU == nullptr) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Both file pointers are null.  One must be valid!\n", name);
    return 0;
  }
  // The size that a file's header states and where its planes are; -1 where the header is none.
  const auto parse = [&](std::FILE* pFile, const char* kind, unsigned int& width, unsigned int& height) {
    CFrameMetaData metaData;
    const bool parsed = metaData.Parse(pFile) >= 0 && metaData.IsValid();
    const FrameGeometry geometry(metaData);
    const auto length = static_cast<long>(metaData.GetBinarizeSize());
    // A length of 0 is what a file leaves that is no frame; a header that could not be read to its end leaves
    // the sizes of an empty one.
    if (!parsed || geometry.fault() || length == 0 || std::ftell(pFile) < length) {
      m_pLog->log(CLOGLEVEL_ERROR, L"%s: Error parsing %s File Meta Data\n", name, kind);
      return -1L;
    }
    width = static_cast<unsigned int>(geometry.columns().frame());
    height = static_cast<unsigned int>(geometry.rows().frame());
    return length;
  };
  if (pDSNU != nullptr) {
    const long planes = parse(pDSNU, "DSNU", uiWidth, uiHeight);
    if (planes < 0) return -1;
    m_pLog->log(CLOGLEVEL_DEBUG, L"%s: DSNU File size w: %d, h: %d.\n", name, uiWidth, uiHeight);
    if (std::fseek(pDSNU, planes, SEEK_SET) != 0) return -1;
    if (pPRNU == nullptr) return 0;
  }
  unsigned int width = 0;
  unsigned int height = 0;
  const long planes = parse(pPRNU, "PRNU", width, height);
  if (planes < 0) return -1;
  if (pDSNU == nullptr) {
    // Intended: a PRNU file that comes alone stays where the parse left it.
    uiWidth = width;
    uiHeight = height;
    return 0;
  }
  if (width != uiWidth || height != uiHeight) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: PRNU File size w: %d, h: %d does not match DSNU size w: %d, h: %d\n",
                name, width, height, uiWidth, uiHeight);
    return -1;
  }
  return std::fseek(pPRNU, planes, SEEK_SET) == 0 ? 0 : -1;
}

int CHWMergeReferenceFrames::CreateReferenceFrames(const wchar_t* pDSNUFile, const wchar_t* pPRNUFile,
                                                   double dMulLow, double dMulHigh, ref_frames_t* pRef) try {
  constexpr const char* name = "CreateReferenceFrames";
  ClearFrames();
  // Intended: opened for writing, too.
  const orvacam::OpenFile dsnu(pDSNUFile != nullptr ? orvacam::openRegularFile(pDSNUFile, "r+b") : nullptr);
  if (pDSNUFile != nullptr && dsnu == nullptr) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Could not open DSNU File %s\n", name, utilWideToMbsStatic(pDSNUFile));
    return -1;
  }
  const orvacam::OpenFile prnu(pPRNUFile != nullptr ? orvacam::openRegularFile(pPRNUFile, "r+b") : nullptr);
  if (pPRNUFile != nullptr && prnu == nullptr) {
    m_pLog->log(CLOGLEVEL_ERROR, L"%s: Could not open PRNU File %s\n", name, utilWideToMbsStatic(pPRNUFile));
    return -1;
  }
  auto width = static_cast<unsigned int>(m_uiWidth);
  auto height = static_cast<unsigned int>(m_uiHeight);
  if (CheckReferenceMetaData(dsnu.get(), prnu.get(), width, height) < 0) return -1;

  const struct {
    std::FILE* file;
    orvacam::WhichTerms low, high;
    const wchar_t* noMemory;
  } sources[] = {{dsnu.get(), orvacam::AdditiveLow, orvacam::AdditiveHigh,
                  L"%s: Unable to allocate memory for DSNU data\n"},
                 {prnu.get(), orvacam::MultiplicativeLow, orvacam::MultiplicativeHigh,
                  L"%s: Unable to allocate memory for PRNU data\n"}};
  const wchar_t* noMemory = nullptr;
  for (const auto& source : sources)
    if (source.file != nullptr && noMemory == nullptr &&
        outOfProportion(width, height, bytesLeft(source.file)))
      noMemory = source.noMemory;
  // Planes that are handed out are as large as the header claims, so that then there are none.
  if (pRef != nullptr) *pRef = ref_frames_t{};
  if (CreateIdentityFrames(width, height, 0.0, 0.0, dMulLow, dMulHigh, m_uiAddFracBits, m_uiMulFracBits,
                           noMemory == nullptr ? pRef : nullptr) != 0)
    noMemory = sources[dsnu != nullptr ? 0 : 1].noMemory;
  if (noMemory != nullptr) {
    m_pLog->log(CLOGLEVEL_ERROR, noMemory, name);
    return -1;
  }
  unsigned short* const handedOut[orvacam::allTerms] = {
      pRef != nullptr ? reinterpret_cast<unsigned short*>(pRef->pAdditiveLow) : nullptr,
      pRef != nullptr ? reinterpret_cast<unsigned short*>(pRef->pAdditiveHigh) : nullptr,
      pRef != nullptr ? pRef->pMultiplicativeLow : nullptr,
      pRef != nullptr ? pRef->pMultiplicativeHigh : nullptr};
  int result = 0;
  for (const auto& source : sources) {
    if (source.file == nullptr) continue;
    m_bIdentityFrames = false;
    m_bCallerFrames = true;
    for (const orvacam::WhichTerms plane : {source.low, source.high})
      if (!readTerms(source.file, slotOf(*this, plane), m_uiWidth * m_uiHeight, handedOut[plane]))
        result = -1;
  }
  return result;
} catch (const std::exception&) {  // no memory, or a size beyond any memory
  return -1;
}
