#pragma once

#include <string>
#include <vector>

namespace tessaline_test {

// What is wrong with the end of an interrupted application, by the board's transcript
// in JSON lines: one text a complaint, none for a shutdown in order. The order: FPGA, ask
// images to end, ask strips, release images, release strips, and nothing else on the thread
// that does it; no register write of another thread behind the first; no call of a handler
// and no frame behind its thread's end. Of the handlers called before, so many may still be
// at work.
std::vector<std::string> ComplaintsAboutShutdown(const std::string& transcript_path,
                                                 int handlers_at_work);

}  // namespace tessaline_test
