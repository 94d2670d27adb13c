// orvacam check: what is wrong with files.

#include <unistd.h>

#include <iostream>

#include "Commands.h"
#include "ForEach.h"
#include "files/Damage.h"
#include "files/FixedFiles.h"
#include "files/Json.h"
#include "files/Text.h"

namespace tool {

namespace files = orvacam::files;
using orvacam::Finding;

namespace {

struct CheckOptions {
  InputOptions inputs;
  bool json = false, strict = false;
};

const char* nameOf(Finding::Severity severity) {
  switch (severity) {
    case Finding::Severity::note:
      return "note";
    case Finding::Severity::warning:
      return "warning";
    default:
      return "error";
  }
}

Finding warning(const char* id, const char* text) {
  return {Finding::Severity::warning, id, text, {}};
}

/// What a standard file shows of itself, by the kind of damage.
std::vector<Finding> findingsOf(const std::vector<files::Damage>& damages) {
  constexpr std::pair<const char*, Finding::Severity> kinds[] = {{"file_cut_off", Finding::Severity::error},
                                                                 {"file_damaged", Finding::Severity::error},
                                                                 {"file_changed", Finding::Severity::warning},
                                                                 {"file_end", Finding::Severity::warning}};
  std::vector<Finding> findings;
  for (const files::Damage& damage : damages) {
    const auto& [id, severity] = kinds[damage.kind];
    findings.push_back({severity, id, damage.text, {}});
  }
  return findings;
}

/// What a file has to say for itself; what cannot be read is an error and told on standard error, too.
std::vector<Finding> findingsOf(const Input& input) {
  const std::string& path = input.path;
  try {
    requireUsable(input);
    switch (path == "-" ? files::FileKind::Raw : files::kindOf(path)) {
      case files::FileKind::FixedFits:
        return {warning(
            "fixed_fits",
            "is a FITS file of the library's fixed layout, which lacks its last 5760 bytes: standard readers "
            "refuse it or show every value 32768 too high; orvacam repair makes a standard file of it")};
      case files::FileKind::FixedTiff:
        return {warning(
            "fixed_tiff",
            "is a TIFF file of the library's fixed layout: standard readers show it with a warning on "
            "PageNumber and without what its header says; orvacam convert makes standard files")};
      case files::FileKind::Fits:
        return findingsOf(files::damageOfFits(path));
      case files::FileKind::Tiff:
        return findingsOf(files::damageOfTiff(path));
      default:
        return readFrame(path).check();
    }
  } catch (const orvacam::Error& error) {
    complain(shownName(input), error.what());
    return {{Finding::Severity::error, orvacam::reason_name(error.reason()), error.what(), error.reason()}};
  } catch (const std::runtime_error& failure) {
    complain(shownName(input), failure.what());
    return {{Finding::Severity::error, "io", failure.what(), orvacam::Reason::io}};
  }
}

void printJson(const std::string& path, bool ok, const std::vector<Finding>& findings) {
  files::JsonList list;
  for (const Finding& finding : findings)
    list.raw(files::JsonObject()
                 .text("id", finding.id)
                 .text("severity", nameOf(finding.severity))
                 .text("text", finding.text)
                 .str());
  std::cout << files::JsonObject()
                   .text("schema", "orvacam.check/1")
                   .text("file", path)
                   .truth("ok", ok)
                   .raw("findings", list.str())
                   .str()
            << '\n';
}

void print(const std::string& path, const std::vector<Finding>& findings) {
  std::string line;
  for (const Finding& finding : findings) {
    const Colour colour = finding.severity == Finding::Severity::error     ? Colour::Red
                          : finding.severity == Finding::Severity::warning ? Colour::Yellow
                                                                           : Colour::None;
    line += (line.empty() ? "" : "; ") + coloured(nameOf(finding.severity), colour, STDOUT_FILENO) + ": " +
            files::shownText(finding.text);
  }
  if (line.empty()) line = coloured("good", Colour::Green, STDOUT_FILENO);
  std::cout << files::shownText(path) << ": " << line << '\n';
}

int check(const CheckOptions& options) {
  return forEach(inputsOf(options.inputs), [&](const Input& input, std::string&) {
    const std::vector<Finding> findings = findingsOf(input);
    bool ok = true;
    for (const Finding& finding : findings)
      ok = ok && finding.severity == Finding::Severity::note;
    if (options.json)
      printJson(input.path, ok, findings);
    else
      print(input.path, findings);
    return ok && (findings.empty() || !options.strict) ? Good : Failed;
  });
}

void describe(Command& c, CheckOptions& o) {
  addInputs(c, o.inputs, "Raw frames, FITS or TIFF files, folders of frames, or -");
  addJobs(c);
  c.add("--json", o.json, "An object for each file, one a line");
  c.add("--strict", o.strict, "Exit with 1 for notes, too");
}

}  // namespace

Command checkCommand() {
  return commandOf<CheckOptions>(
      "check",
      "Say what is wrong with frames, and which FITS and TIFF files are damaged or unreadable for others.",
      {"orvacam check night/*.raw"}, describe, check);
}

}  // namespace tool
