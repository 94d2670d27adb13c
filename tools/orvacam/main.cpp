// orvacam: raw frames of scientific cameras on the command line.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "common.h"

namespace {

int run(int argc, char** argv) {
  CLI::App app{"Raw frames of scientific cameras: look at them, convert them, stack them, make them.",
               "orvacam"};
  app.set_version_flag("--version", "orvacam " ORVACAM_VERSION_STRING);
  app.require_subcommand(1);
  int exitCode = 0;
  tool::addConvert(app, exitCode);
  tool::addInfo(app, exitCode);
  tool::addStats(app, exitCode);
  tool::addStack(app, exitCode);
  tool::addRoi(app, exitCode);
  tool::addGains(app, exitCode);
  tool::addSimulate(app, exitCode);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
  if (!std::cout.flush()) throw tool::Failure("standard output cannot be written");
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");  // file names; numbers stay as they are
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "orvacam: %s\n", error.what());
    return 1;
  } catch (...) {
    return 1;
  }
}
