#include "Settings.h"

#include <pybind11/stl.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "RecipeText.h"
#include "Registers.h"
#include "Rules.h"
#include "Worker.h"
#include "tessaline/fpga.h"

namespace py = pybind11;

namespace python {

namespace {

// --- Recipes

void DefineRecipes(py::module_& module) {
  py::class_<tool::Step>(module, "Step")
      .def_readonly("call", &tool::Step::call)
      .def_readonly("effect", &tool::Step::effect);
  module.def("recipe_steps", [](const std::string& text, const std::string& code) {
    const KnownModel model(code);
    return tool::StepsOf(tool::ParseRecipe(text, "", *model), *model);
  });
  module.def("run_step", [](const tool::Step& step) {
    return Make(step.call.c_str(), [step] { return step.run(); });
  });
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
  DefineRecipes(module);
  DefineRegisters(module);
}

}  // namespace python
