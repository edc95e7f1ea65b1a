#pragma once

#include <string>
#include <vector>

namespace tessaline_test {

// What is wrong with the end of an interrupted application, by the board's transcript in JSON
// lines: one line per complaint, none for a shutdown in order. The order: stop the FPGA, request
// the end of the image thread, of the strip thread, release images, release strips, and nothing
// else on the thread that does it. No other thread writes a register after the first of these;
// no handler is called and no frame taken after its thread's end. A limited number of the
// handlers called before may still be running.
std::vector<std::string> ComplaintsAboutShutdown(const std::string& transcript_path,
                                                 int handlers_at_work);

}  // namespace tessaline_test
