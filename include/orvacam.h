#ifndef ORVACAM_H
#define ORVACAM_H

/// \file
/// liborvacam: from a scientific camera's raw frame to science.
///
/// A raw frame is a binary header followed by packed pixels. The library parses the header (CFrameMetaData),
/// picks the frame class of the sensor (CFrameFactory), unpacks the pixels into 16-bit planes (IFrame and its
/// classes), corrects and merges the low-gain and the high-gain plane the way the camera's own hardware does
/// (CHWMergeReferenceFrames), gathers statistics (CFrameStatistics) and writes FITS and TIFF files
/// (CFitsInterface, CTiffMaker). CAlgo does all of that in one call:
///
/// \code
///   CAlgo algo;
///   gain_type_info_t camera{ORVA_DEVICE_GSENSE400, false};
///   algo.Initialize(camera, nullptr);
///
///   unpacked_images_t images{};
///   images.bMergedImageRequest = true;
///   if (algo.MergeImage(rawFrame, rawFrameLength, &images, nullptr) >= 0)
///     use(images.pMergedImage, images.ulMergedImagePixels);
///   algo.FreeFramePointers(&images);
/// \endcode
///
/// Statuses are ints: 0 or more is success, a negative value is failure. Nothing throws except where an
/// operation's documentation says so; constructors may throw std::bad_alloc, as the expressions that call
/// them may. The library starts no threads; an object is used by one thread at a time, and two threads may
/// each use their own. Only the log (CLog) is shared.

// The caller's records and enumerations.
#include <orvacam/types/conv_info.h>
#include <orvacam/types/device_types.h>
#include <orvacam/types/frame_roi.h>
#include <orvacam/types/gain_types.h>
#include <orvacam/types/image_format.h>
#include <orvacam/types/merge_types.h>
#include <orvacam/types/meta_keys.h>
#include <orvacam/types/plane_stats.h>
#include <orvacam/types/unpacked_images.h>
#include <orvacam/version.h>

// The way in.
#include <orvacam/facade/CAlgo.h>

// What a frame says of itself.
#include <orvacam/metadata/CFrameMetaData.h>
#include <orvacam/metadata/CFrameOtherMetaData.h>
#include <orvacam/metadata/CMetaValues.h>

// Raw frames, one class per sensor family.
#include <orvacam/frames/CFrameArgent23084.h>
#include <orvacam/frames/CFrameFactory.h>
#include <orvacam/frames/CFrameGSense2020.h>
#include <orvacam/frames/CFrameGSense400.h>
#include <orvacam/frames/CFrameGSense4040.h>
#include <orvacam/frames/CFrameGSense6060.h>
#include <orvacam/frames/CFrameGeneric.h>
#include <orvacam/frames/CFrameIMX183.h>
#include <orvacam/frames/CFrameLSGEN.h>
#include <orvacam/frames/IFrame.h>

// What a plane's pixels amount to.
#include <orvacam/statistics/CFrameStatistics.h>

// Merging two gains into one image.
#include <orvacam/merge/CCustomMergeAlgo.h>
#include <orvacam/merge/CHWMergeReferenceFrames.h>
#include <orvacam/merge/CMergeAlgoLegacy.h>

// What the camera and the sensor say of their gains.
#include <orvacam/gain/CCameraNVMergeSettings.h>
#include <orvacam/gain/CDeviceGainTablesFactory.h>
#include <orvacam/gain/CGainTables.h>
#include <orvacam/gain/CMergeMappingArray.h>
#include <orvacam/gain/CMergeSettings.h>
#include <orvacam/gain/IDeviceGainTables.h>

// Averaging frames, writing image files.
#include <orvacam/imagefiles/CFitsInterface.h>
#include <orvacam/imagefiles/CTiffMaker.h>
#include <orvacam/stack/CStacker.h>

// The log and small utilities.
#include <orvacam/support/CLog.h>
#include <orvacam/support/util.h>

#endif  // ORVACAM_H
