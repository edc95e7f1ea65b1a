#pragma once

#include <sys/types.h>

namespace storm {

// Prepares for an end that is cut short: it is reported, and the board's transcript is still
// written. Call before starting any other thread.
void PrepareForTheEnd();

// Reports that the application is running, and the second thread to interrupt, if there is one.
void ReportAtWork(pid_t second_thread);

}  // namespace storm
