#pragma once

#include <sys/types.h>

namespace storm {

// Where the interrupted application's end may be cut short, which is then reported and the
// board's transcript is written all the same. Before any other thread is started.
void PrepareForTheEnd();

// The application is at work; this thread of it is to be interrupted too, if there is one.
void ReportAtWork(pid_t second_thread);

}  // namespace storm
