/* A frame's header as JSON, in C.
 *
 *   header_json FRAME
 */
#include <orvacam_c.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
  orva_header* header = NULL;
  char* text = NULL;
  size_t length = 0;
  int result = 1;

  if (orva_header_read(argc > 1 ? argv[1] : "frame.raw", &header) == 0 &&
      orva_header_to_json(header, NULL, 0, &length) == 0 && (text = malloc(length + 1)) != NULL &&
      orva_header_to_json(header, text, length + 1, NULL) == 0) {
    puts(text);
    result = 0;
  } else {
    fprintf(stderr, "%s: %s\n", orva_last_error()->path, orva_last_error()->text);
  }
  free(text);
  orva_header_free(header);
  return result;
}
