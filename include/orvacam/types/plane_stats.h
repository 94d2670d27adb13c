#ifndef ORVACAM_TYPES_PLANE_STATS_H
#define ORVACAM_TYPES_PLANE_STATS_H

/// \file
/// Statistics of 16-bit image planes.

/// A pixel position.
struct int_point_t {
  int x;  ///< column
  int y;  ///< row
};

/// The statistics of one plane. See CFrameStatistics for how each figure is defined.
struct image_plane_stats_t {
  unsigned int uiLowClip;        ///< the 5 % point of the histogram
  unsigned int uiHighClip;       ///< the 99.9 % point of the histogram
  unsigned int uiHistogramSize;  ///< capacity of pHistogram in entries, 0 when there is none
  double* pHistogram;            ///< the caller's histogram, one count per pixel value from 0 on; may be null
  double dMean;                  ///< mean pixel value; not a number for a plane without pixels
  double dMidpoint;              ///< min + ((max + 1 - min) >> 1)
  double dMode;                  ///< the most frequent pixel value, the lowest of equals
  double dStdDev;                ///< population standard deviation
  int_point_t maxPoint;          ///< first position of the maximum
  unsigned int uiMax;            ///< maximum pixel value
  int_point_t minPoint;          ///< first position of the minimum
  unsigned int uiMin;            ///< minimum pixel value
  bool bRequest;                 ///< the caller asks for this plane's statistics
};

/// Request and delivery record for the statistics of one frame. Where a request flag is set and the histogram
/// pointer is null, the library allocates 65535 entries with malloc; CAlgo::FreeStatsPointers gives them
/// back.
struct unpacked_stats_t {
  image_plane_stats_t statsLow;     ///< of the low-gain plane
  image_plane_stats_t statsHigh;    ///< of the high-gain plane
  image_plane_stats_t statsMerged;  ///< of the merged plane's image pixels
};

#endif  // ORVACAM_TYPES_PLANE_STATS_H
