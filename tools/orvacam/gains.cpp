// orvacam gains: a sensor's gain tables.

#include <cstdio>
#include <iostream>
#include <orvacam.hpp>

#include "Commands.h"
#include "Inputs.h"

namespace tool {

namespace {

struct GainsOptions {
  std::string sensor, calibration;
  bool backSideIlluminated = false;
};

int gains(const GainsOptions& options) {
  return attemptCode(options.sensor, [&] {
    const std::vector<orvacam::Gain> plain = orvacam::gains(options.sensor, options.backSideIlluminated);
    std::vector<orvacam::Gain> own = plain;
    int code = Good;
    const bool stored = !options.calibration.empty();
    if (stored) {
      code = attempt(options.calibration, [&] {
        const std::string block = readAll(options.calibration, longestCalibration);
        own = orvacam::gains(options.sensor, options.backSideIlluminated, block.data(), block.size());
      });
      if (code != Good) return code;
    }
    char line[192];
    std::snprintf(line, sizeof line, "%-6s %10s %10s %14s %14s %14s%s\n", "device", "low gain", "high gain",
                  "low e-/count", "high e-/count", "low / high", stored ? "       built in" : "");
    std::cout << line;
    for (std::size_t i = 0; i < own.size(); ++i) {
      const orvacam::Gain& gain = own[i];
      std::snprintf(line, sizeof line, "%-6u %10.3f %10.3f %14.4f %14.4f %14.4f", gain.index, gain.low_gain,
                    gain.high_gain, gain.low_electrons, gain.high_electrons, gain.ratio);
      std::cout << line;
      if (stored && i < plain.size()) {
        std::snprintf(line, sizeof line, " %14.4f", plain[i].ratio);
        std::cout << line;
      }
      std::cout << '\n';
    }
    return code;
  });
}

void describe(Command& c, GainsOptions& o) {
  c.add("MODEL", &o.sensor, "The sensor", oneOf("", sensorNames())).required().anyCase();
  c.add("--nv", &o.calibration, "A camera's stored calibration block", fileValue());
  c.add("--bsi", o.backSideIlluminated, "The back-side-illuminated variant");
}

}  // namespace

Command gainsCommand() {
  return commandOf<GainsOptions>("gains", "Show a sensor's gain tables.", {"orvacam gains GSENSE400"},
                                 describe, gains);
}

}  // namespace tool
