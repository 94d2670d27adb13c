// docs/findings.md is what the table of findings says.

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "face/FaceTesting.h"

namespace {

std::string findingsDocument() {
  static constexpr const char* severities[] = {"note", "warning", "error"};
  std::string text =
      "# Findings\n\n"
      "`Frame::check()`, `orvacam check` and the bindings say these of a frame. Ids are stable. A frame with "
      "an "
      "error cannot be decoded: decoding fails with the error's reason and its sentence. Warnings and notes "
      "are "
      "of frames that decode all the same.\n\n"
      "| id | severity | reason | meaning |\n|---|---|---|---|\n";
  for (const orvacam::Finding& kind : orvacam::finding_kinds())
    text += "| `" + kind.id + "` | " + severities[static_cast<int>(kind.severity)] + " | " +
            orvacam::reason_name(kind.reason) + " | " + kind.text + " |\n";
  return text;
}

}  // namespace

// With ORVACAM_UPDATE_DOCUMENTS set, the document is written anew.
TEST(FaceDocuments, FindingsAreThoseOfTheTable) {
  const std::string path = ORVACAM_DOCUMENTS "/findings.md";
  if (std::getenv("ORVACAM_UPDATE_DOCUMENTS") != nullptr) std::ofstream(path) << findingsDocument();
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_EQ(text, findingsDocument());
}
