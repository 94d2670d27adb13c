/* The C header compiles alone, twice, and its constants are what they are for ever. */
#include <orvacam_c.h>

typedef char reasons_are_numbered_for_ever[ORVA_NOT_A_FRAME == 1 && ORVA_TRUNCATED == 2 &&
                                                   ORVA_UNSUPPORTED_SENSOR == 3 && ORVA_BAD_GEOMETRY == 4 &&
                                                   ORVA_MISMATCH == 5 && ORVA_BAD_ARGUMENT == 6 &&
                                                   ORVA_IO == 7 && ORVA_OUT_OF_MEMORY == 8 &&
                                                   ORVA_INTERNAL == 9
                                               ? 1
                                               : -1];
typedef char statuses_are_ints[sizeof(orva_status) == sizeof(int) ? 1 : -1];

int main(void) {
  return (int)sizeof(reasons_are_numbered_for_ever) - (int)sizeof(statuses_are_ints);
}
