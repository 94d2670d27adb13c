// Checks frames before a night's work depends on them.
//
//   check_frames FRAME...

#include <iostream>
#include <orvacam.hpp>

int main(int argc, char** argv) {
  bool good = true;
  for (int i = 1; i < argc; ++i)
    try {
      for (const orvacam::Finding& finding : orvacam::Frame::read(argv[i]).check()) {
        std::cout << argv[i] << ": " << finding.id << ": " << finding.text << '\n';
        good = good && finding.severity != orvacam::Finding::Severity::error;
      }
    } catch (const orvacam::Error& error) {  // no header can be had
      std::cout << argv[i] << ": " << orvacam::reason_name(error.reason()) << ": " << error.what() << '\n';
      good = false;
    }
  return good ? 0 : 1;
}
