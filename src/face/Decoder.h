#ifndef ORVACAM_SRC_FACE_DECODER_H
#define ORVACAM_SRC_FACE_DECODER_H

#include <orvacam/frames/IFrame.h>
#include <orvacam/gain/CCameraNVMergeSettings.h>
#include <orvacam/merge/CHWMergeReferenceFrames.h>
#include <orvacam_c.h>

#include <array>
#include <memory>
#include <optional>
#include <tuple>

#include "face/Corrections.h"
#include "face/Frames.h"
#include "face/Images.h"

namespace orvacam::face {

/// The images of one frame, in the order of planeNames; null where there is none.
using DecodedImages = std::array<std::unique_ptr<orva_image>, std::size(planeNames)>;

}  // namespace orvacam::face

/// Settings, and the machinery and memory that frames share: the frame object of the last sensor, the merge
/// with its terms, the tables of the statistics. All of it is on the heap.
struct orva_decoder {
 public:
  orva_decoder();
  orva_decoder(const orva_decoder&) = delete;
  orva_decoder& operator=(const orva_decoder&) = delete;
  ~orva_decoder();

  // Each throws orvacam::face::Failure, and then leaves the decoder as it was.
  void setDsnu(const char* path);
  void setPrnu(const char* path);
  void setBias(const orva_image* low, const orva_image* high);
  void setThresholds(unsigned int high, unsigned int difference);
  void setCalibration(const void* block, std::size_t length);

  orvacam::face::DecodedImages decode(const orva_frame& frame, const orva_request& request);
  /// The planes that it would make of a frame, as orva_plane bits.
  unsigned int planesOf(const orva_frame& frame);
  orva_merge_info mergeInfo(const orvacam::face::HeaderValues& header);

 private:
  /// What a frame gets, worked out before anything is decoded.
  struct Job;

  using Reference = std::unique_ptr<const orvacam::face::ReferenceTerms>;
  void setReference(Reference& kept, const Reference& other, Reference fresh);
  double ratioFor(const orvacam::face::HeaderValues& header);
  Job plan(const orva_frame& frame, const orva_request& request);
  void requireCorrections(const Job& job) const;
  void makeImages(const Job& job, const orva_request& request, orvacam::face::DecodedImages& images);
  void prepareMerge(const Job& job);
  void loadReferences(double ratio);
  void prepareBias(const Job& job);
  void run(const Job& job, orvacam::face::DecodedImages& images);
  void runMachinery(const Job& job, unpacked_images_t& wanted);
  void finish(const Job& job, const orva_request& request, orvacam::face::DecodedImages& images);

  Reference m_dsnu, m_prnu;
  std::unique_ptr<orva_image> m_biasLow, m_biasHigh;
  unsigned int m_highThreshold, m_differenceThreshold;
  std::unique_ptr<CCameraNVMergeSettings> m_stored;

  std::unique_ptr<CHWMergeReferenceFrames> m_merge;
  bool m_referencesLoaded = false;  ///< into the merge
  double m_loadedRatio = 0;
  std::unique_ptr<IFrame> m_machine;
  unsigned int m_machineDevice = 0;
  orvacam::face::Held<orvacam::face::PixelPool> m_pool;
  std::unique_ptr<orvacam::face::PlaneCounter> m_counter;

  /// The sensor, its side and the gain settings that the last ratio was looked up for.
  using RatioKey = std::tuple<unsigned int, bool, unsigned int, unsigned int>;
  std::optional<RatioKey> m_ratioKey;
  double m_ratio = 0;
};

#endif  // ORVACAM_SRC_FACE_DECODER_H
