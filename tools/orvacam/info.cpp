// orvacam info: the header as text or JSON.

#include <CLI/CLI.hpp>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

#include "common.h"

namespace tool {

namespace {

nlohmann::ordered_json valuesOf(CFrameMetaData& header) {
  nlohmann::ordered_json values = nlohmann::ordered_json::array();
  meta_data_value_t value;
  for (unsigned int key = 0; key < ORVA_META_KEY_COUNT; ++key) {
    const KeyInfo& info = keyInfo(key);
    if (*info.name == '\0' || header.GetValue(static_cast<ORVA_META_KEYS>(key), value) < 0) continue;
    nlohmann::ordered_json entry{{"key", key}, {"name", info.name}};
    if (value.length >= 0)
      entry["value"] = std::string(value.text, strnlen(value.text, sizeof value.text));
    else if (std::floor(value.value) == value.value && std::fabs(value.value) < 1e15)
      entry["value"] = static_cast<long>(value.value);
    else
      entry["value"] = value.value;
    entry["unit"] = info.unit;
    values.push_back(entry);
  }
  return values;
}

}  // namespace

void addInfo(CLI::App& app, int& exitCode) {
  struct Options {
    std::vector<std::string> files;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("info", "Show what a frame's header says.");
  command->add_option("FILE", options->files, "Raw frame files")->required();
  command->add_flag("--json", options->json, "Every key with name, value and unit");
  command->callback([options, &exitCode] {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    exitCode = forEachFile(options->files, [&](const std::string& file) {
      Frame frame(file);
      if (options->json) {
        all.push_back({{"file", file}, {"metadata", valuesOf(frame.header)}});
        return;
      }
      std::vector<char> text(32768);
      if (frame.header.ToString(text.data(), static_cast<unsigned int>(text.size())) < 0)
        throw Failure("its header cannot be shown");
      if (options->files.size() > 1) std::cout << file << ":\n";
      std::cout << text.data();
    });
    if (options->json)
      std::cout << all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
  });
}

}  // namespace tool
