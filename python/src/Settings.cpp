#include "Settings.h"

#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Make.h"
#include "RecipeText.h"
#include "Registers.h"
#include "SensorLimits.h"
#include "tessaline/fpga.h"

namespace py = pybind11;

namespace python {

namespace {

// The command's failures are RefusedError in Python, in the command's own words.
void TranslateFailures() {
  py::register_local_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(std::move(thrown));
    } catch (const tool::Failure& failure) {
      const py::object type = py::module_::import("tessaline.errors").attr("RefusedError");
      PyErr_SetObject(type.ptr(), type(failure.what(), failure.next()).ptr());
    }
  });
}

// A model code, and what it means.
class KnownModel {
 public:
  explicit KnownModel(std::string code) : code_(std::move(code)), model_(code_) {
    model_.Require();
  }
  KnownModel(const KnownModel&) = delete;
  KnownModel& operator=(const KnownModel&) = delete;
  const tool::Model& operator*() const { return model_; }

 private:
  const std::string code_;
  const tool::Model model_;
};

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
  product["trigger_spacing_us"] = family.sensor.trigger_spacing;
  product["least_gain"] = limits.least_gain;
  product["most_gain"] = limits.most_gain;
  return product;
}

// --- Recipes

tool::Recipe Parse(const std::string& text, const std::string& origin, const std::string& code) {
  if (code.empty()) return tool::ParseRecipe(text, origin);
  return tool::ParseRecipe(text, origin, *KnownModel(code));
}

void DefineRecipes(py::module_& module) {
  py::class_<tool::Step>(module, "Step")
      .def_readonly("call", &tool::Step::call)
      .def_readonly("effect", &tool::Step::effect);
  module.def("recipe_text",
             [](const std::string& text, const std::string& origin, const std::string& code) {
               return tool::AsText(Parse(text, origin, code));
             });
  module.def("recipe_steps", [](const std::string& text, const std::string& code) {
    const KnownModel model(code);
    return tool::StepsOf(tool::ParseRecipe(text, "", *model), *model);
  });
  module.def("run_step",
             [](const tool::Step& step) { return Make(step.call.c_str(), [&] { return step.run(); }); });
}

// --- Registers

using Bits = std::tuple<std::string, unsigned, unsigned>;  // name, lowest bit, number of bits

Bits BitsOf(const tool::fpga::Field& field) {
  return {std::string(field.name.View()), field.shift, field.width};
}

py::tuple Describe(const tool::Registers& registers, const tool::fpga::Register& reg) {
  std::vector<Bits> fields;
  for (const auto* field : registers.FieldsOf(reg)) fields.push_back(BitsOf(*field));
  return py::make_tuple(tool::fpga::Info(reg.block).name, reg.name.View(),
                        static_cast<unsigned>(reg.block), reg.offset,
                        registers.AddressOf(reg) - reg.offset, fields);
}

// Changes bits of a register. Other calls of Python cannot come between; a change that the library
// makes on a thread of its own can.
unsigned Update(unsigned base, unsigned index, unsigned shift, unsigned width, unsigned value) {
  const tool::fpga::Field field{{}, shift, width, {}};
  return fpga_write_addr(base, index, field.In(fpga_read_addr(base, index), value));
}

void DefineRegisters(py::module_& module) {
  module.def("register_list", [](const std::string& code) {
    const KnownModel model(code);
    const tool::Registers registers(*model);
    py::list list;
    for (const auto& reg : registers.All()) list.append(Describe(registers, reg));
    return list;
  });
  module.def("register_find", [](const std::string& code, const std::string& name) {
    const KnownModel model(code);
    const tool::Registers registers(*model);
    const tool::Place place = registers.Find(name);
    return py::make_tuple(Describe(registers, place.reg),
                          place.field == nullptr ? py::none() : py::cast(BitsOf(*place.field)));
  });
  module.def("register_update", [](unsigned base, unsigned index, unsigned shift, unsigned width,
                                   unsigned value) {
    return Make("register_update", [=] { return Update(base, index, shift, width, value); });
  });
}

}  // namespace

void DefineSettings(py::module_& module) {
  TranslateFailures();
  module.def("product", &Product);
  module.def("model_codes", [] { return tool::ModelCodes(); });
  DefineRecipes(module);
  DefineRegisters(module);
}

}  // namespace python
