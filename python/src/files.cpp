#include <optional>

#include "Binding.h"
#include "files/KeywordTable.h"
#include "files/Subject.h"

namespace orvacam::python {

namespace {

py::object valueOf(const files::Value& value) {
  return std::visit(
      [](const auto& held) -> py::object {
        if constexpr (std::is_same_v<std::decay_t<decltype(held)>, std::monostate>)
          return py::none();
        else
          return py::cast(held);
      },
      value);
}

/// What a standard FITS file says of a frame's plane, decoded without corrections: the largest value that
/// means something, and (keyword, value, comment) of each card.
py::tuple keywordsOf(const PyFrame& frame, const std::string& plane) {
  const Header& header = frame.frame.header();
  files::Subject subject = files::subjectOf(header, plane);
  Decoder decoder;
  const MergeInfo merge = decoder.merge_info(header);
  if (merge.merges)
    subject.merge = files::MergeFacts{merge.gain_ratio, merge.prnu, merge.high_threshold,
                                      merge.difference_threshold, static_cast<int>(merge.type)};
  py::list cards;
  for (const files::Card& card : files::cardsOf(subject))
    cards.append(py::make_tuple(card.keyword, valueOf(card.value), card.comment));
  return py::make_tuple(subject.saturation(), cards);
}

/// (keyword, unit, header value that it comes from) of each keyword of our FITS files.
py::list keywordTable() {
  py::list table;
  for (const files::Keyword& row : files::keywords())
    table.append(py::make_tuple(row.name, row.unit, row.source));
  return table;
}

}  // namespace

void bindFiles(py::module_& module) {
  module.def("keywords", &keywordsOf);
  module.def("keyword_table", &keywordTable);
}

}  // namespace orvacam::python
