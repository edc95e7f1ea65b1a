// The module _recordings: recordings read and written. It needs no device and does not load the
// device library.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "Bytes.h"
#include "Failure.h"
#include "Raise.h"
#include "RecordedMessages.h"
#include "RecordingCursor.h"
#include "RecordingWriter.h"
#include "StripTable.h"
#include "record/Database.h"
#include "record/Topics.h"

namespace py = pybind11;

namespace python {

namespace {

// What the system refused is an OSError with its number, all else a RecordingError.
void TranslateRecordingFailures() {
  py::register_local_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(std::move(thrown));
    } catch (const tool::SystemFailure& failure) {
      const std::string next = failure.next().empty() ? "" : "; " + failure.next();
      const py::tuple arguments = py::make_tuple(failure.error(), Text(failure.what() + next));
      PyErr_SetObject(PyExc_OSError, arguments.ptr());
    } catch (const tool::Failure& failure) {
      const auto type = py::module_::import("tessaline.errors").attr("RecordingError");
      PyErr_SetObject(type.ptr(), type(Text(failure.what()), Text(failure.next())).ptr());
    }
  });
}

py::tuple DecodeFields(std::size_t topic, const py::bytes& bytes) {
  const auto cdr = std::as_bytes(std::span(std::string_view(bytes)));
  return ToPython(DecodeAny(TopicOf(topic), cdr), cdr);
}

}  // namespace

}  // namespace python

PYBIND11_MODULE(_recordings, module) {
  using python::RecordingCursor;
  using python::RecordingWriter;
  using python::StripTable;
  python::TranslateRecordingFailures();
  py::class_<RecordingCursor>(module, "Cursor")
      .def(py::init<const std::string&, const std::string&>(), py::arg("path"), py::arg("sensor"))
      .def_property_readonly("sensor", &RecordingCursor::sensor)
      .def_property_readonly("closed", &RecordingCursor::closed)
      .def_property_readonly("synced_ns", &RecordingCursor::synced_ns)
      .def("stamps", &RecordingCursor::Stamps)
      .def("counts", &RecordingCursor::Counts)
      .def("select", &RecordingCursor::Select, py::arg("topics"), py::arg("first_ns"),
           py::arg("last_ns"))
      .def("next", &RecordingCursor::Next);
  py::class_<RecordingWriter>(module, "Writer")
      .def(py::init<const std::string&>(), py::arg("path"))
      .def("put", &RecordingWriter::Put, py::arg("topic"), py::arg("stamp_ns"), py::arg("fields"))
      .def("put_coded", &RecordingWriter::PutCoded, py::arg("topic"), py::arg("stamp_ns"),
           py::arg("cdr"))
      .def("sync", &RecordingWriter::Sync)
      .def("close", &RecordingWriter::Close);
  python::DefineStripTable(module).def(
      py::init([](unsigned count, py::handle object, std::size_t point_bytes) {
        const python::Bytes bytes(object);
        return StripTable(count, static_cast<const std::uint8_t*>(bytes.data()), bytes.size(),
                          point_bytes);
      }),
      py::arg("count"), py::arg("data"), py::arg("point_bytes"));
  module.def("sensors", &python::SensorsOfRecording, py::arg("path"));
  module.def("decode", &python::DecodeFields, py::arg("topic"), py::arg("cdr"));
  module.attr("MOST_BYTES") = tool::Database::kMostBytes;
}
