#pragma once

#include <string>
#include <vector>

namespace tessaline_test {

// Checks the end of an interrupted application by the board's transcript in JSON lines, and returns
// one text per complaint. The right order is: stop the FPGA, ask images to end, ask strips to end,
// release images, release strips, and nothing else on the thread that does it. After the first of
// these no other thread writes a register, and after the end of a capture thread there is no
// handler call and no frame. `handlers_at_work` handlers called earlier may still be running.
std::vector<std::string> ComplaintsAboutShutdown(const std::string& transcript_path,
                                                 int handlers_at_work);

}  // namespace tessaline_test
