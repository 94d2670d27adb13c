/* A live loop in C: frames arrive in one buffer, planes go into memory that is there from the start. Nothing
 * that grows with the frame is allocated in the loop.
 *
 *   live_loop FRAME [COUNT]      the file stands in for a camera that sends the same frame again and again
 */
#include <orvacam_c.h>
#include <stdio.h>
#include <stdlib.h>

/* Decodes what the buffer holds into `pixels`. */
static orva_status show(orva_decoder* decoder, const void* bytes, size_t length, uint16_t* pixels,
                        size_t capacity) {
  orva_frame* frame = NULL;
  orva_request request = {
      sizeof request, ORVA_PLANE_MERGED | ORVA_PLANE_IMAGE, ORVA_STATISTICS, {NULL, 0}, {NULL, 0}, {NULL, 0},
      {NULL, 0}};
  orva_decoded planes = {sizeof planes, NULL, NULL, NULL, NULL};
  orva_statistics statistics = {sizeof statistics, 0, 0, 0, 0, {0, 0, 0}, {0, 0, 0}, 0, 0, NULL};
  orva_status status = orva_frame_view(bytes, length, &frame);

  request.merged.pixels = request.image.pixels = pixels;
  request.merged.capacity = request.image.capacity = capacity;
  if (status == 0) status = orva_decoder_decode(decoder, frame, &request, &planes);
  if (status == 0)
    status = orva_image_get_statistics(planes.merged != NULL ? planes.merged : planes.image, &statistics);
  if (status == 0) printf("mean %.3f, brightest %d\n", statistics.mean, (int)statistics.maximum.value);
  orva_decoded_free(&planes);
  orva_frame_free(frame);
  return status;
}

int main(int argc, char** argv) {
  int frames = argc > 2 ? atoi(argv[2]) : 3;
  orva_frame* first = NULL;
  orva_decoder* decoder = NULL;
  orva_geometry geometry = {sizeof geometry, 0, 0, 0, 0, 0, 0, 0};
  const void* bytes = NULL;
  uint16_t* pixels = NULL;
  size_t length = 0;
  size_t capacity = 0;
  orva_status status = orva_frame_read(argc > 1 ? argv[1] : "frame.raw", &first);

  if (status == 0) status = orva_frame_get_bytes(first, &bytes, &length);
  if (status == 0) status = orva_header_get_geometry(orva_frame_header(first), &geometry);
  if (status == 0) status = orva_decoder_create(&decoder);
  capacity = (size_t)geometry.width * geometry.height;
  pixels = malloc(capacity * sizeof *pixels + 1);
  if (status == 0 && pixels == NULL) status = -ORVA_OUT_OF_MEMORY;
  while (status == 0 && frames-- > 0)
    status = show(decoder, bytes, length, pixels, capacity);
  if (status != 0) fprintf(stderr, "%s: %s\n", orva_reason_name(-status), orva_last_error()->text);
  free(pixels);
  orva_decoder_free(decoder);
  orva_frame_free(first);
  return status == 0 ? 0 : 1;
}
