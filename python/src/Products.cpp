#include "Products.h"

#include <pybind11/stl.h>

#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tessaline/products.h"

namespace py = pybind11;

namespace python {

void DefineProducts(py::module_& module) {
  // None: no family has such a code.
  module.def("product", [](std::string_view code) -> py::object {
    const VeltranoSDK::products::Product* found = nullptr;
    for (const auto& product : VeltranoSDK::products::kProducts) {
      if (product.Is(code)) found = &product;
    }
    if (found == nullptr) return py::none();
    const auto& sensor = found->family.sensor;
    return py::dict(
        py::arg("series") = found->family.series,
        py::arg("image_sensor") = std::string(sensor.name), py::arg("width") = sensor.width,
        py::arg("height") = found->Height(), py::arg("point_bytes") = found->PointBytes(),
        py::arg("points_by_mode") = found->points == VeltranoSDK::products::PointLayout::kByMode);
  });
  module.def("codes", [] {
    std::vector<std::string> codes;
    for (const auto& family : VeltranoSDK::products::kFamilies) {
      std::istringstream words{std::string(family.codes)};
      codes.insert(codes.end(), std::istream_iterator<std::string>(words), {});
    }
    return codes;
  });
}

}  // namespace python
