// The module _rules: what products can be set to, by the command's own rules. It goes without the
// device library, so a program can make recipes before it decides between a real and a virtual
// board, and on a machine that has neither.
#include "Rules.h"

#include <pybind11/stl.h>

#include "RecipeText.h"
#include "SensorLimits.h"

namespace py = pybind11;

namespace python {

namespace {

py::dict Product(const std::string& code) {
  const KnownModel known(code);
  const tool::Model& model = *known;
  const auto& family = model.family();
  const tool::SensorLimits& limits = tool::LimitsOf(model);
  py::dict product;
  product["series"] = family.series;
  product["sensor"] = family.sensor.name;
  product["width"] = family.sensor.width;
  product["height"] = model.product().Height();
  product["point_bytes"] = model.product().PointBytes();
  product["points_by_mode"] = model.product().points == VeltranoSDK::products::PointLayout::kByMode;
  product["trigger_spacing_us"] = family.sensor.trigger_spacing;
  product["least_gain"] = limits.least_gain;
  product["most_gain"] = limits.most_gain;
  return product;
}

// The same recipe, in the command's words. Without a code, some model must have the settings.
std::string RecipeText(const std::string& text, const std::string& origin,
                       const std::string& code) {
  if (code.empty()) return tool::AsText(tool::ParseRecipe(text, origin));
  return tool::AsText(tool::ParseRecipe(text, origin, *KnownModel(code)));
}

}  // namespace

}  // namespace python

PYBIND11_MODULE(_rules, module) {
  python::TranslateFailures();
  module.def("product", &python::Product, py::arg("model"));
  module.def("model_codes", [] { return tool::ModelCodes(); });
  module.def("recipe_text", &python::RecipeText, py::arg("text"), py::arg("origin"),
             py::arg("model"));
}
