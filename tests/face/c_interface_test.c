/* The C interface as a C program meets it: loaded with dlopen, and no C++ in sight.
 *
 *   c_interface_test LIBRARY FRAME      a GSENSE400 pair of 24 x 10 pixels
 */
#include <dlfcn.h>
#include <orvacam_c.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void require(int right, const char* what) {
  if (!right) {
    fprintf(stderr, "%s\n", what);
    exit(1);
  }
}

/* A function of the library, by its name, with the type that the header declares. */
static void* library;
static void* find(const char* name) {
  void* const function = dlsym(library, name);
  require(function != NULL, name);
  return function;
}
#define FIND(name) *(void**)&name##_ = find(#name)

static orva_status (*orva_frame_read_)(const char*, orva_frame**);
static void (*orva_frame_free_)(orva_frame*);
static unsigned (*orva_frame_planes_)(const orva_frame*);
static orva_status (*orva_decoder_create_)(orva_decoder**);
static void (*orva_decoder_free_)(orva_decoder*);
static orva_status (*orva_decoder_decode_)(orva_decoder*, const orva_frame*, const orva_request*,
                                           orva_decoded*);
static void (*orva_decoded_free_)(orva_decoded*);
static orva_status (*orva_image_get_info_)(const orva_image*, orva_image_info*);
static const orva_error* (*orva_last_error_)(void);
static const char* (*orva_version_)(void);

int main(int argc, char** argv) {
  orva_frame* frame = NULL;
  orva_frame* none = NULL;
  orva_decoder* decoder = NULL;
  orva_decoded planes;
  orva_image_info info;

  require(argc == 3, "usage: c_interface_test LIBRARY FRAME");
  library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  require(library != NULL, "the library loads");
  FIND(orva_frame_read);
  FIND(orva_frame_free);
  FIND(orva_frame_planes);
  FIND(orva_decoder_create);
  FIND(orva_decoder_free);
  FIND(orva_decoder_decode);
  FIND(orva_decoded_free);
  FIND(orva_image_get_info);
  FIND(orva_last_error);
  FIND(orva_version);

  require(strcmp(orva_version_(), "2.1.4") == 0, "the version");
  require(orva_last_error_()->kind == 0, "no reason yet");
  require(orva_frame_read_("/no/such/file", &none) == -ORVA_IO && none == NULL, "a missing file");
  require(orva_last_error_()->kind == ORVA_IO && strcmp(orva_last_error_()->path, "/no/such/file") == 0,
          "its reason");

  require(orva_frame_read_(argv[2], &frame) == 0, "the frame");
  require(orva_frame_planes_(frame) == (ORVA_PLANE_LOW | ORVA_PLANE_HIGH | ORVA_PLANE_MERGED), "its planes");
  require(orva_decoder_create_(&decoder) == 0, "a decoder");
  memset(&planes, 0, sizeof planes);
  planes.size = sizeof planes;
  require(orva_decoder_decode_(decoder, frame, NULL, &planes) == 0, "decoding");
  require(planes.low != NULL && planes.high != NULL && planes.merged != NULL && planes.image == NULL,
          "three planes");
  memset(&info, 0, sizeof info);
  info.size = sizeof info;
  require(orva_image_get_info_(planes.merged, &info) == 0, "the merged plane");
  require(info.width == 24 && info.height == 10 && info.type == ORVA_PIXEL_U16 && info.pixels != NULL,
          "its size and pixels");
  orva_decoded_free_(&planes);
  require(planes.low == NULL, "freed");
  orva_decoded_free_(&planes);
  orva_decoder_free_(decoder);
  orva_frame_free_(frame);
  orva_frame_free_(NULL);
  require(dlclose(library) == 0, "the library goes");
  puts("c interface: ok");
  return 0;
}
