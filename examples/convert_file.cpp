// Converts a raw frame file to FITS, with correction frames where they are given.
//
//   convert_file FRAME DESTINATION.fit [DSNU [PRNU]]

#include <orvacam.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

std::wstring wide(const char* text) {
  return text != nullptr ? utilCharToWideStrStatic(text) : L"";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 5) {
    std::fprintf(stderr, "usage: convert_file FRAME DESTINATION.fit [DSNU [PRNU]]\n");
    return 2;
  }
  const std::wstring source = wide(argv[1]);
  const std::wstring destination = wide(argv[2]);
  const std::wstring dsnu = wide(argc > 3 ? argv[3] : nullptr);
  const std::wstring prnu = wide(argc > 4 ? argv[4] : nullptr);

  conv_info_t request{ORVA_IMAGE_FORMAT_FITS, dsnu.empty() ? nullptr : dsnu.c_str(),
                      prnu.empty() ? nullptr : prnu.c_str()};
  CAlgo algo;
  try {
    const int status = algo.ConvertFile(source.c_str(), &request, destination.c_str());
    if (status < 0) std::fprintf(stderr, "%s: cannot be converted (status %d)\n", argv[1], status);
    return status < 0 ? 1 : 0;
  } catch (const std::out_of_range&) {  // the one exception that ConvertFile documents
    std::fprintf(stderr, "%s: a destination needs an extension\n", argv[2]);
    return 1;
  }
}
