#include "face/Failure.h"
using namespace orvacam::face;
extern "C" {
const char* orva_version(void) {
  return "2.1.4";
}
orva_status orva_convert_file(const char*, int, const char*, const char*, const char*) {
  return guarded([&] { fail(ORVA_INTERNAL, "not built"); });
}
orva_status orva_frame_cut(const orva_frame*, uint32_t, uint32_t, uint32_t, uint32_t, orva_frame**) {
  return guarded([&] { fail(ORVA_INTERNAL, "not built"); });
}
}
