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

}  // namespace

void bindStack(py::module_& module) {
  py::class_<PyStack>(module, "Stack")
      .def(py::init([](int method) {
        return std::unique_ptr<PyStack>(new PyStack{Stack(static_cast<Stack::Method>(method)), {}});
      }))
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
