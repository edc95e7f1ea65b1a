#include "Define.h"

#include "Calls.h"
#include "Settings.h"
#include "StartUp.h"
#include "Streams.h"
#include "Video.h"

namespace python {

void DefineDevice(pybind11::module_& module) {
  DefineCalls(module);
  DefineStartUp(module);
  DefineStreams(module);
  DefineSettings(module);
  DefineVideo(module);
}

}  // namespace python
