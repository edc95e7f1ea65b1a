#include "Streams.h"

#include <poll.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Happenings.h"
#include "Inbox.h"
#include "StartUp.h"
#include "StripTable.h"
#include "Worker.h"
#include "WithoutGil.h"
#include "tessaline/frames.h"

namespace py = pybind11;

namespace python {

namespace {

// Keeps memory for the arrays that show it.
struct Memory {
  std::shared_ptr<Loan> loan;
};

// One delivery, until release().
class Frame {
 public:
  explicit Frame(Delivery delivery) : delivery_(std::move(delivery)) {}

  unsigned first() const { return delivery_.first; }
  unsigned second() const { return delivery_.second; }
  bool released() const { return delivery_.loan == nullptr; }
  bool borrowed() const { return !released() && delivery_.loan->borrowed(); }
  std::size_t bytes() const { return Loaned().bytes(); }
  void Release() { delivery_.loan.reset(); }
  std::shared_ptr<Frame> Copy() const {
    return std::make_shared<Frame>(
        Delivery{first(), second(), Loan::CopyOf(Loaned().data(), Loaned().bytes())});
  }

  // An array that shows the memory and keeps it.
  py::array View(const py::dtype& type, std::vector<py::ssize_t> shape, std::size_t offset) const {
    const Loan& loan = Loaned();
    auto bytes = static_cast<std::size_t>(type.itemsize());
    for (const py::ssize_t length : shape) bytes *= static_cast<std::size_t>(length);
    if (offset > loan.bytes() || bytes > loan.bytes() - offset) {
      throw py::index_error("the array would reach beyond the frame");
    }
    py::array array(type, std::move(shape), loan.data() + offset, py::cast(Memory{delivery_.loan}));
    py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
  }

  std::unique_ptr<StripTable> Strips(std::size_t point_bytes) const {
    return std::make_unique<StripTable>(first(), Loaned().data(), Loaned().bytes(), point_bytes);
  }

 private:
  const Loan& Loaned() const {
    if (released()) throw std::runtime_error("released");
    return *delivery_.loan;
  }

  Delivery delivery_;
};

// Waits for a frame; signals reach Python meanwhile.
std::shared_ptr<Frame> Wait(Inbox& inbox, std::uint64_t opening, int milliseconds) {
  constexpr int kSlice = 50;
  for (int left = milliseconds;; left -= kSlice) {
    if (auto delivery = inbox.Take(opening)) return std::make_shared<Frame>(std::move(*delivery));
    if (left <= 0 || !inbox.IsOpen(opening)) return nullptr;
    {
      const WithoutGil release;
      pollfd entry{inbox.event(), POLLIN, 0};
      poll(&entry, 1, std::min(left, kSlice));
    }
    LetSignalsThrough();
  }
}

py::object ToPython(const Happening& happening) {
  if (const auto* line = std::get_if<Line>(&happening)) {
    return py::make_tuple("log", line->level, line->where, line->text);
  }
  if (const auto* pulse = std::get_if<TriggerPulse>(&happening)) {
    return py::make_tuple("trigger", pulse->level);
  }
  return py::make_tuple("da");
}

}  // namespace

void DefineStreams(py::module_& module) {
  py::class_<Memory>(module, "Memory");
  DefineStripTable(module);
  py::class_<Frame, std::shared_ptr<Frame>>(module, "Frame")
      .def_property_readonly("first", &Frame::first)
      .def_property_readonly("second", &Frame::second)
      .def_property_readonly("released", &Frame::released)
      .def_property_readonly("borrowed", &Frame::borrowed)
      .def_property_readonly("bytes", &Frame::bytes)
      .def("release", &Frame::Release)
      .def("copy", &Frame::Copy)
      .def("view", &Frame::View, py::arg("dtype"), py::arg("shape"), py::arg("offset"))
      .def("strips", &Frame::Strips, py::arg("point_bytes"));
  py::class_<Inbox, std::unique_ptr<Inbox, py::nodelete>>(module, "Inbox")
      .def("open", &Inbox::Open, py::arg("backlog_bytes"), py::call_guard<WithoutGil>())
      .def("close", &Inbox::Close, py::call_guard<WithoutGil>())
      .def("give_back", &Inbox::GiveBack, py::call_guard<WithoutGil>())
      .def("wait", &Wait, py::arg("opening"), py::arg("milliseconds"))
      .def("is_open", &Inbox::IsOpen, py::arg("opening"))
      .def("detach", &Inbox::Detach, py::call_guard<WithoutGil>())
      .def_property_readonly("fileno", &Inbox::event)
      .def_property_readonly("counters", [](Inbox& inbox) {
        const Inbox::Counters seen = inbox.counters();
        py::dict counters;
        counters["lent"] = seen.lent;
        counters["copied"] = seen.copied;
        counters["detached"] = seen.detached;
        counters["dropped"] = seen.dropped;
        counters["unclaimed"] = seen.unclaimed;
        return counters;
      });
  module.def("images", &Images, py::return_value_policy::reference);
  module.def("strips", &Strips, py::return_value_policy::reference);
  module.def(
      "next_happening",
      [](int milliseconds) -> py::object {
        std::optional<Happening> happening;
        {
          const WithoutGil release;
          happening = Happenings::Instance().Take(milliseconds);
        }
        return happening ? ToPython(*happening) : py::none();
      },
      py::arg("milliseconds"));
}

}  // namespace python
