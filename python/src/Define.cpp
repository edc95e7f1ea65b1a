#include "Define.h"

#include "Calls.h"
#include "Products.h"
#include "StartUp.h"
#include "Streams.h"

namespace python {

void DefineDevice(pybind11::module_& module) {
  DefineCalls(module);
  DefineProducts(module);
  DefineStartUp(module);
  DefineStreams(module);
}

}  // namespace python
