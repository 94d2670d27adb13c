#ifndef ORVACAM_C_H
#define ORVACAM_C_H

/**
 * \file
 * The C interface of liborvacam: raw frames of scientific cameras become 16-bit planes. Programs in C, and
 * every other language, meet the library here; C++ programs have <orvacam.hpp> over it.
 *
 * \code
 *   orva_frame* frame = NULL;
 *   orva_decoder* decoder = NULL;
 *   orva_decoded planes = {sizeof planes, NULL, NULL, NULL, NULL};
 *   if (orva_frame_read("m31.raw", &frame) == 0 && orva_decoder_create(&decoder) == 0 &&
 *       orva_decoder_decode(decoder, frame, NULL, &planes) == 0)
 *     use(planes.merged);
 *   else
 *     puts(orva_last_error()->text);
 *   orva_decoded_free(&planes);
 *   orva_decoder_free(decoder);
 *   orva_frame_free(frame);
 * \endcode
 *
 * Statuses. Functions that can fail return an orva_status: 0, or minus the kind of the reason
 * (ORVA_TRUNCATED is kind 2, status -2). orva_last_error() then says why. Outputs are written on success
 * alone, but for handles, which are null after a failure. Every function that takes a pointer can fail with
 * bad_argument (null where null is not said to mean something), every one that makes something with
 * out_of_memory. Nothing is ever thrown through this interface.
 *
 * Handles. What a function hands out through a `**` parameter named `out` is the caller's and goes back with
 * the type's `..._free`, which takes null as well. What it returns as a pointer to const is borrowed: it
 * lives as long as the handle that it came from. `..._share` makes another handle of one that cannot change,
 * at no cost; each goes back on its own.
 *
 * Records begin with `size`. Set it to sizeof the record before a call: the library touches no more than
 * that, so that records can grow. Records that the library hands out say their own size there.
 *
 * Paths are the bytes that the system knows a file by, ended by NUL; no locale plays a part. Texts that come
 * out are UTF-8, ended by NUL.
 *
 * Threads. A decoder and a stack are used by one thread at a time. Frames, headers and images do not change
 * once made: any number of threads may read them, and free what they own. Decoders know nothing of each
 * other.
 */

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define ORVA_API __attribute__((visibility("default")))
#else
#define ORVA_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Reasons */

/** 0: good; else minus an orva_reason. */
typedef int orva_status;

/** Kinds of reasons, numbered for ever; kinds are only added. */
enum orva_reason {
  ORVA_NOT_A_FRAME = 1,        /**< empty, no "Meta" at the start, a FITS or TIFF file */
  ORVA_TRUNCATED = 2,          /**< fewer bytes than the header or the pixels need */
  ORVA_UNSUPPORTED_SENSOR = 3, /**< a mode that the sensor cannot have */
  ORVA_BAD_GEOMETRY = 4,       /**< sizes that contradict each other or the sensor */
  ORVA_MISMATCH = 5,           /**< corrections or frames that do not fit each other */
  ORVA_BAD_ARGUMENT = 6,       /**< null, out of range, unknown name */
  ORVA_IO = 7,                 /**< the system's own error, or no regular file */
  ORVA_OUT_OF_MEMORY = 8,      /**< there is not enough memory */
  ORVA_INTERNAL = 9            /**< a fault of the library */
};

/** Why a function failed. */
typedef struct orva_error {
  size_t size;
  int kind;         /**< an orva_reason; 0 while nothing has failed in this thread */
  const char* text; /**< one sentence with the numbers that matter, without the path; "" while kind is 0 */
  const char* path; /**< the file, as it was given; "" where none plays a part */
  uint64_t needed;  /**< bytes needed, from the first byte of the file or buffer; 0 where it means nothing */
  uint64_t available; /**< bytes that are there; 0 where it means nothing */
  int system_error;   /**< errno of an ORVA_IO; else 0 */
} orva_error;

/** This thread's last reason. Never null; overwritten by the thread's next failure, untouched by success. */
ORVA_API const orva_error* orva_last_error(void);

/** "not_a_frame" and so on; "" for a number that is no kind. */
ORVA_API const char* orva_reason_name(int kind);

/* ---- The library */

/** "2.1.4" */
ORVA_API const char* orva_version(void);

/** The sensors that the library knows by name, in a fixed order; null from the count on. */
ORVA_API size_t orva_sensor_count(void);
ORVA_API const char* orva_sensor_name(size_t index);

/** What a header's value is. */
enum orva_key_kind { ORVA_KEY_NUMBER = 0, ORVA_KEY_FLAG = 1, ORVA_KEY_TEXT = 2 };

/** One of the header's values. */
typedef struct orva_key {
  size_t size;
  const char* name;                /**< "ExposureTime" */
  const char* unit;                /**< of the raw value: "10 us"; "" where it has none */
  int kind;                        /**< an orva_key_kind */
  int number;                      /**< the documented key number, 0 to 99 */
  int first_version, last_version; /**< the header versions that carry it */
} orva_key;

/** The 93 values that have a name, by key number; null from the count on. */
ORVA_API size_t orva_key_count(void);
ORVA_API const orva_key* orva_key_at(size_t index);

/* ---- Findings */

enum orva_severity { ORVA_NOTE = 0, ORVA_WARNING = 1, ORVA_ERROR = 2 };

/** Something that a look at a frame brought up. */
typedef struct orva_finding {
  size_t size;
  int severity;     /**< an orva_severity; a frame with an ORVA_ERROR cannot be decoded */
  int reason;       /**< of an error: the orva_reason that decoding fails with; else 0 */
  const char* id;   /**< stable: "pixels_missing" */
  const char* text; /**< one sentence with numbers */
  uint64_t needed;  /**< bytes needed and available, as in orva_error */
  uint64_t available;
} orva_finding;

/** All findings that there are: id, severity, reason, and as text what each means. Null from the count on. */
ORVA_API size_t orva_finding_kind_count(void);
ORVA_API const orva_finding* orva_finding_kind_at(size_t index);

/* ---- Headers */

/** What a frame says of itself. Immutable. */
typedef struct orva_header orva_header;

/**
 * The header at the start of `length` bytes, which stay the caller's and are not changed.
 * not_a_frame; truncated: fewer bytes than the header's version or its stated length needs.
 */
ORVA_API orva_status orva_header_parse(const void* bytes, size_t length, orva_header** out);
/** The same of a file, of which at most 64 KiB are read. Also io. */
ORVA_API orva_status orva_header_read(const char* path, orva_header** out);
/**
 * The processed header that a plane of a frame with this raw header has, as decoding gives it: 16 bits, no
 * pair, this plane's flags. Its bytes do not read back the same, so that programs that pass planes on pass
 * the raw header on. bad_argument: `plane` is not one orva_plane.
 */
ORVA_API orva_status orva_header_of_plane(const orva_header* raw, unsigned plane, orva_header** out);
ORVA_API orva_header* orva_header_share(const orva_header* header); /* null for null */
ORVA_API void orva_header_free(orva_header* header);

/** The values that programs ask for most, with their units in their names. */
typedef struct orva_header_info {
  size_t size;
  unsigned version;   /**< as stated; 1 to 4 are known */
  int hdr;            /**< the flag: 0 or 1 */
  const char* sensor; /**< one of orva_sensor_name; "GENERIC" for a model that names none */
  const char* model;
  const char* serial;
  double exposure_seconds;
  int has_temperature, has_set_point, has_time; /**< 0 where the header does not say, or nothing readable */
  double temperature_celsius;                   /**< of the sensor */
  double set_point_celsius;                     /**< of its cooler */
  int64_t time_nanoseconds;                     /**< since 1970-01-01T00:00:00 UTC, without leap seconds */
} orva_header_info;
ORVA_API orva_status orva_header_get_info(const orva_header* header, orva_header_info* info);

/** Where things are in a plane, in pixels, binned. */
typedef struct orva_geometry {
  size_t size;
  uint32_t width, height;                   /**< of a plane */
  uint32_t x, y, image_width, image_height; /**< the image region: reference rows and pixels lie outside */
  uint32_t start_row; /**< the sensor's row that the image begins with: where correction frames apply from */
} orva_geometry;
/** bad_geometry where the header has none: the image stops before it starts, or has no pixels. */
ORVA_API orva_status orva_header_get_geometry(const orva_header* header, orva_geometry* geometry);

/** A raw value as delivered, by its key's name; flags are 0 or 1. bad_argument: unknown key, text key. */
ORVA_API orva_status orva_header_get_number(const orva_header* header, const char* key, double* number);

/**
 * Texts are copied out like snprintf does: at most `capacity` bytes with the NUL that ends them; `length`
 * (may be null) becomes the length of the whole text without it. A null text of capacity 0 asks for the
 * length alone.
 *
 * The text of a value: of a number its shortest exact digits, of a flag "true" or "false", of a text the
 * bytes up to the first NUL without trailing blanks, "" for "<>", U+FFFD for what is no UTF-8. bad_argument:
 * unknown key.
 */
ORVA_API orva_status orva_header_get_text(const orva_header* header, const char* key, char* text,
                                          size_t capacity, size_t* length);
/** The library's metadata text, a line per field. */
ORVA_API orva_status orva_header_to_text(const orva_header* header, char* text, size_t capacity,
                                         size_t* length);
/** {"schema": "orvacam.header/1", "values": {name: value}, "units": {name: unit}, "derived": {...}} */
ORVA_API orva_status orva_header_to_json(const orva_header* header, char* text, size_t capacity,
                                         size_t* length);
/** The header's bytes as received, of a processed header as the library writes them. Borrowed. */
ORVA_API orva_status orva_header_get_bytes(const orva_header* header, const void** bytes, size_t* length);

/* ---- Images */

enum orva_pixel_type { ORVA_PIXEL_U16 = 0, ORVA_PIXEL_U64 = 1, ORVA_PIXEL_F32 = 2, ORVA_PIXEL_F64 = 3 };

/** Pixels, row by row without padding, in the machine's byte order. Immutable. */
typedef struct orva_image orva_image;

typedef struct orva_image_info {
  size_t size;
  int type; /**< an orva_pixel_type */
  uint32_t width, height;
  const void* pixels; /**< width x height of them; null when there are none. Lives as long as the image */
  int has_header, has_statistics; /**< 0 or 1 */
} orva_image_info;

/** A copy of width x height pixels, without header and statistics. Null for none is allowed. */
ORVA_API orva_status orva_image_copy(int type, uint32_t width, uint32_t height, const void* pixels,
                                     orva_image** out);
ORVA_API orva_status orva_image_get_info(const orva_image* image, orva_image_info* info);
/**
 * The processed header of a decoded or stacked plane: 16 bits a pixel, no pair, this plane's flags. Borrowed.
 * bad_argument: the image has none.
 */
ORVA_API orva_status orva_image_get_header(const orva_image* image, const orva_header** header);
ORVA_API orva_image* orva_image_share(const orva_image* image); /* null for null */
ORVA_API void orva_image_free(orva_image* image);

typedef struct orva_extreme {
  uint16_t value;
  uint32_t x, y; /**< the first place in row order that has it; a position in the plane */
} orva_extreme;

/** Statistics of a plane's image region. */
typedef struct orva_statistics {
  size_t size;
  uint64_t count;
  double mean, deviation; /**< exact to rounding; the deviation of the population */
  uint16_t mode;          /**< the most frequent value, the lowest of several */
  orva_extreme minimum, maximum;
  uint16_t clip_low, clip_high; /**< where 5 % of the pixels lie below, and 0.1 % above */
  const uint32_t* histogram;    /**< 65536 counts; null unless asked for. Lives as long as the image */
} orva_statistics;
/** bad_argument: none were asked for. */
ORVA_API orva_status orva_image_get_statistics(const orva_image* image, orva_statistics* statistics);

/* ---- Frames */

/** A raw frame: its header and its bytes. Immutable. */
typedef struct orva_frame orva_frame;

/**
 * A frame is there as soon as its header can be read; whatever else is wrong with it is a finding.
 * not_a_frame, truncated (the header alone), io.
 */
ORVA_API orva_status orva_frame_read(const char* path, orva_frame** out); /* the whole file, once */
ORVA_API orva_status orva_frame_copy(const void* bytes, size_t length, orva_frame** out);
/** The bytes stay the caller's, do not change, and outlive the frame. */
ORVA_API orva_status orva_frame_view(const void* bytes, size_t length, orva_frame** out);
ORVA_API orva_frame* orva_frame_share(const orva_frame* frame); /* null for null */
ORVA_API void orva_frame_free(orva_frame* frame);

/** Borrowed; null for null. */
ORVA_API const orva_header* orva_frame_header(const orva_frame* frame);
ORVA_API orva_status orva_frame_get_bytes(const orva_frame* frame, const void** bytes, size_t* length);

/** Planes of a frame, as a set of bits. */
enum orva_plane { ORVA_PLANE_LOW = 1, ORVA_PLANE_HIGH = 2, ORVA_PLANE_MERGED = 4, ORVA_PLANE_IMAGE = 8 };

/** The planes that the frame yields: low, high, merged; image; low, high; 0 where it cannot be decoded. */
ORVA_API unsigned orva_frame_planes(const orva_frame* frame);

/** What is to be said of the frame, errors first; none of a whole and sane one. */
ORVA_API orva_status orva_frame_finding_count(const orva_frame* frame, size_t* count);
/** Texts are borrowed from the frame. bad_argument: index from the count on. */
ORVA_API orva_status orva_frame_get_finding(const orva_frame* frame, size_t index, orva_finding* finding);

/* ---- Decoding */

/** Settings, and machinery and memory that frames share. */
typedef struct orva_decoder orva_decoder;

ORVA_API orva_status orva_decoder_create(orva_decoder** out);
/** Images that it made stay good. */
ORVA_API void orva_decoder_free(orva_decoder* decoder);

/**
 * Correction files of the merge: read now, opened for reading only. Null or "" takes one back; after a
 * refusal the earlier one holds. not_a_frame, truncated, bad_geometry, io; mismatch: the other one is of
 * another size or sensor.
 */
ORVA_API orva_status orva_decoder_set_dsnu(orva_decoder* decoder, const char* path);
ORVA_API orva_status orva_decoder_set_prnu(orva_decoder* decoder, const char* path);

/**
 * Bias frames, subtracted from each plane before merging, stopping at 0: one for each plane of a pair, the
 * first alone for frames of one image. Images of 16 bits, which stay the caller's and may be freed; two null
 * or empty ones take them back. A plane that carries a header covers the rows from its start row on, others
 * those from row 0 on. bad_argument: no 16-bit image. mismatch: the two differ in size or sensor.
 */
ORVA_API orva_status orva_decoder_set_bias(orva_decoder* decoder, const orva_image* low,
                                           const orva_image* high);

/** The merge's thresholds; 3700 and 128 at first. bad_argument: above 65535. */
ORVA_API orva_status orva_decoder_set_thresholds(orva_decoder* decoder, unsigned high, unsigned difference);

/**
 * The calibration block that a camera keeps, from which gain ratios are taken. Copied; null takes it back;
 * after a refusal the earlier one holds. bad_argument: it is none.
 */
ORVA_API orva_status orva_decoder_set_calibration(orva_decoder* decoder, const void* block, size_t length);

/** How the decoder would merge frames with this header. */
typedef struct orva_merge_info {
  size_t size;
  int merges;        /**< whether there is something to merge: 0 or 1 */
  double gain_ratio; /**< of high to low gain, as used: floored to 10 bits; 0 with PRNU frames */
  unsigned high_threshold, difference_threshold;
  unsigned type;        /**< 0: both gains */
  int dsnu, prnu, bias; /**< whether corrections are set: 0 or 1 */
} orva_merge_info;
ORVA_API orva_status orva_decoder_get_merge_info(orva_decoder* decoder, const orva_header* header,
                                                 orva_merge_info* info);

/** Memory of the caller for a plane; null: the decoder's own. It must outlive the image made over it. */
typedef struct orva_target {
  uint16_t* pixels;
  size_t capacity; /**< in pixels */
} orva_target;

enum orva_request_flag { ORVA_STATISTICS = 1, ORVA_HISTOGRAMS = 2 /**< implies statistics */ };

/** What is wanted of a frame. */
typedef struct orva_request {
  size_t size;
  unsigned planes; /**< orva_plane bits; planes that the frame does not have are passed over */
  unsigned flags;  /**< orva_request_flag bits */
  orva_target low, high, merged, image;
} orva_request;

/** A frame's planes; null where the frame has none or it was not asked for. Each is the caller's. */
typedef struct orva_decoded {
  size_t size;
  orva_image* low;
  orva_image* high;
  orva_image* merged;
  orva_image* image;
} orva_decoded;

/**
 * Decodes a frame; a null request asks for all planes. Handles in `decoded` are overwritten, not freed;
 * all are null after a failure, and the decoder is as good as new. Memory that planes had goes to the frames
 * after them when their images are freed. Kinds: those of the frame's error findings; mismatch: corrections
 * that do not cover the frame or have nothing to correct; bad_argument: a target that is too small (nothing
 * is written then).
 */
ORVA_API orva_status orva_decoder_decode(orva_decoder* decoder, const orva_frame* frame,
                                         const orva_request* request, orva_decoded* decoded);
/** Frees the four images and nulls them; null is allowed. */
ORVA_API void orva_decoded_free(orva_decoded* decoded);

/* ---- Machinery with a face */

/** One gain setting of a sensor. */
typedef struct orva_gain {
  size_t size;
  unsigned index; /**< as headers have it: LDRGain, HDRGain */
  double low_gain, high_gain;
  double low_electrons, high_electrons; /**< per count; 1 where the sensor has no table */
  double ratio;                         /**< high to low gain, both at this setting */
} orva_gain;

/**
 * A sensor's gain settings, in the sensor's own order, by orva_sensor_name or "LUMORA420", "LUMORA533",
 * "LUMORA571"; with a camera's calibration block, or null. Writes at most `capacity` records, which lie
 * gains[0].size bytes apart; `count` becomes how many there are. bad_argument: unknown sensor, a block that
 * is none.
 */
ORVA_API orva_status orva_gains(const char* sensor, int back_side_illuminated, const void* calibration,
                                size_t length, orva_gain* gains, size_t capacity, size_t* count);

enum orva_file_format { ORVA_FILE_TIFF = 1, ORVA_FILE_FITS = 2 };

/**
 * Converts a frame to the library's fixed files, byte for byte those of CAlgo::ConvertFile: "a/b.raw" as
 * `destination` gives "a/b_LOW.fit", "a/b_HIGH.fit" and "a/b_MERGED.fit", or "a/b.fit". Correction files may
 * be null. Programs in the field read these files; new ones are better off with standard files. Kinds: those
 * of decoding; io; bad_argument: no such format, a destination without a dot.
 */
ORVA_API orva_status orva_convert_file(const char* source, int format, const char* dsnu, const char* prnu,
                                       const char* destination);

/**
 * Cuts a region out of a frame's packed pixels: a raw frame again, with the header of the region. Positions
 * count from the image region's corner; x and width are even. Sensors that can: GSENSE4040, 12 bits.
 * unsupported_sensor: others. bad_argument: a region outside the image, empty, or odd. Also the kinds of
 * decoding.
 */
ORVA_API orva_status orva_frame_cut(const orva_frame* frame, uint32_t x, uint32_t y, uint32_t width,
                                    uint32_t height, orva_frame** out);

/* ---- Stacks */

/**
 * How many values of a pixel become one. Sigma clipping takes away what lies outside of
 *
 *   median - low * deviation ... median + high * deviation
 *
 * where median and deviation (of the population) are those of the values that are left, until that takes
 * nothing away, 20 times at most; the mean of what stays is the result. Where nothing stays, it is the last
 * median. Winsorized: what is taken away is set to the limits of the last round instead, then the mean of
 * all.
 */
enum orva_stack_method {
  ORVA_STACK_MEAN = 0,
  ORVA_STACK_SUM = 1,
  ORVA_STACK_MEDIAN = 2,
  ORVA_STACK_MINIMUM = 3,
  ORVA_STACK_MAXIMUM = 4,
  ORVA_STACK_SIGMA_CLIP = 5,
  ORVA_STACK_WINSORIZED = 6
};

/** How rows are combined. Null arrays: 1, 0 and 1 for every frame; else they have a number for each frame. */
typedef struct orva_combining {
  size_t size;
  int method;                   /**< an orva_stack_method */
  double sigma_low, sigma_high; /**< of sigma clipping and winsorizing: both above 0; others ignore them */
  const double* scales;         /**< a frame's values are value * scale + offset, in doubles */
  const double* offsets;
  const double* weights; /**< of a mean alone; none below 0, not all of them 0 */
} orva_combining;

/** Where results go: `count` each. Null: not wanted. */
typedef struct orva_combined {
  size_t size;
  double* values;
  double* deviations; /**< of the population of the values that stayed, without weights */
  uint16_t* rejected; /**< how many were taken away; 65535 for more */
} orva_combined;

/**
 * Combines `frames` rows of `count` values each into one: values[i] of rows[0][i], rows[1][i] and so on. Rows
 * are of ORVA_PIXEL_U16 or ORVA_PIXEL_F64. Sums are doubles, those of 16-bit values exact. Every value
 * depends on its own column alone: an image that is combined in parts, in whatever threads, is the same.
 * bad_argument: no such method or type, no frames, a null row, numbers that are not finite.
 */
ORVA_API orva_status orva_combine(const orva_combining* how, int type, const void* const* rows, size_t frames,
                                  size_t count, const orva_combined* out);

/** In what frames of one stack may differ. Sensor, mode and size can never be unlike. */
enum orva_allowance {
  ORVA_ALLOW_NOTHING = 0,
  ORVA_ALLOW_SETTINGS = 1, /**< exposure, gains, black level, binning, region, temperature */
  ORVA_ALLOW_EXPOSURE = 2
};
/** Whether two frames go into one stack. mismatch: unlike; the text names the field and both values. */
ORVA_API orva_status orva_header_require_alike(const orva_header* first, const orva_header* other,
                                               int allowed);

/**
 * Many frames into one. A mean and a sum keep sums, minimum and maximum one plane, whatever the number of
 * frames; the other methods keep all planes in memory (rows of more frames than that: orva_combine).
 */
typedef struct orva_stack orva_stack;

ORVA_API orva_status orva_stack_create(int method, orva_stack** out);
ORVA_API void orva_stack_free(orva_stack* stack);

/**
 * Settings, to be made before the first frame is added (bad_argument later). The plane's name; null or "":
 * merged, else image, else low, as the first frame has it. bad_argument: no plane's name.
 */
ORVA_API orva_status orva_stack_set_plane(orva_stack* stack, const char* name);
/** The decoder becomes the stack's, also when this fails; its settings hold for every frame. */
ORVA_API orva_status orva_stack_set_decoder(orva_stack* stack, orva_decoder* decoder);
/** The limits of sigma clipping and winsorizing; 3 and 3 at first. bad_argument: not above 0. */
ORVA_API orva_status orva_stack_set_sigma(orva_stack* stack, double low, double high);
/** Takes frames whose settings differ as well; sensor, mode and size can never be unlike. */
ORVA_API orva_status orva_stack_allow_unlike(orva_stack* stack, int allow);

/**
 * Decodes a frame and adds it. After a failure the stack is as before. Kinds: those of decoding; mismatch:
 * unlike the first frame (the text names the field); bad_argument: the frame lacks the plane, or the stack
 * has 2^32 frames.
 */
ORVA_API orva_status orva_stack_add(orva_stack* stack, const orva_frame* frame);
/** 0 for null. */
ORVA_API uint64_t orva_stack_count(const orva_stack* stack);

/** The name of the plane that is stacked; "" while that is the first frame's to say, and for null. */
ORVA_API const char* orva_stack_plane(const orva_stack* stack);

/**
 * Exact sums of the pixels and of their squares: images of ORVA_PIXEL_U64. bad_argument: empty stack, a
 * method other than mean and sum.
 */
ORVA_API orva_status orva_stack_sums(const orva_stack* stack, orva_image** out);
ORVA_API orva_status orva_stack_squares(const orva_stack* stack, orva_image** out);
/** The header of the first frame, raw. Borrowed. bad_argument: empty stack. */
ORVA_API orva_status orva_stack_get_header(const orva_stack* stack, const orva_header** header);

/** What a mean or a sum amounts to, beside its first frame's header. The images stay the caller's. */
typedef struct orva_stack_state {
  size_t size;
  int method;        /**< ORVA_STACK_MEAN or ORVA_STACK_SUM */
  const char* plane; /**< its name; null or "": merged, else image, else low, as the header says */
  uint64_t count;    /**< of frames */
  const orva_image* sums;
  const orva_image* squares;
} orva_stack_state;
/**
 * A stack that goes on where another one stopped. bad_argument: another method, a plane that frames with this
 * header do not have, a count of 0 or above 2^32, no images of ORVA_PIXEL_U64, sums that no such count of
 * 16-bit frames has. mismatch: sizes that are not that of the header's planes.
 */
ORVA_API orva_status orva_stack_restore(const orva_header* first, const orva_stack_state* state,
                                        orva_stack** out);
/** The same of a mean of the plane that the header says. */
ORVA_API orva_status orva_stack_from_sums(const orva_header* first, uint64_t count, const orva_image* sums,
                                          const orva_image* squares, orva_stack** out);
/**
 * Adds another stack's frames; `other` stays as it is. mismatch: unlike frames, planes or methods;
 * bad_argument: together they have more than 2^32 frames. After a failure the stack is as before.
 */
ORVA_API orva_status orva_stack_merge(orva_stack* stack, const orva_stack* other);

/** The result so far, as ORVA_PIXEL_F32 and ORVA_PIXEL_F64, rounded once. The stack goes on. bad_argument:
 * empty. */
ORVA_API orva_status orva_stack_result(const orva_stack* stack, orva_image** out);
ORVA_API orva_status orva_stack_result_f64(const orva_stack* stack, orva_image** out);
/** The result, cut off to 16 bits as CStacker does with means, with a header. bad_argument: empty, or a sum.
 */
ORVA_API orva_status orva_stack_result_u16(const orva_stack* stack, orva_image** out);

#ifdef __cplusplus
}
#endif

#endif /* ORVACAM_C_H */
