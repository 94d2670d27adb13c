#include <limits>

#include "Binding.h"

namespace orvacam::python {

namespace {

struct PyStack {
  Stack stack;
  InUse use;
};

/// Work on a stack, without the GIL.
template <typename Work>
auto using_(PyStack& self, const Work& work) {
  const py::gil_scoped_release others;
  const InUse::Lock lock(self.use);
  return work(self.stack);
}

template <typename Result>
py::array taken(PyStack& self, Result (Stack::*take)() const) {
  return readOnlyArray(using_(self, [&](Stack& stack) { return (stack.*take)(); }));
}

using Sums = py::array_t<std::uint64_t, py::array::c_style>;

/// A plane of sums of the caller's, copied.
Image<std::uint64_t> sumsOf(const py::object& given) {
  if (!py::isinstance<Sums>(given)) throw py::type_error("sums: an array of uint64, row by row in one piece");
  const Sums sums = py::cast<Sums>(given);
  constexpr py::ssize_t most = std::numeric_limits<std::uint32_t>::max();
  if (sums.ndim() != 2 || sums.shape(0) > most || sums.shape(1) > most)
    throw py::value_error("sums: an array of rows and columns");
  return Image<std::uint64_t>::copy(
      {static_cast<std::uint32_t>(sums.shape(1)), static_cast<std::uint32_t>(sums.shape(0))}, sums.data());
}

std::unique_ptr<PyStack> stackOfSums(const Header& first, std::uint64_t count, const py::object& sums,
                                     const py::object& squares, const std::string& plane, int method) {
  return std::unique_ptr<PyStack>(new PyStack{Stack::from_sums(first, count, sumsOf(sums), sumsOf(squares),
                                                               plane, static_cast<Stack::Method>(method)),
                                              {}});
}

}  // namespace

void bindStack(py::module_& module) {
  py::class_<PyStack>(module, "Stack")
      .def(py::init([](int method) {
        return std::unique_ptr<PyStack>(new PyStack{Stack(static_cast<Stack::Method>(method)), {}});
      }))
      .def_static("from_sums", &stackOfSums)
      .def("plane",
           [](PyStack& self, const std::string& name) { using_(self, [&](Stack& s) { s.plane(name); }); })
      .def("decoder",
           [](PyStack& self, const PyDecoder& decoder) {
             const Settings settings = decoder.settings;
             using_(self, [&](Stack& s) { s.decoder(settings.decoder()); });
           })
      .def("allow_unlike",
           [](PyStack& self, bool allow) { using_(self, [&](Stack& s) { s.allow_unlike(allow); }); })
      .def("add",
           [](PyStack& self, const PyFrame& frame) { using_(self, [&](Stack& s) { s.add(frame.frame); }); })
      .def("count", [](PyStack& self) { return using_(self, [](Stack& s) { return s.count(); }); })
      .def("header", [](PyStack& self) { return using_(self, [](Stack& s) { return s.header(); }); })
      .def("sums", [](PyStack& self) { return taken(self, &Stack::sums); })
      .def("squares", [](PyStack& self) { return taken(self, &Stack::squares); })
      .def("result", [](PyStack& self) { return taken(self, &Stack::result); })
      .def("result_u16", [](PyStack& self) {
        return readOnlyArray<std::uint16_t>(using_(self, [](Stack& s) { return s.result_u16(); }));
      });
}

}  // namespace orvacam::python
